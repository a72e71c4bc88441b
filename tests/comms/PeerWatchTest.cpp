#include "comms/PeerWatch.h"

#include <netinet/in.h>
#include <netinet/tcp.h>

#include <algorithm>
#include <limits>

#include "tests/comms/SystemCalls.h"
#include "tests/comms/Transports.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

using Numbers = std::vector<unsigned int>;

constexpr unsigned int kMax = std::numeric_limits<unsigned int>::max();
/// TCP_RTO_MAX_MS, as `SystemCalls` records it.
const std::string kIntervalLimit = "level 6 option 44";

Bounds deadPeerAfter(unsigned int seconds) {
    Bounds bounds;
    bounds.deadPeerSeconds = seconds;
    return bounds;
}

unsigned int optionOf(int descriptor, int level, int name) {
    unsigned int value = 0;
    socklen_t length = sizeof value;
    EXPECT_EQ(getsockopt(descriptor, level, name, &value, &length), 0);
    return value;
}

/// Returns the keep-alive options of a socket: on or off, first probe, interval, number of probes.
Numbers keepAliveOf(int descriptor) {
    return {optionOf(descriptor, SOL_SOCKET, SO_KEEPALIVE), optionOf(descriptor, IPPROTO_TCP, TCP_KEEPIDLE),
            optionOf(descriptor, IPPROTO_TCP, TCP_KEEPINTVL), optionOf(descriptor, IPPROTO_TCP, TCP_KEEPCNT)};
}

/// A TCP socket that is not connected.
class PeerWatchTest : public testing::Test {
  protected:
    ~PeerWatchTest() override { ::close(tcp); }

    Numbers keepAliveFor(unsigned int seconds) const {
        EXPECT_TRUE(PeerWatch(seconds).enableKeepAlive(tcp));
        return keepAliveOf(tcp);
    }

    /// Returns the limit in milliseconds that the system is asked for.
    std::string limitFor(unsigned int seconds) const {
        SystemCalls calls;
        calls.answer(kIntervalLimit, 0, 0);
        EXPECT_TRUE(PeerWatch(seconds).limitProbeInterval(tcp));
        const std::string before = "setsockopt #? " + kIntervalLimit + " ";
        const std::string line = calls.textOf("setsockopt");
        EXPECT_EQ(line.compare(0, before.size(), before), 0) << line;
        return line.substr(std::min(before.size(), line.size()));
    }

