#include <fcntl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "tests/comms/OpenTransport.h"
#include "tests/comms/SystemCalls.h"
#include "tests/comms/TaskStatus.h"
#include "tests/message/MessageOf.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

using Clock = std::chrono::steady_clock;

/// Far below the 30 seconds after which a blocked write gives up by itself.
constexpr std::chrono::seconds kAtOnce{2};

TEST(TransportClosing, ReturnsMinusOneWhenNothingWasOpened) {
    VisibleTransport transport;
    SystemCalls calls;
    EXPECT_EQ(transport.close(), -1);
    EXPECT_EQ(calls.text(), "");
}

TEST(TransportClosing, ReturnsZeroOnceAndThenMinusOne) {
    OpenTransport open;
    EXPECT_EQ(open.transport.close(), 0);
    SystemCalls calls;
    EXPECT_EQ(open.transport.close(), -1);
    EXPECT_EQ(calls.text(), "");
}

TEST(TransportClosing, ClosesTheDescriptorAndForgetsIt) {
    OpenTransport open;
    const int descriptor = open.transport.descriptor();
    open.transport.close();
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
    EXPECT_EQ(open.transport.descriptor(), -1);
}

TEST(TransportClosing, EndsTheStreamForThePeer) {
    OpenTransport open;
    open.transport.close();
    EXPECT_TRUE(open.peer->waitForEnd());
}

TEST(TransportClosing, StillDeliversWhatWasWritten) {
    OpenTransport open;
    open.transport.writeMessage(messageOf("A1 A2 A3"));
    open.transport.close();
    EXPECT_EQ(hexText(open.peer->receive(10)), "A1 A2 A3");
}

TEST(TransportClosing, ReturnsTheSystemsError) {
    OpenTransport open;
    {
        SystemCalls calls;
        calls.fail("close", EIO);
        EXPECT_EQ(open.transport.close(), -1);
        EXPECT_EQ(calls.textOf("close"), "close #?\n");
    }
    EXPECT_EQ(open.transport.descriptor(), -1);
    SystemCalls calls;
    EXPECT_EQ(open.transport.close(), -1);
    EXPECT_EQ(calls.text(), "");
}

TEST(TransportClosing, PrintsNothing) {
    OpenTransport open;
    const CapturedStreams streams;
    SystemCalls calls;
    calls.fail("close", EIO);
    open.transport.close();
    open.transport.close();
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST(TransportClosing, HappensAtDestruction) {
    ScriptedHost host;
    std::unique_ptr<CSCommsInterface> transport;
    {
        auto newTransport = std::make_unique<VisibleTransport>();
        ASSERT_TRUE(newTransport->openConnection(ScriptedHost::address(), host.port()));
        transport = std::move(newTransport);
    }
    const auto peer = host.accept();
    ASSERT_NE(peer, nullptr);
    transport.reset();
    EXPECT_TRUE(peer->waitForEnd());
}

TEST(TransportClosing, MakesNoCallAtDestructionWithoutASocket) {
    auto transport = std::make_unique<VisibleTransport>();
    SystemCalls calls;
    transport.reset();
    EXPECT_EQ(calls.text(), "");
}

TEST(TransportClosing, SucceedsForExactlyOneOfManyThreads) {
    ScriptedHost host;
    VisibleTransport transport;
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
        const auto peer = host.accept();
        ASSERT_NE(peer, nullptr);
        std::atomic<int> zeros{0};
        std::atomic<int> minusOnes{0};
        std::vector<std::thread> closers;
        for (int i = 0; i < 4; ++i) {
            closers.emplace_back([&] {
                const int result = transport.close();
                zeros += result == 0 ? 1 : 0;
                minusOnes += result == -1 ? 1 : 0;
            });
        }
        for (std::thread& closer : closers) {
            closer.join();
        }
        EXPECT_EQ(zeros, 1);
        EXPECT_EQ(minusOnes, 3);
    }
}

/// A thread that blocks in an operation of a transport.
class BlockedThread {
  public:
    template <typename Operation>
    BlockedThread(const std::string& call, Operation operation)
        : thread([this, call, operation] {
              task = thisTask();
              SystemCalls calls;
              calls.before(call, [this] { isCalling = true; });
              result = operation();
              end = Clock::now();
              hasEnded = true;
          }) {}
    BlockedThread(const BlockedThread&) = delete;
    BlockedThread& operator=(const BlockedThread&) = delete;
    ~BlockedThread() { thread.join(); }

    /// Whether it sleeps in its system call, for longer than a moment.
    bool waitForBlock() const {
        int asleep = 0;
        return eventually([&] {
            asleep = isCalling && isAsleep(task) ? asleep + 1 : 0;
            return asleep >= 10;
        });
    }

    bool waitForEnd() const {
        return eventually([this] { return hasEnded.load(); }, std::chrono::seconds(40));
    }

    std::atomic<int> result{-99};
    Clock::time_point end;

  private:
    std::atomic<pid_t> task{0};
    std::atomic<bool> isCalling{false};
    std::atomic<bool> hasEnded{false};
    std::thread thread;
};

