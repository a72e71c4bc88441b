#include "comms/PeerWatch.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>

#include "tests/comms/SystemCalls.h"

namespace com_tesk::test {
namespace {

constexpr unsigned int kMost = std::numeric_limits<unsigned int>::max();
/// TCP_RTO_MAX_MS, as `SystemCalls` writes it down.
const std::string kIntervalLimit = "level 6 option 44";

/// A TCP socket that is not connected, for as long as a test.
class TcpSocket {
  public:
    TcpSocket() : handle(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) { EXPECT_GE(handle, 0); }
    TcpSocket(const TcpSocket&) = delete;
    TcpSocket& operator=(const TcpSocket&) = delete;
    ~TcpSocket() { ::close(handle); }

    int descriptor() const { return handle; }

    unsigned int option(int level, int name) const {
        unsigned int value = 0;
        socklen_t length = sizeof value;
        EXPECT_EQ(getsockopt(handle, level, name, &value, &length), 0);
        return value;
    }

  private:
    const int handle;
};

// Keep-alive.

TEST(PeerWatchKeepAlive, ProbesEveryTwoSecondsThreeTimesForNine) {
    const TcpSocket tcp;
    EXPECT_TRUE(PeerWatch(9).enableKeepAlive(tcp.descriptor()));
    EXPECT_EQ(tcp.option(SOL_SOCKET, SO_KEEPALIVE), 1U);
    EXPECT_EQ(tcp.option(IPPROTO_TCP, TCP_KEEPIDLE), 2U);
    EXPECT_EQ(tcp.option(IPPROTO_TCP, TCP_KEEPINTVL), 2U);
    EXPECT_EQ(tcp.option(IPPROTO_TCP, TCP_KEEPCNT), 3U);
}

TEST(PeerWatchKeepAlive, EndsWithinTheSecondsGiven) {
    for (unsigned int seconds = 1; seconds <= 40; ++seconds) {
        const TcpSocket tcp;
        EXPECT_TRUE(PeerWatch(seconds).enableKeepAlive(tcp.descriptor()));
        EXPECT_LE(tcp.option(IPPROTO_TCP, TCP_KEEPIDLE) + 3 * tcp.option(IPPROTO_TCP, TCP_KEEPINTVL),
                  std::max(seconds, 4U))
            << seconds;
    }
}

TEST(PeerWatchKeepAlive, StopsAtTheLongestTimeTheSystemTakes) {
    for (const unsigned int seconds : {4 * 32'767U, 4 * 32'767U + 4, kMost}) {
        const TcpSocket tcp;
        EXPECT_TRUE(PeerWatch(seconds).enableKeepAlive(tcp.descriptor())) << seconds;
        EXPECT_EQ(tcp.option(IPPROTO_TCP, TCP_KEEPIDLE), 32'767U);
        EXPECT_EQ(tcp.option(IPPROTO_TCP, TCP_KEEPINTVL), 32'767U);
    }
}

TEST(PeerWatchKeepAlive, IsOffWithZeroSeconds) {
    SystemCalls calls;
    const TcpSocket tcp;
    EXPECT_TRUE(PeerWatch(0).enableKeepAlive(tcp.descriptor()));
    EXPECT_EQ(calls.textOf("setsockopt"), "");
}

TEST(PeerWatchKeepAlive, FailsWhenTheSystemRefusesAnyOption) {
    for (const auto& [level, option] :
         {std::pair<int, int>(SOL_SOCKET, SO_KEEPALIVE), std::pair<int, int>(IPPROTO_TCP, TCP_KEEPIDLE),
          std::pair<int, int>(IPPROTO_TCP, TCP_KEEPINTVL), std::pair<int, int>(IPPROTO_TCP, TCP_KEEPCNT)}) {
        const TcpSocket tcp;
        SystemCalls calls;
        calls.fail("level " + std::to_string(level) + " option " + std::to_string(option) + " ", ENOPROTOOPT);
        EXPECT_FALSE(PeerWatch(9).enableKeepAlive(tcp.descriptor())) << option;
    }
}

// The interval of probes.

/// The limit in milliseconds that the system is asked for.
std::string limitFor(unsigned int seconds) {
    SystemCalls calls;
    calls.answer(kIntervalLimit, 0, 0);
    const TcpSocket tcp;
    EXPECT_TRUE(PeerWatch(seconds).limitProbeInterval(tcp.descriptor()));
    const std::string before = "setsockopt #1 " + kIntervalLimit + " ";
    const std::string line = calls.textOf("setsockopt");
    EXPECT_EQ(line.compare(0, before.size(), before), 0) << line;
    return line.substr(std::min(before.size(), line.size()));
}

TEST(PeerWatchProbeInterval, IsAQuarterOfTheTime) {
    EXPECT_EQ(limitFor(9), "2250\n");
    EXPECT_EQ(limitFor(5), "1250\n");
    EXPECT_EQ(limitFor(479), "119750\n");
}

TEST(PeerWatchProbeInterval, StaysWithinWhatTheSystemTakes) {
    EXPECT_EQ(limitFor(1), "1000\n");
    EXPECT_EQ(limitFor(4), "1000\n");
    EXPECT_EQ(limitFor(480), "120000\n");
    EXPECT_EQ(limitFor(481), "120000\n");
    EXPECT_EQ(limitFor(kMost), "120000\n");
}

TEST(PeerWatchProbeInterval, IsLeftAloneWithZeroSeconds) {
    SystemCalls calls;
    const TcpSocket tcp;
    EXPECT_FALSE(PeerWatch(0).limitProbeInterval(tcp.descriptor()));
    EXPECT_EQ(calls.textOf("setsockopt"), "");
}

TEST(PeerWatchProbeInterval, CannotBeLimitedByOlderSystems) {
    SystemCalls calls;
    calls.fail(kIntervalLimit, ENOPROTOOPT);
    const TcpSocket tcp;
    EXPECT_FALSE(PeerWatch(9).limitProbeInterval(tcp.descriptor()));
}

TEST(PeerWatchProbeInterval, IsInForceWhereTheSystemKnowsIt) {
    const TcpSocket tcp;
    // Eight: two seconds are a whole number of any system's ticks, to which it rounds.
    if (!PeerWatch(8).limitProbeInterval(tcp.descriptor())) {
        GTEST_SKIP() << "This system does not know the option; Linux does since 6.15.";
    }
    EXPECT_EQ(tcp.option(IPPROTO_TCP, 44), 2'000U);
}

// Whether the peer is gone.

/// What the system says of a connection.
struct Report {
    unsigned int retransmits;
    unsigned int probes;
    unsigned int millisecondsSinceAcknowledgement;
};

bool isGoneWhen(const Report& report, unsigned int deadPeerSeconds = 9) {
    tcp_info info{};
    info.tcpi_retransmits = static_cast<std::uint8_t>(report.retransmits);
    info.tcpi_probes = static_cast<std::uint8_t>(report.probes);
    info.tcpi_last_ack_recv = report.millisecondsSinceAcknowledgement;
    SystemCalls calls;
    calls.pretendTcpInfo(info);
    return PeerWatch(deadPeerSeconds).isGone(-1);
}

TEST(PeerWatch, PeerIsGoneWhenItIgnoresRepeatedData) {
    EXPECT_TRUE(isGoneWhen({2, 0, 8'000}));
    EXPECT_TRUE(isGoneWhen({255, 0, kMost}));
}

TEST(PeerWatch, PeerIsGoneWhenItIgnoresWindowProbes) {
    EXPECT_TRUE(isGoneWhen({0, 2, 8'000}));
    EXPECT_TRUE(isGoneWhen({0, 255, kMost}));
}

TEST(PeerWatch, PeerIsAliveWhenItHasAnsweredRecently) {
    EXPECT_FALSE(isGoneWhen({5, 5, 7'999}));
    EXPECT_FALSE(isGoneWhen({255, 255, 0}));
}

TEST(PeerWatch, PeerIsAliveWhenAskedOnlyOnce) {
    EXPECT_FALSE(isGoneWhen({1, 1, 60'000}));
    EXPECT_FALSE(isGoneWhen({0, 0, kMost}));
}

TEST(PeerWatch, TimeFollowsTheSecondsGiven) {
    EXPECT_TRUE(isGoneWhen({2, 0, 0}, 1));
    EXPECT_FALSE(isGoneWhen({2, 0, 2'999}, 4));
    EXPECT_TRUE(isGoneWhen({2, 0, 3'000}, 4));
    EXPECT_FALSE(isGoneWhen({2, 0, kMost}, kMost));
}

TEST(PeerWatch, PeerIsNeverGoneWithZeroSeconds) {
    EXPECT_FALSE(isGoneWhen({9, 9, kMost}, 0));
}

TEST(PeerWatch, PeerIsNotGoneWhenTheSystemCannotTell) {
    EXPECT_FALSE(PeerWatch(9).isGone(-1));
}

}  // namespace
}  // namespace com_tesk::test
