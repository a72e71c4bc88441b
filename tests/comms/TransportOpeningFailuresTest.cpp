#include <arpa/inet.h>
#include <unistd.h>

#include <optional>

#include "tests/comms/SystemCalls.h"
#include "tests/comms/Transports.h"
#include "tests/support/BlackHole.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

/// A call of an opening that may fail, and the line that is then printed.
struct Failure {
    const char* call;
    const char* line;
    bool isFatal;
};

constexpr Failure kFailures[] = {
    {"sigaction", "Failed to remove signal on broken pipe.\n", false},
    {"socket ", "Unable to create socket\n", true},
    {"SOL_SOCKET SO_RCVTIMEO", "Unable to set socket options\n", true},
    {"SOL_SOCKET SO_SNDTIMEO", "Unable to set socket timeout options\n", true},
    {"IPPROTO_TCP TCP_NODELAY", "Unable to disable Nagle algorithm\n", false},
    {"SOL_SOCKET SO_SNDBUF", "Error setting send buffer size\n", true},
    // The same text: programs compare it.
    {"SOL_SOCKET SO_RCVBUF", "Error setting send buffer size\n", true},
    {"connect", "", true},
};

class TransportOpeningFailure : public BothTransports {
  protected:
    /// Opens, while calls that contain one of the parts fail.
    bool openWithFailures(const std::vector<std::string>& failingParts, bool quiet = false) {
        Options options = bufferSizes(10'000, 10'000);
        options.quiet = quiet;
        transport->setOptions(options);
        SystemCalls calls;
        for (const std::string& part : failingParts) {
            calls.fail(part, EPERM);
        }
        const bool isOpened = open();
        closes = calls.textOf("close");
        connects = calls.textOf("connect");
        lastLine = calls.lines().back();
        return isOpened;
    }

    std::string closes;
    std::string connects;
    std::string lastLine;
};

INSTANTIATE_TEST_SUITE_P(Of, TransportOpeningFailure, testing::Bool(), nameOfTransport);

TEST_P(TransportOpeningFailure, OfEachCallIsReportedUnlessQuietAndEndsTheOldConnection) {
    for (const Failure& failure : kFailures) {
        if (isBuffered() && failure.call == std::string("sigaction")) {
            continue;  // The buffered transport leaves the signal alone.
        }
        for (const bool quiet : {false, true}) {
            SCOPED_TRACE(std::string(failure.call) + (quiet ? " quiet" : ""));
            connect();
            const auto old = std::move(peer);
            const CapturedStreams streams;
            EXPECT_EQ(openWithFailures({failure.call}, quiet), !failure.isFatal);
            EXPECT_TRUE(old->waitForEnd());
            EXPECT_EQ(streams.err(), quiet ? "" : failure.line);
            EXPECT_EQ(streams.out(), "");
            if (!failure.isFatal) {
                EXPECT_EQ(closes, "close #?\n");
                EXPECT_NE(host.accept(), nullptr);
                EXPECT_EQ(transport->close(), 0);
                continue;
            }
            const bool hasSocket = failure.call != std::string("socket ");
            EXPECT_EQ(closes, hasSocket ? "close #?\nclose #1\n" : "close #?\n");
            EXPECT_EQ(lastLine.substr(0, 8), hasSocket ? "close #1" : "socket A");
            EXPECT_EQ(connects.empty(), failure.call != std::string("connect"));
            EXPECT_EQ(descriptor(), -1);
            EXPECT_EQ(transport->close(), -1);
        }
    }
}

TEST_P(TransportOpeningFailure, StopsAtTheFirstFatalOneAndReportsEachLineWithOneInsertion) {
    const CapturedStreams streams;
    std::string expected = isBuffered() ? "" : "Failed to remove signal on broken pipe.\n";
    expected += "Unable to disable Nagle algorithm\nError setting send buffer size\n";
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(openWithFailures({"sigaction", "TCP_NODELAY", "SO_SNDBUF", "SO_RCVBUF"}));
    }
    EXPECT_EQ(streams.err(), expected + expected);
    EXPECT_EQ(streams.errInsertions(), isBuffered() ? 4 : 6);
    EXPECT_FALSE(openWithFailures({"SO_RCVTIMEO", "SO_SNDTIMEO", "SO_SNDBUF", "SO_RCVBUF"}));
    EXPECT_EQ(streams.err(), expected + expected + "Unable to set socket options\n");
    EXPECT_TRUE(openWithFailures({}));
    EXPECT_NE(host.accept(), nullptr);
}

bool bindTo(int descriptor, const char* address, unsigned int port) {
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_port = htons(static_cast<std::uint16_t>(port));
    own.sin_addr.s_addr = inet_addr(address);
    return bind(descriptor, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0;
}

/// True when a host can use the port now, without any option that would make the system lenient.
bool canListenOn(unsigned int port) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool can = bindTo(descriptor, "127.0.0.1", port) && listen(descriptor, 1) == 0;
    ::close(descriptor);
    return can;
}

/// A connection whose two ends are the same socket.
class SelfConnection : public BothTransports {
  protected:
    /// Opens from an own address and port that the system might have chosen.
    bool openFrom(const char* ownAddress, unsigned int ownPort, unsigned int hostPort) {
        SystemCalls calls;
        calls.before("connect #1 AF_INET", [&] { isBound = bindTo(calls.descriptors().front(), ownAddress, ownPort); });
        const bool isOpened = transport->openConnection(ScriptedHost::address(), hostPort);
        closes = calls.textOf("close");
        return isOpened;
    }

