#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <csignal>
#include <functional>
#include <future>

#include "tests/comms/BufferedPair.h"
#include "tests/comms/TaskStatus.h"
#include "tests/message/MessageOf.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {

using std::chrono::milliseconds;

/// A write of this size blocks when the peer does not read and the send buffer is small.
constexpr std::size_t kMoreThanFits = 3U << 20U;

inline Options bufferSizes(std::uint32_t sendBufferSize, std::uint32_t receiveBufferSize = 0) {
    Options options;
    options.sendBufferSize = sendBufferSize;
    options.receiveBufferSize = receiveBufferSize;
    return options;
}

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

/// An operation of another thread.
class BackgroundCall {
  public:
    explicit BackgroundCall(const std::function<CallResult()>& operation)
        : result(std::async(std::launch::async, [this, operation] {
              task = thisTask();
              return operation();
          })) {}

    /// Waits until the thread has slept inside the system for some milliseconds.
    bool waitUntilItBlocks() const {
        int asleep = 0;
        return waitUntil([&] {
            asleep = task != 0 && isAsleep(task) ? asleep + 1 : 0;
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
