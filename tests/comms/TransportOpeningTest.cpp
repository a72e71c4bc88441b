#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <csignal>
#include <memory>
#include <type_traits>

#include "tests/comms/OpenTransport.h"
#include "tests/comms/SystemCalls.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

static_assert(std::is_base_of<CSCommsInterface, CSCommsInterfaceTCP>::value, "it is a transport");
static_assert(std::is_abstract<CSCommsInterface>::value, "the interface has no transport of its own");
static_assert(std::has_virtual_destructor<CSCommsInterface>::value, "may be deleted through the interface");
static_assert(std::is_same<decltype(CSCommsInterfaceTCP::Options::receiveBufferSize), std::uint32_t>::value &&
                  std::is_same<decltype(CSCommsInterfaceTCP::Options::sendBufferSize), std::uint32_t>::value,
              "buffer sizes have 32 bits");

CSCommsInterfaceTCP::Options optionsOf(std::uint32_t receiveBufferSize, std::uint32_t sendBufferSize) {
    CSCommsInterfaceTCP::Options options;
    options.receiveBufferSize = receiveBufferSize;
    options.sendBufferSize = sendBufferSize;
    return options;
}

/// The calls of an opening without buffer sizes, up to the connect.
std::string preparation(const std::string& socketName) {
    return "sigaction SIGPIPE SIG_IGN mask=empty flags=0 old=none\n"
           "socket AF_INET SOCK_STREAM|SOCK_CLOEXEC IPPROTO_TCP\n"
           "setsockopt " +
           socketName +
           " SOL_SOCKET SO_RCVTIMEO 1 s 0 us\n"
           "setsockopt " +
           socketName +
           " SOL_SOCKET SO_SNDTIMEO 30 s 0 us\n"
           "setsockopt " +
           socketName + " IPPROTO_TCP TCP_NODELAY 1\n";
}

/// The line of the connect of an opening towards this port, which does not take place.
std::string connectLine(unsigned int port, unsigned int address = ScriptedHost::address()) {
    VisibleTransport transport;
    SystemCalls calls;
    calls.fail("connect", ECONNREFUSED);
    EXPECT_FALSE(transport.openConnection(address, port));
    return calls.textOf("connect");
}

TEST(TransportOpening, HasNoSocketBefore) {
    EXPECT_EQ(VisibleTransport().descriptor(), -1);
}

TEST(TransportOpening, ConnectsToTheHost) {
    ScriptedHost host;
    VisibleTransport transport;
    EXPECT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
    EXPECT_NE(host.accept(), nullptr);
    EXPECT_GE(transport.descriptor(), 0);
}

TEST(TransportOpening, MakesItsCallsInOrder) {
    ScriptedHost host;
    VisibleTransport transport;
    SystemCalls calls;
    EXPECT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
    EXPECT_EQ(calls.text(),
              preparation("#1") + "connect #1 AF_INET 127.0.0.1:" + std::to_string(host.port()) + " padding=zero\n");
}

TEST(TransportOpening, MakesNoBufferSizeCallWhenBothSizesAreZero) {
    ScriptedHost host;
    VisibleTransport transport(optionsOf(0, 0));
    SystemCalls calls;
    EXPECT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
    EXPECT_EQ(calls.textOf("SO_SNDBUF") + calls.textOf("SO_RCVBUF"), "");
}

TEST(TransportOpening, SetsTheSendBufferBeforeTheReceiveBufferAndBothBeforeConnecting) {
    ScriptedHost host;
    VisibleTransport transport(optionsOf(20'000, 10'000));
    SystemCalls calls;
    EXPECT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
    EXPECT_EQ(calls.text(), preparation("#1") +
                                "setsockopt #1 SOL_SOCKET SO_SNDBUF 10000\n"
                                "setsockopt #1 SOL_SOCKET SO_RCVBUF 20000\n"
                                "connect #1 AF_INET 127.0.0.1:" +
                                std::to_string(host.port()) + " padding=zero\n");
}

TEST(TransportOpening, SetsTheSendBufferAlone) {
    ScriptedHost host;
    VisibleTransport transport(optionsOf(0, 1));
    SystemCalls calls;
    EXPECT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
    EXPECT_EQ(calls.textOf("BUF"), "setsockopt #1 SOL_SOCKET SO_SNDBUF 1\n");
}

TEST(TransportOpening, SetsTheReceiveBufferAlone) {
    ScriptedHost host;
    VisibleTransport transport(optionsOf(1, 0));
    SystemCalls calls;
    EXPECT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
    EXPECT_EQ(calls.textOf("BUF"), "setsockopt #1 SOL_SOCKET SO_RCVBUF 1\n");
}

