#include <fcntl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <future>
#include <thread>

#include "tests/comms/BufferedPair.h"
#include "tests/comms/SystemCalls.h"
#include "tests/comms/TaskStatus.h"
#include "tests/message/MessageOf.h"
#include "tests/support/BlackHole.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

using std::chrono::milliseconds;
using Bounds = CSCommsInterfaceTCPBuffered::Bounds;

/// Far below the five seconds after which a connect gives up by itself.
constexpr double kAtOnce = 2.0;

Bounds connectWithin(milliseconds timeout) {
    Bounds bounds;
    bounds.connectTimeout = timeout;
    return bounds;
}

TEST(BufferedOpening, ConnectsByNumberAndByText) {
    ScriptedHost host;
    VisibleBuffered transport;
    EXPECT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
    EXPECT_NE(host.accept(), nullptr);
    EXPECT_TRUE(transport.openConnection("127.0.0.1", host.port()));
    EXPECT_NE(host.accept(), nullptr);
    CSCommsInterfaceTCP& base = transport;
    EXPECT_TRUE(base.openConnection("127.0.0.1", host.port() + 0x10000)) << "only the low 16 bits count";
    EXPECT_NE(host.accept(), nullptr);
}

TEST(BufferedOpening, ClosesTheConnectionBefore) {
    BufferedPair pair;
    const auto old = std::move(pair.peer);
    pair.connect();
    EXPECT_TRUE(old->waitForEnd());
}