/// More than the buffers of both sides can hold.
RawMessage hugeMessage() {
    RawMessage message(RawMessage::DATA);
    message.resize(32U << 20U, 'x');
    return message;
}

/// A connection whose peer does not read.
struct StuckTransport : OpenTransport {
    StuckTransport() { peer->shrinkReceiveBuffer(); }

    const RawMessage message = hugeMessage();
};

TEST(TransportClosing, WakesAWriterWhosePeerDoesNotRead) {
    StuckTransport open;
    BlockedThread writer("write", [&] { return open.transport.writeMessage(open.message); });
    ASSERT_TRUE(writer.waitForBlock());
    const auto start = Clock::now();
    EXPECT_EQ(open.transport.close(), 0);
    EXPECT_LT(Clock::now() - start, kAtOnce);
    ASSERT_TRUE(writer.waitForEnd());
    EXPECT_LT(writer.end - start, kAtOnce);
    EXPECT_LT(writer.result, static_cast<int>(open.message.size()));
}

TEST(TransportClosing, WakesSeveralWritersAtATime) {
    StuckTransport open;
    const auto write = [&] { return open.transport.writeMessage(open.message); };
    BlockedThread first("write", write);
    BlockedThread second("write", write);
    BlockedThread third("write", write);
    ASSERT_TRUE(first.waitForBlock() && second.waitForBlock() && third.waitForBlock());
    const auto start = Clock::now();
    EXPECT_EQ(open.transport.close(), 0);
    ASSERT_TRUE(first.waitForEnd() && second.waitForEnd() && third.waitForEnd());
    EXPECT_LT(Clock::now() - start, kAtOnce);
}

TEST(TransportClosing, ReturnsTheSystemsErrorEvenWhenItHasWokenAWriter) {
    StuckTransport open;
    BlockedThread writer("write", [&] { return open.transport.writeMessage(open.message); });
    ASSERT_TRUE(writer.waitForBlock());
    SystemCalls calls;
    calls.fail("close", EIO);
    EXPECT_EQ(open.transport.close(), -1);
    EXPECT_EQ(calls.textOf("close"), "close #?\n");
    EXPECT_EQ(open.transport.descriptor(), -1);
}

TEST(TransportClosing, WakesAReader) {
    OpenTransport open;
    RawMessage message(RawMessage::DATA);
    BlockedThread reader("read", [&] { return open.transport.readMessage(32, message); });
    ASSERT_TRUE(reader.waitForBlock());
    EXPECT_EQ(open.transport.close(), 0);
    ASSERT_TRUE(reader.waitForEnd());
    // Had it not been woken, it would say that a second has passed.
    EXPECT_NE(reader.result, -2);
    EXPECT_LE(reader.result, 0);
}

TEST(TransportClosing, WakesAReaderAndAWriterTogether) {
    StuckTransport open;
    BlockedThread writer("write", [&] { return open.transport.writeMessage(open.message); });
    ASSERT_TRUE(writer.waitForBlock());
    RawMessage message(RawMessage::DATA);
    BlockedThread reader("read", [&] { return open.transport.readMessage(32, message); });
    ASSERT_TRUE(reader.waitForBlock());
    const auto start = Clock::now();
    EXPECT_EQ(open.transport.close(), 0);
    ASSERT_TRUE(reader.waitForEnd() && writer.waitForEnd());
    EXPECT_LT(Clock::now() - start, kAtOnce);
    EXPECT_NE(reader.result, -2);
}

TEST(TransportClosing, AtAReopeningWakesAWriter) {
    StuckTransport open;
    BlockedThread writer("write", [&] { return open.transport.writeMessage(open.message); });
    ASSERT_TRUE(writer.waitForBlock());
    const auto start = Clock::now();
    EXPECT_TRUE(open.transport.openConnection(ScriptedHost::address(), open.host.port()));
    ASSERT_TRUE(writer.waitForEnd());
    EXPECT_LT(Clock::now() - start, kAtOnce);
    const auto peer = open.host.accept();
    ASSERT_NE(peer, nullptr);
    EXPECT_TRUE(peer->isQuietFor(std::chrono::milliseconds(50)));
}

TEST(TransportClosing, AtDestructionWakesAWriterAndWaitsForIt) {
    ScriptedHost host;
    auto transport = std::make_unique<VisibleTransport>();
    ASSERT_TRUE(transport->openConnection(ScriptedHost::address(), host.port()));
    const auto peer = host.accept();
    ASSERT_NE(peer, nullptr);
    const RawMessage message = hugeMessage();
    VisibleTransport& used = *transport;
    BlockedThread writer("write", [&] { return used.writeMessage(message); });
    ASSERT_TRUE(writer.waitForBlock());
    const auto start = Clock::now();
    transport.reset();
    ASSERT_TRUE(writer.waitForEnd());
    EXPECT_LT(Clock::now() - start, kAtOnce);
    EXPECT_LT(writer.result, static_cast<int>(message.size()));
}

}  // namespace
}  // namespace com_tesk::test