TEST(TransportOpening, HandsTheLargestBufferSizesOverAsTheyAre) {
    VisibleTransport transport(optionsOf(0xFFFFFFFFU, 0xFFFFFFFEU));
    SystemCalls calls;
    calls.answer("BUF", 0, 0);
    calls.fail("connect", ECONNREFUSED);
    EXPECT_FALSE(transport.openConnection(ScriptedHost::address(), 1));
    EXPECT_EQ(calls.textOf("BUF"),
              "setsockopt #1 SOL_SOCKET SO_SNDBUF 4294967294\n"
              "setsockopt #1 SOL_SOCKET SO_RCVBUF 4294967295\n");
}

TEST(TransportOpening, LeavesTheOptionsOnTheSocket) {
    OpenTransport open;
    timeval receiveTimeout{};
    timeval sendTimeout{};
    int noDelay = 0;
    socklen_t length = sizeof receiveTimeout;
    ASSERT_EQ(getsockopt(open.transport.descriptor(), SOL_SOCKET, SO_RCVTIMEO, &receiveTimeout, &length), 0);
    length = sizeof sendTimeout;
    ASSERT_EQ(getsockopt(open.transport.descriptor(), SOL_SOCKET, SO_SNDTIMEO, &sendTimeout, &length), 0);
    length = sizeof noDelay;
    ASSERT_EQ(getsockopt(open.transport.descriptor(), IPPROTO_TCP, TCP_NODELAY, &noDelay, &length), 0);
    EXPECT_EQ(receiveTimeout.tv_sec, 1);
    EXPECT_EQ(receiveTimeout.tv_usec, 0);
    EXPECT_EQ(sendTimeout.tv_sec, 30);
    EXPECT_EQ(sendTimeout.tv_usec, 0);
    EXPECT_EQ(noDelay, 1);
}

TEST(TransportOpening, KeepsTheSocketFromProgramsThatTheApplicationStarts) {
    OpenTransport open;
    EXPECT_EQ(fcntl(open.transport.descriptor(), F_GETFD), FD_CLOEXEC);
}

