#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "comms/TcpConnection.h"
#include "tests/comms/TaskStatus.h"
#include "tests/support/MessageOf.h"
#include "tests/support/ScriptedHost.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {

using std::chrono::milliseconds;
using Bounds = CSCommsInterfaceTCPBuffered::Bounds;
using Options = CSCommsInterfaceTCP::Options;

/// A write of this size blocks when the peer does not read and the send buffer is small.
constexpr std::size_t kMoreThanFits = 3U << 20U;

inline Options bufferSizes(std::uint32_t sendBufferSize, std::uint32_t receiveBufferSize = 0) {
    Options options;
    options.sendBufferSize = sendBufferSize;
    options.receiveBufferSize = receiveBufferSize;
    return options;
}

/// A standard transport whose descriptor a test can see.
class VisibleTransport : public CSCommsInterfaceTCP {
  public:
    explicit VisibleTransport(const Options& givenOptions = Options()) : CSCommsInterfaceTCP(givenOptions) {}
    int descriptor() const { return connection().descriptor(); }
};

/// A buffered transport whose descriptor a test can see.
class VisibleBuffered : public CSCommsInterfaceTCPBuffered {
  public:
    explicit VisibleBuffered(const Bounds& givenBounds = Bounds(), const Options& givenOptions = Options())
        : CSCommsInterfaceTCPBuffered(givenOptions, givenBounds) {}
    int descriptor() const { return connection().descriptor(); }
};

/// A transport that is connected to a peer.
template <typename Transport>
struct ConnectedPair {
    template <typename... Arguments>
    explicit ConnectedPair(const Arguments&... arguments) : transport(arguments...) {
        connect();
    }

    void connect() {
        const bool isOpened = transport.openConnection(ScriptedHost::address(), host.port());
        peer = isOpened ? host.accept() : nullptr;
        if (peer == nullptr) {
            throw std::runtime_error("no connection");
        }
    }

    ScriptedHost host;
    Transport transport;
    std::unique_ptr<ScriptedHost::Peer> peer;
};

using StandardPair = ConnectedPair<VisibleTransport>;
using BufferedPair = ConnectedPair<VisibleBuffered>;

/// A promise of both transports: the parameter is true for the buffered one.
class BothTransports : public testing::TestWithParam<bool> {
  protected:
    static bool isBuffered() { return GetParam(); }

    static std::unique_ptr<CSCommsInterfaceTCP> newTransport(const Options& options = Options()) {
        if (isBuffered()) {
            return std::make_unique<VisibleBuffered>(Bounds(), options);
        }
        return std::make_unique<VisibleTransport>(options);
    }

    int descriptor() const {
        return isBuffered() ? static_cast<const VisibleBuffered&>(*transport).descriptor()
                            : static_cast<const VisibleTransport&>(*transport).descriptor();
    }

    bool open() { return transport->openConnection(ScriptedHost::address(), host.port()); }

    void connect() {
        ASSERT_TRUE(open());
        peer = host.accept();
        ASSERT_TRUE(peer);
    }

    ScriptedHost host;
    std::unique_ptr<CSCommsInterfaceTCP> transport = newTransport();
    std::unique_ptr<ScriptedHost::Peer> peer;
};

inline std::string nameOfTransport(const testing::TestParamInfo<bool>& isBuffered) {
    return isBuffered.param ? "Buffered" : "Standard";
}

/// Names the tests of a table after the field `name` of its rows.
template <typename Row>
std::string nameOfRow(const testing::TestParamInfo<Row>& row) {
    return row.param.name;
}

/// A result and `errno`.
using Outcome = std::pair<int, int>;

/// The result of one call, `errno` after it, and the hex text of what a read has appended.
struct CallResult {
    Outcome outcome() const { return {result, error}; }

    int result = 0;
    int error = 0;
    std::string bytes;
    double seconds = 0.0;
};

/// Reads `count` bytes into a new message.
inline CallResult readOnce(CSCommsInterfaceTCP& transport, unsigned int count) {
    RawMessage message(RawMessage::DATA);
    const Stopwatch elapsed;
    errno = 0;
    const int result = transport.readMessage(count, message);
    return {result, errno, hexText(message), elapsed.seconds()};
}

inline CallResult writeOnce(CSCommsInterfaceTCP& transport, const RawMessage& message) {
    const Stopwatch elapsed;
    errno = 0;
    const int result = transport.writeMessage(message);
    return {result, errno, "", elapsed.seconds()};
}

/// Appends `count` bytes to a message, and reads again after every time-out.
inline int readFully(CSCommsInterfaceTCP& transport, unsigned int count, RawMessage& message) {
    int result = -2;
    while (result == -2) {
        result = transport.readMessage(count, message);
    }
    return result;
}