    const int tcp = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

TEST_F(PeerWatchTest, ProbesThreeTimesWithinTheSecondsGiven) {
    EXPECT_EQ(keepAliveFor(9), (Numbers{1, 2, 2, 3}));
    for (unsigned int seconds = 1; seconds <= 40; ++seconds) {
        const auto options = keepAliveFor(seconds);
        EXPECT_GE(options[2], 1U) << seconds;
        EXPECT_LE(options[1] + options[3] * options[2], std::max(seconds, 4U)) << seconds;
    }
    for (const unsigned int seconds : {4 * 32'767U, 4 * 32'767U + 4, kMax}) {
        EXPECT_EQ(keepAliveFor(seconds), (Numbers{1, 32'767, 32'767, 3})) << seconds;
    }
}

TEST_F(PeerWatchTest, FailsWhenTheSystemRefusesAnyOption) {
    const std::pair<int, int> options[] = {{SOL_SOCKET, SO_KEEPALIVE},
                                           {IPPROTO_TCP, TCP_KEEPIDLE},
                                           {IPPROTO_TCP, TCP_KEEPINTVL},
                                           {IPPROTO_TCP, TCP_KEEPCNT}};
    for (const auto& [level, option] : options) {
        SystemCalls calls;
        calls.fail("level " + std::to_string(level) + " option " + std::to_string(option) + " ", ENOPROTOOPT);
        EXPECT_FALSE(PeerWatch(9).enableKeepAlive(tcp)) << option;
    }
    SystemCalls calls;
    calls.fail(kIntervalLimit, ENOPROTOOPT);
    EXPECT_FALSE(PeerWatch(9).limitProbeInterval(tcp)) << "older systems do not know it";
}

TEST_F(PeerWatchTest, LimitsTheProbeIntervalToAQuarterOfTheTime) {
    // The system accepts one second to two minutes.
    const std::pair<unsigned int, const char*> rows[] = {
        {9, "2250\n"}, {5, "1250\n"},     {479, "119750\n"}, {1, "1000\n"},
        {4, "1000\n"}, {480, "120000\n"}, {481, "120000\n"}, {kMax, "120000\n"},
    };
    for (const auto& [seconds, limit] : rows) {
        EXPECT_EQ(limitFor(seconds), limit) << seconds;
    }
}

TEST_F(PeerWatchTest, LeavesTheSocketAloneWithZeroSeconds) {
    const SystemCalls calls;
    EXPECT_TRUE(PeerWatch(0).enableKeepAlive(tcp));
    EXPECT_FALSE(PeerWatch(0).limitProbeInterval(tcp));
    EXPECT_EQ(calls.textOf("setsockopt"), "");
}

TEST_F(PeerWatchTest, LimitsTheProbeIntervalWhereTheSystemKnowsTheOption) {
    // Eight: two seconds are a whole number of any system's ticks, to which it rounds.
    if (!PeerWatch(8).limitProbeInterval(tcp)) {
        GTEST_SKIP() << "This system does not know the option; Linux does since 6.15.";
    }
    EXPECT_EQ(optionOf(tcp, IPPROTO_TCP, 44), 2'000U);
}

/// The system's report about a connection, and the result that follows from it.
struct Report {
    unsigned int retransmits;
    unsigned int probes;
    unsigned int millisecondsSinceAcknowledgement;
    unsigned int deadPeerSeconds;
    bool isGone;
};

constexpr Report kReports[] = {
    // It ignores repeated data, or window probes.
    {2, 0, 8'000, 9, true},
    {0, 2, 8'000, 9, true},
    {255, 0, kMax, 9, true},
    {0, 255, kMax, 9, true},
    // It has answered recently, or was asked only once.
    {5, 5, 7'999, 9, false},
    {1, 1, 60'000, 9, false},
    {255, 255, 0, 9, false},
    {0, 0, kMax, 9, false},
    // The time follows the seconds given. Zero leaves it to the system.
    {2, 0, 0, 1, true},
    {2, 0, 2'999, 4, false},
    {2, 0, 3'000, 4, true},
    {2, 0, kMax, kMax, false},
    {9, 9, kMax, 0, false},
};

tcp_info infoOf(const Report& report) {
    tcp_info info{};
    info.tcpi_retransmits = static_cast<std::uint8_t>(report.retransmits);
    info.tcpi_probes = static_cast<std::uint8_t>(report.probes);
    info.tcpi_last_ack_recv = report.millisecondsSinceAcknowledgement;
    return info;
}

TEST_F(PeerWatchTest, PeerIsGoneWhenItHasNotAnsweredTwice) {
    for (const Report& report : kReports) {
        SystemCalls calls;
        calls.pretendTcpInfo(infoOf(report));
        EXPECT_EQ(PeerWatch(report.deadPeerSeconds).isGone(-1), report.isGone) << &report - kReports;
    }
    EXPECT_FALSE(PeerWatch(9).isGone(-1)) << "the system cannot tell";
}

TEST(BufferedDeadPeer, EndsAReadInTheMiddleOfAFrame) {
    for (const Report& report : {kReports[0], kReports[1], kReports[4], kReports[5], kReports[12]}) {
        BufferedPair pair(deadPeerAfter(report.deadPeerSeconds));
        pair.peer->send("0A");
        SystemCalls calls;
        calls.pretendTcpInfo(infoOf(report));
        const CallResult read = readOnce(pair.transport, 32);
        EXPECT_EQ(read.outcome(), Outcome(report.isGone ? -1 : -2, report.isGone ? ETIMEDOUT : EAGAIN));
        EXPECT_EQ(read.bytes, "");
    }
}

TEST(BufferedDeadPeer, EndsAWriteThatWaits) {
    BufferedPair pair;
    {
        SystemCalls calls;
        calls.pretendTcpInfo(infoOf(kReports[0]));
        const CallResult write = writeOnce(pair.transport, messageOfBytes(Bytes(16U << 20U)));
        EXPECT_EQ(write.outcome(), Outcome(-1, ETIMEDOUT));
        EXPECT_GE(write.seconds, 0.9);
        EXPECT_LT(write.seconds, 5.0);
    }
    EXPECT_EQ(readOnce(pair.transport, 1).result, 0);
}

TEST(BufferedDeadPeer, IsNotOneThatIsMerelySlowToRead) {
    Bounds bounds = deadPeerAfter(4);
    bounds.writeTimeout = milliseconds(7'000);
    BufferedPair pair(bounds);
    const CallResult write = writeOnce(pair.transport, messageOfBytes(Bytes(16U << 20U)));
    EXPECT_EQ(write.outcome(), Outcome(-1, EAGAIN));
    EXPECT_GE(write.seconds, 7.0);
}

TEST(BufferedDeadPeer, IsProbedAsTheBoundsSay) {
    EXPECT_EQ(keepAliveOf(BufferedPair().transport.descriptor()), (Numbers{1, 2, 2, 3}));
    EXPECT_EQ(optionOf(BufferedPair().transport.descriptor(), IPPROTO_TCP, TCP_USER_TIMEOUT), 0U);
    EXPECT_EQ(keepAliveOf(BufferedPair(deadPeerAfter(40)).transport.descriptor()), (Numbers{1, 10, 10, 3}));
    EXPECT_EQ(keepAliveOf(BufferedPair(deadPeerAfter(0)).transport.descriptor())[0], 0U);
}

TEST(BufferedDeadPeer, HasItsProbeIntervalLimitedOnceConnected) {
    ScriptedHost host;
    VisibleBuffered transport;
    SystemCalls calls;
    EXPECT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
    const std::string text = calls.text();
    const std::size_t limit = text.find("setsockopt #1 " + kIntervalLimit + " 2250\n");
    ASSERT_NE(limit, std::string::npos) << text;
    EXPECT_GT(limit, text.find("connect #1"));
}

TEST(BufferedDeadPeer, WithoutTheOptionsIsALineOnStandardErrorAndTheConnectionWorks) {
    for (const bool quiet : {false, true}) {
        const CapturedStreams streams;
        Options options;
        options.quiet = quiet;
        SystemCalls calls;
        calls.fail("level 1 option " + std::to_string(SO_KEEPALIVE), ENOPROTOOPT);
        BufferedPair pair(Bounds(), options);
        pair.peer->send("0A");
        EXPECT_EQ(readOnce(pair.transport, 1).bytes, "0A");
        EXPECT_EQ(streams.err(), quiet ? "" : "Unable to set dead peer timeout options\n");
    }
}

}  // namespace
}  // namespace com_tesk::test