TEST(TransportOpening, NewOptionsTakeEffectAtTheNextOpening) {
    ScriptedHost host;
    VisibleTransport transport(optionsOf(0, 10'000));
    SystemCalls calls;
    ASSERT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
    transport.setOptions(optionsOf(30'000, 0));
    EXPECT_EQ(calls.textOf("BUF"), "setsockopt #1 SOL_SOCKET SO_SNDBUF 10000\n");
    ASSERT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
    EXPECT_EQ(calls.textOf("BUF"),
              "setsockopt #1 SOL_SOCKET SO_SNDBUF 10000\n"
              "setsockopt #2 SOL_SOCKET SO_RCVBUF 30000\n");
}

TEST(TransportOpening, ClosesTheOldSocketFirst) {
    ScriptedHost host;
    VisibleTransport transport;
    SystemCalls calls;
    ASSERT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
    const std::size_t before = calls.text().size();
    ASSERT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
    EXPECT_EQ(calls.text().substr(before), "shutdown #1 SHUT_RDWR\nclose #1\n" + preparation("#2") +
                                               "connect #2 AF_INET 127.0.0.1:" + std::to_string(host.port()) +
                                               " padding=zero\n");
}

TEST(TransportOpening, EndsTheOldConnection) {
    OpenTransport open;
    ASSERT_TRUE(open.transport.openConnection(ScriptedHost::address(), open.host.port()));
    EXPECT_TRUE(open.peer->waitForEnd());
    const auto secondPeer = open.host.accept();
    ASSERT_NE(secondPeer, nullptr);
    EXPECT_TRUE(secondPeer->isQuietFor(std::chrono::milliseconds(50)));
}

struct CountingTransport : VisibleTransport {
    int close() override {
        ++closes;
        return VisibleTransport::close();
    }
    int closes = 0;
};

TEST(TransportOpening, ClosesThroughTheVirtualOperation) {
    CountingTransport transport;
    ScriptedHost host;
    ASSERT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
    EXPECT_EQ(transport.closes, 1);
    ASSERT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
    EXPECT_EQ(transport.closes, 2);
}

TEST(TransportOpening, ClosesThroughTheVirtualOperationAfterAFailureToo) {
    for (const char* failing : {"SO_RCVTIMEO", "connect"}) {
        CountingTransport transport;
        SystemCalls calls;
        calls.fail(failing, EPERM);
        const CapturedStreams streams;
        EXPECT_FALSE(transport.openConnection(ScriptedHost::address(), 1));
        EXPECT_EQ(transport.closes, 2) << failing;
    }
}

TEST(TransportOpening, LeavesNoSocketBehindWhenTheHostRefuses) {
    VisibleTransport transport;
    SystemCalls calls;
    EXPECT_FALSE(transport.openConnection(ScriptedHost::address(), refusingPort()));
    EXPECT_EQ(calls.textOf("close #1"), "close #1\n");
    EXPECT_EQ(transport.descriptor(), -1);
    EXPECT_EQ(transport.close(), -1);
}

TEST(TransportOpening, CanBeTriedAgainAfterARefusal) {
    VisibleTransport transport;
    ASSERT_FALSE(transport.openConnection(ScriptedHost::address(), refusingPort()));
    ScriptedHost host;
    EXPECT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
}

TEST(TransportOpening, PrintsNothingWhenItSucceeds) {
    const CapturedStreams streams;
    const OpenTransport open;
    EXPECT_EQ(streams.out(), "");
    EXPECT_EQ(streams.err(), "");
}

TEST(TransportPort, OfAnyLegalNumberIsUsedAsItIs) {
    EXPECT_EQ(connectLine(55580), "connect #1 AF_INET 127.0.0.1:55580 padding=zero\n");
    EXPECT_EQ(connectLine(65535), "connect #1 AF_INET 127.0.0.1:65535 padding=zero\n");
    EXPECT_EQ(connectLine(258), "connect #1 AF_INET 127.0.0.1:258 padding=zero\n");
    EXPECT_EQ(connectLine(0), "connect #1 AF_INET 127.0.0.1:0 padding=zero\n");
}

TEST(TransportPort, AboveThatIsCutToItsLowSixteenBits) {
    EXPECT_EQ(connectLine(65536), "connect #1 AF_INET 127.0.0.1:0 padding=zero\n");
    EXPECT_EQ(connectLine(65537), "connect #1 AF_INET 127.0.0.1:1 padding=zero\n");
    EXPECT_EQ(connectLine(70'000), "connect #1 AF_INET 127.0.0.1:4464 padding=zero\n");
    EXPECT_EQ(connectLine(0xFFFFFFFFU), "connect #1 AF_INET 127.0.0.1:65535 padding=zero\n");
}

TEST(TransportPort, CutToItsLowSixteenBitsReachesTheHost) {
    ScriptedHost host;
    VisibleTransport transport;
    EXPECT_TRUE(transport.openConnection(ScriptedHost::address(), host.port() + 0x10000U));
    EXPECT_NE(host.accept(), nullptr);
}

TEST(TransportAddress, IsHandedOverUnchanged) {
    EXPECT_EQ(connectLine(1, htonl(0x7F010203U)), "connect #1 AF_INET 127.1.2.3:1 padding=zero\n");
    EXPECT_EQ(connectLine(1, 0xFFFFFFFFU), "connect #1 AF_INET 255.255.255.255:1 padding=zero\n");
    EXPECT_EQ(connectLine(1, 0U), "connect #1 AF_INET 0.0.0.0:1 padding=zero\n");
}

/// Whether the process ignores SIGPIPE.
bool ignoresBrokenPipes() {
    struct sigaction action {};
    sigaction(SIGPIPE, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}

TEST(TransportBrokenPipe, IsIgnoredAtEveryOpening) {
    ScriptedHost host;
    VisibleTransport transport;
    for (int i = 0; i < 2; ++i) {
        signal(SIGPIPE, SIG_DFL);
        ASSERT_FALSE(ignoresBrokenPipes());
        EXPECT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
        EXPECT_TRUE(ignoresBrokenPipes());
    }
}

TEST(TransportBrokenPipe, IsIgnoredEvenWhenTheHostRefuses) {
    signal(SIGPIPE, SIG_DFL);
    VisibleTransport transport;
    EXPECT_FALSE(transport.openConnection(ScriptedHost::address(), refusingPort()));
    EXPECT_TRUE(ignoresBrokenPipes());
}

TEST(TransportBrokenPipe, IsLeftAloneByConstruction) {
    signal(SIGPIPE, SIG_DFL);
    const VisibleTransport transport;
    EXPECT_FALSE(ignoresBrokenPipes());
}

}  // namespace
}  // namespace com_tesk::test