    static constexpr int kAttempts = 20;
    bool isBound = false;
    std::string closes;
};

INSTANTIATE_TEST_SUITE_P(Of, SelfConnection, testing::Bool(), nameOfTransport);

TEST_P(SelfConnection, IsAFailedAttempt) {
    const CapturedStreams streams;
    unsigned int freePort = 0;
    // Another program may take the port meanwhile.
    for (int attempt = 0; attempt < kAttempts && !isBound; ++attempt) {
        freePort = refusingPort();
        EXPECT_FALSE(openFrom("127.0.0.1", freePort, freePort));
    }
    ASSERT_TRUE(isBound) << "the test could not fail";
    EXPECT_TRUE(canListenOn(freePort)) << "at once";
    EXPECT_EQ(descriptor(), -1);
    EXPECT_EQ(closes, "close #1\n");
    EXPECT_EQ(transport->close(), -1);
    EXPECT_EQ(streams.out() + streams.err(), "");
    connect();
    peer->send("0A");
    EXPECT_EQ(readOnce(*transport, 1).bytes, "0A");
}

TEST_P(SelfConnection, IsNoneFromTheSamePortOfAnotherAddress) {
    for (int own = 2; own < 2 + kAttempts && !isBound; ++own) {
        const std::string address = "127.0.0." + std::to_string(own);
        EXPECT_TRUE(openFrom(address.c_str(), host.port(), host.port()));
    }
    ASSERT_TRUE(isBound) << "the test could not fail";
    EXPECT_NE(host.accept(), nullptr);
}

// A connect that hangs. Only the buffered transport bounds and interrupts it.

/// Far below the five seconds after which a connect fails by default.
constexpr double kAtOnce = 2.0;

Bounds connectWithin(milliseconds timeout, unsigned int deadPeerSeconds = 9) {
    Bounds bounds;
    bounds.connectTimeout = timeout;
    bounds.deadPeerSeconds = deadPeerSeconds;
    return bounds;
}

struct ConnectBound {
    const char* name;
    Bounds bounds;
    double min;
    double max;
    bool hasSignals;
};

class BufferedConnectBound : public testing::TestWithParam<ConnectBound> {};

INSTANTIATE_TEST_SUITE_P(
    Of, BufferedConnectBound,
    testing::Values(ConnectBound{"Default", Bounds(), 4.99, 7.0, false},
                    ConnectBound{"ThirdOfASecond", connectWithin(milliseconds(300)), 0.29, kAtOnce, false},
                    ConnectBound{"ThirdOfASecondUnderSignals", connectWithin(milliseconds(300)), 0.29, kAtOnce, true},
                    ConnectBound{"MoreThanADeadPeer", connectWithin(milliseconds(4'500), 3), 4.49, 7.0, false}),
    nameOfRow<ConnectBound>);

TEST_P(BufferedConnectBound, EndsAConnectWithoutAnAnswerAlsoUnderSignals) {
    const BlackHole hole;
    const CapturedStreams streams;
    VisibleBuffered transport(GetParam().bounds);
    {
        std::optional<RepeatedSignal> signals;
        if (GetParam().hasSignals) {
            signals.emplace(pthread_self(), milliseconds(5));
        }
        const Stopwatch elapsed;
        EXPECT_FALSE(transport.openConnection(BlackHole::host(), hole.port()));
        EXPECT_GE(elapsed.seconds(), GetParam().min);
        EXPECT_LT(elapsed.seconds(), GetParam().max);
    }
    EXPECT_EQ(transport.descriptor(), -1);
    EXPECT_EQ(streams.err(), "");
    ScriptedHost host;
    EXPECT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
}

/// A connect that hangs on another thread.
class BufferedHangingConnect : public testing::Test {
  protected:
    BufferedHangingConnect() {
        EXPECT_TRUE(waitUntil([this] { return transport.descriptor() != -1; }));
        EXPECT_TRUE(opening.waitUntilItBlocks());
    }

    void expectFailureAtOnce() {
        EXPECT_EQ(opening.get().result, 0);
        EXPECT_LT(elapsed.seconds(), kAtOnce);
        EXPECT_EQ(transport.descriptor(), -1);
    }

    BlackHole hole;
    VisibleBuffered transport;
    const Stopwatch elapsed;
    BackgroundCall opening{[this] {
        const bool isOpened = transport.openConnection(BlackHole::host(), hole.port());
        return CallResult{isOpened ? 1 : 0, 0, "", 0.0};
    }};
};

TEST_F(BufferedHangingConnect, AllowsNoReadAndNoWriteAndFailsAtOnceWhenAnotherThreadCloses) {
    EXPECT_EQ(writeOnce(transport, messageOf("01")).error, EBADF);
    EXPECT_EQ(readOnce(transport, 1).error, EBADF);
    EXPECT_EQ(transport.close(), 0);
    expectFailureAtOnce();
}

TEST_F(BufferedHangingConnect, FailsAtOnceWhenInterrupted) {
    transport.setInterrupted(true);
    expectFailureAtOnce();
}

TEST(BufferedConnect, FailsWhileInterruptedWithoutContactToTheHost) {
    ScriptedHost host;
    VisibleBuffered transport;
    transport.setInterrupted(true);
    EXPECT_FALSE(transport.openConnection(ScriptedHost::address(), host.port()));
    EXPECT_EQ(host.accept(milliseconds(50)), nullptr);
    transport.setInterrupted(false);
    EXPECT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
}

}  // namespace
}  // namespace com_tesk::test