/// Reads the next frame as the engine does. Returns the body's hex text, or what failed.
inline std::string readBodyOfFrame(CSCommsInterfaceTCP& transport) {
    RawMessage header(RawMessage::DATA);
    int result = readFully(transport, 32, header);
    if (result != 32) {
        return "header: " + std::to_string(result) + " error " + std::to_string(errno);
    }
    const unsigned int length = header.getDoubleWord(0) - 32;
    RawMessage body(RawMessage::DATA);
    result = readFully(transport, length, body);
    return result == static_cast<int>(length) ? hexText(body)
                                              : "body: " + std::to_string(result) + " error " + std::to_string(errno);
}

inline void waitForInput(int descriptor) {
    pollfd waiting{descriptor, POLLIN, 0};
    ASSERT_EQ(poll(&waiting, 1, 10'000), 1);
}

/// Returns `count` bytes that do not repeat.
inline Bytes patternedBytes(std::size_t count, std::uint32_t start = 1) {
    Bytes bytes(count);
    std::uint32_t number = start;
    for (unsigned char& byte : bytes) {
        number = number * 1664525U + 1013904223U;
        byte = static_cast<unsigned char>(number >> 24U);
    }
    return bytes;
}

inline void append(Bytes& bytes, const Bytes& added) {
    bytes.insert(bytes.end(), added.begin(), added.end());
}

/// Returns the bytes in [begin, end).
inline Bytes slice(const Bytes& bytes, std::size_t begin, std::size_t end) {
    return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(begin), bytes.begin() + static_cast<std::ptrdiff_t>(end));
}

/// Returns the header of a data frame whose body has this size.
inline Bytes headerOf(std::size_t bodySize) {
    return hex(hexWord(static_cast<unsigned int>(bodySize) + 32) + " 00 00 00 20 00 00 00 00 00 00 00 00 " +
               "FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF");
}

/// Returns a data frame: like `hexFrame`, but fast enough for large bodies.
inline Bytes frameOf(const Bytes& body) {
    Bytes frame = headerOf(body.size());
    append(frame, body);
    return frame;
}

inline Bytes bytesOf(const RawMessage& message) {
    return Bytes(message.begin(), message.end());
}

inline RawMessage messageOfBytes(const Bytes& bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), static_cast<unsigned int>(bytes.size()), RawMessage::DATA};
}

/// An operation of another thread.
class BackgroundCall {
  public:
    explicit BackgroundCall(const std::function<CallResult()>& operation)
        : result(std::async(std::launch::async, [this, operation] {
              task = thisTask();
              return operation();
          })) {}

    /// Waits until the thread has slept inside the system for some milliseconds. With a connected socket, also until all
    /// this time the socket had bytes for which the peer's full receive buffer had no space.
    bool waitUntilItBlocks(int writingSocket = -1) const {
        int asleep = 0;
        return waitUntil([&] {
            int unacknowledged = 1;
            if (writingSocket >= 0) {
                ioctl(writingSocket, SIOCOUTQ, &unacknowledged);
            }
            asleep = task != 0 && isAsleep(task) && unacknowledged > 0 ? asleep + 1 : 0;
            return asleep >= 15;
        });
    }

    bool hasEnded() const { return result.wait_for(milliseconds(0)) == std::future_status::ready; }

    CallResult get() { return result.get(); }

  private:
    std::atomic<pid_t> task{0};
    std::future<CallResult> result;
};

/// Handles a signal so that it interrupts system calls, and restores the previous handler.
class SignalHandler {
  public:
    explicit SignalHandler(
        int handledSignal, void (*handler)(int) = [](int /*signal*/) {})
        : signal(handledSignal) {
        struct sigaction action {};
        action.sa_handler = handler;
        EXPECT_EQ(sigaction(signal, &action, &previous), 0);
    }
    SignalHandler(const SignalHandler&) = delete;
    SignalHandler& operator=(const SignalHandler&) = delete;
    ~SignalHandler() { sigaction(signal, &previous, nullptr); }

    /// Returns the handler that is set now.
    static auto current(int signal) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        return action.sa_handler;
    }

  private:
    const int signal;
    struct sigaction previous {};
};

/// Sends SIGUSR1 to a thread at this interval until destruction. The thread must exist as long.
class RepeatedSignal {
  public:
    RepeatedSignal(pthread_t target, milliseconds interval)
        : thread([this, target, interval] {
              while (!isOver) {
                  pthread_kill(target, SIGUSR1);
                  ++sent;
                  std::this_thread::sleep_for(interval);
              }
          }) {}
    RepeatedSignal(const RepeatedSignal&) = delete;
    RepeatedSignal& operator=(const RepeatedSignal&) = delete;
    ~RepeatedSignal() {
        isOver = true;
        thread.join();
    }

    std::atomic<int> sent{0};

  private:
    const SignalHandler handler{SIGUSR1};
    std::atomic<bool> isOver{false};
    std::thread thread;
};

}  // namespace com_tesk::test
