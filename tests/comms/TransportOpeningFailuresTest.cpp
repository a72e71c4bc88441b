#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "tests/comms/OpenTransport.h"
#include "tests/comms/SystemCalls.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

bool isOpenDescriptor(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

/// Openings towards a host that listens, with both buffer sizes set, in which the calls that contain one of the parts
/// fail.
class TransportOpeningFailure : public testing::Test {
  protected:
    void open(std::initializer_list<const char*> failingParts, bool quiet = false) {
        CSCommsInterfaceTCP::Options options;
        options.quiet = quiet;
        options.sendBufferSize = 10'000;
        options.receiveBufferSize = 10'000;
        transport.setOptions(options);
        SystemCalls calls;
        for (const char* part : failingParts) {
            calls.fail(part, EPERM);
        }
        hasConnected = transport.openConnection(ScriptedHost::address(), host.port());
        lastLine = calls.lines().back();
        isSocketLeft = !calls.descriptors().empty() && isOpenDescriptor(calls.descriptors().front());
        closes = calls.textOf("close");
        connects = calls.textOf("connect");
    }

    /// After a failure that forbids going on.
    void expectClosedAfter(const std::string& failedLine, const std::string& text) {
        EXPECT_FALSE(hasConnected);
        EXPECT_EQ(streams.err(), text);
        EXPECT_EQ(streams.out(), "");
        EXPECT_FALSE(isSocketLeft);
        EXPECT_EQ(closes, "close #1\n") << "after " << failedLine;
        EXPECT_EQ(lastLine, "close #1");
        EXPECT_EQ(transport.descriptor(), -1);
        EXPECT_EQ(transport.close(), -1);
    }

    /// After a failure that does not.
    void expectConnectedAfter(const std::string& text) {
        EXPECT_TRUE(hasConnected);
        EXPECT_EQ(streams.err(), text);
        EXPECT_EQ(streams.out(), "");
        EXPECT_TRUE(isSocketLeft);
        EXPECT_EQ(closes, "");
        EXPECT_NE(host.accept(), nullptr);
        EXPECT_EQ(transport.close(), 0);
    }

    const CapturedStreams streams;
    ScriptedHost host;
    VisibleTransport transport;
    bool hasConnected = false;
    bool isSocketLeft = false;
    std::string lastLine;
    std::string closes;
    std::string connects;
};

TEST_F(TransportOpeningFailure, OfIgnoringTheBrokenPipeIsReportedAndNotFatal) {
    open({"sigaction"});
    expectConnectedAfter("Failed to remove signal on broken pipe.\n");
}

TEST_F(TransportOpeningFailure, OfCreatingTheSocketEndsTheOpening) {
    open({"socket "});
    EXPECT_FALSE(hasConnected);
    EXPECT_EQ(streams.err(), "Unable to create socket\n");
    EXPECT_EQ(streams.out(), "");
    EXPECT_EQ(lastLine, "socket AF_INET SOCK_STREAM|SOCK_CLOEXEC IPPROTO_TCP");
    EXPECT_EQ(transport.descriptor(), -1);
    EXPECT_EQ(transport.close(), -1);
}

TEST_F(TransportOpeningFailure, OfTheReceiveTimeOutClosesTheSocket) {
    open({"SOL_SOCKET SO_RCVTIMEO"});
    expectClosedAfter("SO_RCVTIMEO", "Unable to set socket options\n");
    EXPECT_EQ(connects, "");
}

TEST_F(TransportOpeningFailure, OfTheSendTimeOutClosesTheSocket) {
    open({"SOL_SOCKET SO_SNDTIMEO"});
    expectClosedAfter("SO_SNDTIMEO", "Unable to set socket timeout options\n");
    EXPECT_EQ(connects, "");
}

TEST_F(TransportOpeningFailure, OfSwitchingNagleOffIsReportedAndNotFatal) {
    open({"IPPROTO_TCP TCP_NODELAY"});
    expectConnectedAfter("Unable to disable Nagle algorithm\n");
}

TEST_F(TransportOpeningFailure, OfTheSendBufferSizeClosesTheSocket) {
    open({"SOL_SOCKET SO_SNDBUF"});
    expectClosedAfter("SO_SNDBUF", "Error setting send buffer size\n");
    EXPECT_EQ(connects, "");
}

TEST_F(TransportOpeningFailure, OfTheReceiveBufferSizeClosesTheSocketWithTheSameText) {
    open({"SOL_SOCKET SO_RCVBUF"});
    expectClosedAfter("SO_RCVBUF", "Error setting send buffer size\n");
    EXPECT_EQ(connects, "");
}

TEST_F(TransportOpeningFailure, OfTheConnectClosesTheSocketAndPrintsNothing) {
    open({"connect"});
    expectClosedAfter("connect", "");
    EXPECT_NE(connects, "");
}

TEST_F(TransportOpeningFailure, StopsAtTheFirstFatalOne) {
    open({"SO_RCVTIMEO", "SO_SNDTIMEO", "SO_SNDBUF", "SO_RCVBUF"});
    expectClosedAfter("SO_RCVTIMEO", "Unable to set socket options\n");
}

TEST_F(TransportOpeningFailure, ReportsEachOneThatIsNotFatal) {
    open({"sigaction", "TCP_NODELAY"});
    expectConnectedAfter("Failed to remove signal on broken pipe.\nUnable to disable Nagle algorithm\n");
}

TEST_F(TransportOpeningFailure, ReportsEachLineWithOneInsertion) {
    open({"sigaction", "TCP_NODELAY", "SO_SNDBUF"});
    EXPECT_EQ(streams.err(),
              "Failed to remove signal on broken pipe.\n"
              "Unable to disable Nagle algorithm\n"
              "Error setting send buffer size\n");
    EXPECT_EQ(streams.errInsertions(), 3);
}

TEST_F(TransportOpeningFailure, OfTheConnectWhileQuietPrintsNothing) {
    open({"connect"}, true);
    expectClosedAfter("connect", "");
}

TEST_F(TransportOpeningFailure, OfIgnoringTheBrokenPipeIsKeptQuiet) {
    open({"sigaction"}, true);
    expectConnectedAfter("");
}

TEST_F(TransportOpeningFailure, OfCreatingTheSocketIsKeptQuiet) {
    open({"socket "}, true);
    EXPECT_FALSE(hasConnected);
    EXPECT_EQ(streams.err(), "");
}

TEST_F(TransportOpeningFailure, OfTheReceiveTimeOutIsKeptQuiet) {
    open({"SO_RCVTIMEO"}, true);
    expectClosedAfter("SO_RCVTIMEO", "");
}

TEST_F(TransportOpeningFailure, OfTheSendTimeOutIsKeptQuiet) {
    open({"SO_SNDTIMEO"}, true);
    expectClosedAfter("SO_SNDTIMEO", "");
}

TEST_F(TransportOpeningFailure, OfSwitchingNagleOffIsKeptQuiet) {
    open({"TCP_NODELAY"}, true);
    expectConnectedAfter("");
}

TEST_F(TransportOpeningFailure, OfTheSendBufferSizeIsKeptQuiet) {
    open({"SO_SNDBUF"}, true);
    expectClosedAfter("SO_SNDBUF", "");
}

TEST_F(TransportOpeningFailure, OfTheReceiveBufferSizeIsKeptQuiet) {
    open({"SO_RCVBUF"}, true);
    expectClosedAfter("SO_RCVBUF", "");
}

TEST_F(TransportOpeningFailure, IsReportedAgainAtTheNextOpening) {
    open({"SO_RCVTIMEO"});
    open({"SO_RCVTIMEO"});
    EXPECT_EQ(streams.err(), "Unable to set socket options\nUnable to set socket options\n");
}

TEST_F(TransportOpeningFailure, LeavesTheNextOpeningItsChance) {
    open({"SO_RCVTIMEO"});
    open({});
    expectConnectedAfter("Unable to set socket options\n");
}

TEST_F(TransportOpeningFailure, OfCreatingTheSocketStillEndsTheOldConnection) {
    open({});
    ASSERT_TRUE(hasConnected);
    const auto peer = host.accept();
    ASSERT_NE(peer, nullptr);
    open({"socket "});
    EXPECT_FALSE(hasConnected);
    EXPECT_TRUE(peer->waitForEnd());
    EXPECT_EQ(transport.descriptor(), -1);
}

TEST_F(TransportOpeningFailure, OfConfiguringStillEndsTheOldConnection) {
    open({});
    ASSERT_TRUE(hasConnected);
    const auto peer = host.accept();
    ASSERT_NE(peer, nullptr);
    open({"SO_RCVBUF"});
    EXPECT_FALSE(hasConnected);
    EXPECT_TRUE(peer->waitForEnd());
    EXPECT_EQ(transport.descriptor(), -1);
}

}  // namespace
}  // namespace com_tesk::test
