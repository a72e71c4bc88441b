#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <string>

#include "tests/comms/BufferedPair.h"
#include "tests/comms/SystemCalls.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

using Bounds = CSCommsInterfaceTCPBuffered::Bounds;

unsigned int optionOf(const VisibleBuffered& transport, int level, int name) {
    unsigned int value = 0;
    socklen_t length = sizeof value;
    EXPECT_EQ(getsockopt(transport.descriptor(), level, name, &value, &length), 0);
    return value;
}

TEST(BufferedDeadPeer, IsAskedEveryTwoSecondsAndGivenUpInUnderTen) {
    const BufferedPair pair;
    EXPECT_EQ(optionOf(pair.transport, SOL_SOCKET, SO_KEEPALIVE), 1U);
    EXPECT_EQ(optionOf(pair.transport, IPPROTO_TCP, TCP_KEEPIDLE), 2U);
    EXPECT_EQ(optionOf(pair.transport, IPPROTO_TCP, TCP_KEEPINTVL), 2U);
    EXPECT_EQ(optionOf(pair.transport, IPPROTO_TCP, TCP_KEEPCNT), 3U);
    EXPECT_EQ(optionOf(pair.transport, IPPROTO_TCP, TCP_USER_TIMEOUT), 0U);
}

TEST(BufferedDeadPeer, IsNoticedWithinTheSecondsGiven) {
    for (unsigned int seconds = 1; seconds <= 40; ++seconds) {
        Bounds bounds;
        bounds.deadPeerSeconds = seconds;
        const BufferedPair pair(bounds);
        const unsigned int idle = optionOf(pair.transport, IPPROTO_TCP, TCP_KEEPIDLE);
        const unsigned int interval = optionOf(pair.transport, IPPROTO_TCP, TCP_KEEPINTVL);
        const unsigned int questions = optionOf(pair.transport, IPPROTO_TCP, TCP_KEEPCNT);
        EXPECT_LE(idle + questions * interval, std::max(seconds, 4U)) << seconds;
        EXPECT_GE(interval, 1U);
    }
}

TEST(BufferedDeadPeer, IsLeftToTheSystemWithZero) {
    Bounds bounds;
    bounds.deadPeerSeconds = 0;
    const BufferedPair pair(bounds);
    EXPECT_EQ(optionOf(pair.transport, SOL_SOCKET, SO_KEEPALIVE), 0U);
}

/// What a read gives on a connection of which the system says this.
int readWhen(unsigned int repetitions, unsigned int windowQuestions, unsigned int millisecondsSinceAnswer,
             const Bounds& bounds = Bounds()) {
    BufferedPair pair(bounds);
    pair.peer->send("0A");  // The middle of a frame, so that the read ends soon.
    tcp_info info{};
    info.tcpi_retransmits = static_cast<std::uint8_t>(repetitions);
    info.tcpi_probes = static_cast<std::uint8_t>(windowQuestions);
    info.tcpi_last_ack_recv = millisecondsSinceAnswer;
    SystemCalls calls;
    calls.pretendTcpInfo(info);
    RawMessage message(RawMessage::DATA);
    const int result = pair.transport.readMessage(32, message);
    EXPECT_EQ(errno, result == -1 ? ETIMEDOUT : EAGAIN);
    EXPECT_TRUE(message.empty());
    return result;
}

TEST(BufferedDeadPeer, IsOneThatHasNotAcknowledgedWhatWasSentAgain) {
    EXPECT_EQ(readWhen(2, 0, 8'000), -1);
}

TEST(BufferedDeadPeer, IsOneThatNoLongerAnswersWhetherItCanTakeMore) {
    EXPECT_EQ(readWhen(0, 2, 8'000), -1);
}

TEST(BufferedDeadPeer, IsNotOneThatHasAnsweredRecently) {
    EXPECT_EQ(readWhen(5, 5, 7'999), -2);
}

TEST(BufferedDeadPeer, IsNotOneOfWhichNothingWasAskedTwice) {
    EXPECT_EQ(readWhen(1, 1, 60'000), -2);
}

TEST(BufferedDeadPeer, IsNobodyWithZero) {
    Bounds bounds;
    bounds.deadPeerSeconds = 0;
    EXPECT_EQ(readWhen(9, 9, 60'000, bounds), -2);
}

TEST(BufferedDeadPeer, IsNotOneThatIsMerelySlowToRead) {
    Bounds bounds;
    bounds.deadPeerSeconds = 4;
    bounds.writeTimeout = std::chrono::milliseconds(7'000);
    BufferedPair pair(bounds);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(pair.transport.writeMessage(messageOfBytes(Bytes(16U << 20U))), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GE(std::chrono::steady_clock::now() - start, bounds.writeTimeout);
}

TEST(BufferedDeadPeer, EndsAWriteThatWaits) {
    BufferedPair pair;
    tcp_info info{};
    info.tcpi_retransmits = 2;
    info.tcpi_last_ack_recv = 8'000;
    {
        SystemCalls calls;
        calls.pretendTcpInfo(info);
        const StopwatchSince start;
        EXPECT_EQ(pair.transport.writeMessage(messageOfBytes(Bytes(16U << 20U))), -1);
        EXPECT_EQ(errno, ETIMEDOUT);
        EXPECT_GE(start.seconds(), 0.9);
        EXPECT_LT(start.seconds(), 5.0);
    }
    EXPECT_EQ(readOnce(pair.transport, 1).result, 0);
}

TEST(BufferedDeadPeer, IsAskedOftenOnceConnected) {
    ScriptedHost host;
    VisibleBuffered transport;
    SystemCalls calls;
    EXPECT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
    const std::string text = calls.text();
    const std::size_t limit = text.find("setsockopt #1 level 6 option 44 2250\n");
    ASSERT_NE(limit, std::string::npos) << text;
    EXPECT_GT(limit, text.find("connect #1"));
}

TEST(BufferedDeadPeer, WithoutTheOptionsIsALineOnStandardErrorAndTheConnectionWorks) {
    for (const bool quiet : {false, true}) {
        const CapturedStreams streams;
        CSCommsInterfaceTCP::Options options;
        options.quiet = quiet;
        ScriptedHost host;
        VisibleBuffered transport(Bounds(), options);
        {
            SystemCalls calls;
            calls.fail("level 1 option " + std::to_string(SO_KEEPALIVE), ENOPROTOOPT);
            EXPECT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
        }
        const auto peer = host.accept();
        ASSERT_NE(peer, nullptr);
        peer->send("0A");
        EXPECT_EQ(readOnce(transport, 1).bytes, "0A");
        EXPECT_EQ(streams.err(), quiet ? "" : "Unable to set dead peer timeout options\n");
    }
}

}  // namespace
}  // namespace com_tesk::test
