#pragma once

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "comms/CSCommsInterfaceTCP.h"
#include "message/RawMessage.h"
#include "tests/support/Hex.h"
#include "tests/support/TransportUnderTest.h"

namespace com_tesk::test {

/// A transport without a socket. Reads return the results that the test has queued. Writes are recorded. Connecting
/// succeeds unless the test sets `onOpen`. Any thread.
///
/// When the buffered transport is under test, whole reads and writes go through such a transport over a real
/// connection: see `newCarrier`. Short counts, errors and time-outs stay as the test has queued them.
class FakeTransport : public CSCommsInterfaceTCP {
  public:
    FakeTransport() : CSCommsInterfaceTCP(Options()) {}
    ~FakeTransport() override {
        if (onDestruction) {
            onDestruction();
        }
    }

    /// One result of `readMessage`: it appends `hexBytes` unchanged, sets errno to `error` and returns `result`.
    struct Read {
        int result;
        std::string hexBytes;
        int error;
    };

    void queueRead(int result, const std::string& hexBytes = "", int error = 0) {
        const std::lock_guard<std::mutex> lock(mutex);
        reads.push_back({result, hexBytes, error});
    }

    /// Queues a whole data frame with this body: one read for the header and one for the body. A thread that reads
    /// meanwhile sees both or none.
    void queueFrame(const std::string& bodyHex) {
        const Bytes frame = hex(hexFrame(bodyHex));
        const std::lock_guard<std::mutex> lock(mutex);
        reads.push_back({32, hexText(Bytes(frame.begin(), frame.begin() + 32)), 0});
        reads.push_back({static_cast<int>(frame.size()) - 32, bodyHex, 0});
    }

    /// Makes the next `times` writes return `result` instead of the number of bytes. Their bytes are not recorded.
    void failWrites(int result, int error, int times = 1) {
        const std::lock_guard<std::mutex> lock(mutex);
        for (int i = 0; i < times; ++i) {
            failures.push_back({result, "", error});
        }
    }

    /// @name Hooks
    /// Set them before another thread uses the transport. No lock is held when they run.
    /// @{
    std::function<void()> onWrite;                   ///< Called in every write, before its result is chosen.
    std::function<void(unsigned int count)> onRead;  ///< Called in every read, with the requested count.
    std::function<bool()> onOpen;                    ///< Called for every attempt to connect, which returns its result.
    std::function<void(bool isInterrupted)> onInterruption;  ///< Called in every `setInterrupted`.
    std::function<void()> onClose;                           ///< Called in every close.
    std::function<void()> onDestruction;
    /// @}

    /// One attempt to connect.
    struct Opening {
        unsigned int address;
        unsigned int port;
        Options options;
        std::chrono::steady_clock::time_point time;
    };
    std::vector<Opening> openings() const { return locked(opened); }

    /// Returns the hex text of each frame written.
    std::vector<std::string> written() const { return locked(frames); }

    /// Returns the message type of each frame written.
    std::vector<RawMessage::Type> writtenTypes() const { return locked(types); }

    /// Returns the argument of each `setInterrupted`.
    std::vector<bool> interruptions() const { return locked(interrupted); }

    int closeCount() const { return locked(closes); }

    /// Returns the requested count of each read.
    std::vector<unsigned int> readCounts() const { return locked(counts); }

    bool openConnection(unsigned int address, unsigned int port) override {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            opened.push_back({address, port, getOptions(), std::chrono::steady_clock::now()});
        }
        return onOpen ? onOpen() : true;
    }

    int readMessage(unsigned int count, RawMessage& message) override {
        if (onRead) {
            onRead(count);
        }
        std::unique_lock<std::mutex> lock(mutex);
        counts.push_back(count);
        if (reads.empty()) {
            // Behaves like a silent host: the read times out, after a short time.
            arrived.wait_for(lock, std::chrono::milliseconds(20));
            message.resize(message.size() + count);
            errno = EAGAIN;
            return -2;
        }
        const Read read = reads.front();
        reads.pop_front();
        const Bytes bytes = hex(read.hexBytes);
        if (carrier && !bytes.empty() && bytes.size() == count && read.result == static_cast<int>(count)) {
            return carrier->read(bytes, message);
        }
        message.insert(message.end(), bytes.begin(), bytes.end());
        errno = read.error;
        return read.result;
    }

    int writeMessage(const RawMessage& message) override {
        if (onWrite) {
            onWrite();
        }
        const std::lock_guard<std::mutex> lock(mutex);
        if (!failures.empty()) {
            const Read failure = failures.front();
            failures.pop_front();
            errno = failure.error;
            return failure.result;
        }
        types.push_back(message.getType());
        frames.push_back(hexText(carrier ? carrier->write(message) : message));
        return static_cast<int>(message.size());
    }

    void setInterrupted(bool isInterrupted) override {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            interrupted.push_back(isInterrupted);
        }
        if (onInterruption) {
            onInterruption(isInterrupted);
        }
    }

    int close() override {
        if (onClose) {
            onClose();
        }
        const std::lock_guard<std::mutex> lock(mutex);
        ++closes;
        return 0;
    }

  private:
    template <typename Value>
    Value locked(const Value& value) const {
        const std::lock_guard<std::mutex> lock(mutex);
        return value;
    }

    const std::unique_ptr<Carrier> carrier = newCarrier();
    mutable std::mutex mutex;
    std::condition_variable arrived;
    std::deque<Read> reads;
    std::deque<Read> failures;
    std::vector<std::string> frames;
    std::vector<RawMessage::Type> types;
    std::vector<unsigned int> counts;
    std::vector<Opening> opened;
    std::vector<bool> interrupted;
    int closes = 0;
};

}  // namespace com_tesk::test