TEST(BufferedOpening, LeavesABlockingSocketThatProgramsDoNotInherit) {
    BufferedPair pair;
    EXPECT_EQ(fcntl(pair.transport.descriptor(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(fcntl(pair.transport.descriptor(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST(BufferedOpening, MarksTheSocketForProgramsInTheCallThatMakesIt) {
    ScriptedHost host;
    VisibleBuffered transport;
    SystemCalls calls;
    EXPECT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
    EXPECT_EQ(calls.textOf("socket AF"), "socket AF_INET SOCK_STREAM|SOCK_CLOEXEC IPPROTO_TCP\n");
    EXPECT_EQ(calls.textOf("FD"), "");
}

TEST(BufferedOpening, OfARefusingPortFailsAndLeavesNoSocket) {
    VisibleBuffered transport;
    const CapturedStreams streams;
    EXPECT_FALSE(transport.openConnection(ScriptedHost::address(), refusingPort()));
    EXPECT_EQ(transport.descriptor(), -1);
    EXPECT_EQ(transport.close(), -1);
    EXPECT_EQ(readOnce(transport, 1).error, EBADF);
    EXPECT_EQ(transport.writeMessage(messageOf("01")), -1);
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST(BufferedOpening, FailsWithTheBaseClassesLineWhenThereIsNoSocket) {
    VisibleBuffered transport;
    const CapturedStreams streams;
    SystemCalls calls;
    calls.fail("socket", EMFILE);
    EXPECT_FALSE(transport.openConnection(ScriptedHost::address(), 1));
    EXPECT_EQ(streams.err(), "Unable to create socket\n");
    EXPECT_EQ(calls.textOf("close"), "");
}

TEST(BufferedOpening, FailsWithTheBaseClassesLineWhenAnOptionIsRefused) {
    VisibleBuffered transport;
    const CapturedStreams streams;
    SystemCalls calls;
    calls.fail("SO_RCVTIMEO", EINVAL);
    EXPECT_FALSE(transport.openConnection(ScriptedHost::address(), 1));
    EXPECT_EQ(streams.err(), "Unable to set socket options\n");
    EXPECT_EQ(calls.textOf("connect"), "");
    EXPECT_EQ(calls.textOf("close"), "close #1\n");
}

TEST(BufferedOpening, MakesNoSecondAttemptAndLeaksNoDescriptor) {
    VisibleBuffered transport;
    const unsigned int port = refusingPort();
    SystemCalls calls;
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(transport.openConnection(ScriptedHost::address(), port));
    }
    const std::string creation = "socket AF_INET SOCK_STREAM|SOCK_CLOEXEC IPPROTO_TCP\n";
    EXPECT_EQ(calls.textOf("socket AF"), creation + creation + creation);
    EXPECT_EQ(calls.textOf("close #1") + calls.textOf("close #2") + calls.textOf("close #3"),
              "close #1\nclose #2\nclose #3\n");
}

TEST(BufferedOpening, OfABlackHoleGivesUpAfterTheConnectTimeout) {
    const BlackHole hole;
    VisibleBuffered transport(connectWithin(milliseconds(300)));
    const CapturedStreams streams;
    const StopwatchSince watch;
    EXPECT_FALSE(transport.openConnection(BlackHole::host(), hole.port()));
    EXPECT_GE(watch.seconds(), 0.29);
    EXPECT_LT(watch.seconds(), kAtOnce);
    EXPECT_EQ(transport.descriptor(), -1);
    EXPECT_EQ(streams.err(), "");
}

TEST(BufferedOpening, OfABlackHoleTakesFiveSecondsByDefault) {
    const BlackHole hole;
    VisibleBuffered transport;
    const StopwatchSince watch;
    EXPECT_FALSE(transport.openConnection(BlackHole::host(), hole.port()));
    EXPECT_GE(watch.seconds(), 4.99);
    EXPECT_LT(watch.seconds(), 7.0);
}

TEST(BufferedOpening, TakesItsOwnTimeAlsoWhenADeadPeerIsNoticedSooner) {
    const BlackHole hole;
    Bounds bounds = connectWithin(milliseconds(4'500));
    bounds.deadPeerSeconds = 3;
    VisibleBuffered transport(bounds);
    const StopwatchSince watch;
    EXPECT_FALSE(transport.openConnection(BlackHole::host(), hole.port()));
    EXPECT_GE(watch.seconds(), 4.49);
}

TEST(BufferedOpening, WorksAfterABlackHole) {
    const BlackHole hole;
    ScriptedHost host;
    VisibleBuffered transport(connectWithin(milliseconds(50)));
    EXPECT_FALSE(transport.openConnection(BlackHole::host(), hole.port()));
    ASSERT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
    const auto peer = host.accept();
    ASSERT_NE(peer, nullptr);
    peer->send("0A");
    EXPECT_EQ(readOnce(transport, 1).bytes, "0A");
}

TEST(BufferedOpening, KeepsItsTimeAlsoUnderSignals) {
    struct sigaction harmless {};
    harmless.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &harmless, nullptr), 0);
    const BlackHole hole;
    VisibleBuffered transport(connectWithin(milliseconds(500)));
    const pthread_t opener = pthread_self();
    std::thread signaller([&] {
        for (int i = 0; i < 50; ++i) {
            pthread_kill(opener, SIGUSR1);
            std::this_thread::sleep_for(milliseconds(5));
        }
    });
    const StopwatchSince watch;
    EXPECT_FALSE(transport.openConnection(BlackHole::host(), hole.port()));
    EXPECT_GE(watch.seconds(), 0.49);
    EXPECT_LT(watch.seconds(), kAtOnce);
    signaller.join();
}

/// A connect that hangs on another thread.
struct HangingOpening : testing::Test {
    HangingOpening() {
        opened =
            std::async(std::launch::async, [this] { return transport.openConnection(BlackHole::host(), hole.port()); });
        EXPECT_TRUE(eventually([this] { return transport.descriptor() != -1; }));
        std::this_thread::sleep_for(milliseconds(50));
    }

    BlackHole hole;
    VisibleBuffered transport;
    std::future<bool> opened;
    const StopwatchSince watch;
};

TEST_F(HangingOpening, FailsAtOnceWhenAnotherThreadCloses) {
    EXPECT_EQ(transport.close(), 0);
    EXPECT_FALSE(opened.get());
    EXPECT_LT(watch.seconds(), kAtOnce);
    EXPECT_EQ(transport.descriptor(), -1);
}

TEST_F(HangingOpening, FailsAtOnceWhenInterrupted) {
    transport.setInterrupted(true);
    EXPECT_FALSE(opened.get());
    EXPECT_LT(watch.seconds(), kAtOnce);
    EXPECT_EQ(transport.descriptor(), -1);
}

TEST_F(HangingOpening, LetsNobodyWriteOrRead) {
    EXPECT_EQ(transport.writeMessage(messageOf("01")), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(readOnce(transport, 1).error, EBADF);
    EXPECT_LT(watch.seconds(), kAtOnce);
    transport.close();
    EXPECT_FALSE(opened.get());
}

TEST(BufferedOpeningWhileInterrupted, FailsAndDisturbsNoHost) {
    ScriptedHost host;
    VisibleBuffered transport;
    transport.setInterrupted(true);
    EXPECT_FALSE(transport.openConnection(ScriptedHost::address(), host.port()));
    EXPECT_EQ(host.accept(milliseconds(50)), nullptr);
    transport.setInterrupted(false);
    EXPECT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
}

TEST(BufferedOpeningInAStorm, OfClosesAndInterruptionsLeavesNoDescriptorBehind) {
    ScriptedHost host;
    VisibleBuffered transport;
    std::atomic<bool> isOver{false};
    std::thread closer([&] {
        while (!isOver) {
            transport.close();
            std::this_thread::sleep_for(std::chrono::microseconds(130));
        }
    });
    std::thread interrupter([&] {
        while (!isOver) {
            transport.setInterrupted(true);
            transport.setInterrupted(false);
            std::this_thread::sleep_for(std::chrono::microseconds(170));
        }
    });
    std::thread writer([&] {
        const RawMessage message = messageOf("01 02 03");
        while (!isOver) {
            transport.writeMessage(message);
        }
    });
    int opened = 0;
    for (int i = 0; i < 300; ++i) {
        opened += transport.openConnection(ScriptedHost::address(), host.port()) ? 1 : 0;
        while (host.accept(milliseconds(0)) != nullptr) {
        }
        readOnce(transport, 1);
    }
    isOver = true;
    closer.join();
    interrupter.join();
    writer.join();
    EXPECT_GT(opened, 0);
    transport.close();
    EXPECT_EQ(transport.descriptor(), -1);
}

}  // namespace
}  // namespace com_tesk::test
