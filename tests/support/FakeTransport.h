#pragma once

#include <cerrno>
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

namespace com_tesk {
namespace test {

/// A transport without a socket: reads give what the test has queued, writes are written down. Connecting succeeds
/// unless the test says otherwise. Any thread.
///
/// In the programs over the buffered transport what is read whole and what is written really goes through one, over a
/// connection of its own: see `newCarrier`. Short counts, errors and time-outs stay as the test has scripted them.
class FakeTransport : public CSCommsInterfaceTCP {
  public:
    FakeTransport() : CSCommsInterfaceTCP(Options()) {}

    /// One result of `readMessage`: `bytes` appended as they are, then `result` returned with `error` in errno.
    struct Read {
        int result;
        std::string hexBytes;
        int error;
    };

    void queueRead(int result, const std::string& hexBytes = "", int error = 0) {
        const std::lock_guard<std::mutex> lock(mutex);
        reads.push_back({result, hexBytes, error});
    }

    /// Queues a whole data frame around a body: a read for the header and one for the body.
    void queueFrame(const std::string& bodyHex) {
        const Bytes frame = hex(hexFrame(bodyHex));
        queueRead(32, hexText(Bytes(frame.begin(), frame.begin() + 32)));
        queueRead(static_cast<int>(frame.size()) - 32, bodyHex);
    }

    /// The next writes return this instead of the number of bytes; the bytes are not written down.
    void failWrites(int result, int error, int times = 1) {
        const std::lock_guard<std::mutex> lock(mutex);
        for (int i = 0; i < times; ++i) {
            failures.push_back({result, "", error});
        }
    }

    /// Called in every write, before its result is decided, with no lock held.
    std::function<void()> onWrite;

    /// Called in every connect; its result is the connect's.
    std::function<bool()> onOpen;

    /// The hex text of each frame written.
    std::vector<std::string> written() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return frames;
    }

    /// The type of the message object of each frame written.
    std::vector<RawMessage::Type> writtenTypes() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return types;
    }

    int closeCount() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return closes;
    }

    /// The counts that reads have asked for.
    std::vector<unsigned int> readCounts() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return counts;
    }

    bool openConnection(unsigned int /*address*/, unsigned int /*port*/) override { return onOpen ? onOpen() : true; }

    int readMessage(unsigned int count, RawMessage& message) override {
        std::unique_lock<std::mutex> lock(mutex);
        counts.push_back(count);
        if (reads.empty()) {
            // As a quiet host: the receive time-out, but a short one.
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

    int close() override {
        const std::lock_guard<std::mutex> lock(mutex);
        ++closes;
        return 0;
    }

  private:
    const std::unique_ptr<Carrier> carrier = newCarrier();
    mutable std::mutex mutex;
    std::condition_variable arrived;
    std::deque<Read> reads;
    std::deque<Read> failures;
    std::vector<std::string> frames;
    std::vector<RawMessage::Type> types;
    std::vector<unsigned int> counts;
    int closes = 0;
};

}  // namespace test
}  // namespace com_tesk
