#include <arpa/inet.h>
#include <netinet/tcp.h>

#include <type_traits>
#include <utility>

#include "tests/comms/SystemCalls.h"
#include "tests/comms/Transports.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

static_assert(std::is_base_of_v<CSCommsInterface, CSCommsInterfaceTCP>, "it is a transport");
static_assert(std::is_abstract_v<CSCommsInterface>, "the interface has no transport of its own");
static_assert(std::has_virtual_destructor_v<CSCommsInterface>, "may be deleted through the interface");
static_assert(std::is_same_v<decltype(Options::receiveBufferSize), std::uint32_t>, "buffer sizes have 32 bits");
static_assert(std::is_same_v<decltype(Options::sendBufferSize), std::uint32_t>, "buffer sizes have 32 bits");

constexpr char kCreation[] = "socket AF_INET SOCK_STREAM|SOCK_CLOEXEC IPPROTO_TCP\n";

class TransportOpening : public BothTransports {};

INSTANTIATE_TEST_SUITE_P(Of, TransportOpening, testing::Bool(), nameOfTransport);

TEST_P(TransportOpening, ConnectsByNumberAndByTextAndPrintsNothing) {
    const CapturedStreams streams;
    EXPECT_EQ(descriptor(), -1);
    connect();
    EXPECT_GE(descriptor(), 0);
    EXPECT_TRUE(transport->openConnection("127.0.0.1", host.port() + 0x10000)) << "only the low 16 bits count";
    EXPECT_NE(host.accept(), nullptr);
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_P(TransportOpening, CreatesABlockingSocketThatProgramsDoNotInherit) {
    SystemCalls calls;
    EXPECT_TRUE(open());
    EXPECT_EQ(calls.textOf("socket AF"), kCreation);
    EXPECT_EQ(calls.textOf("F_SETFD"), "") << "another thread could start a program before";
    EXPECT_EQ(fcntl(descriptor(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(descriptor(), F_GETFL) & O_NONBLOCK, 0);
}

TEST_P(TransportOpening, LeavesTheOptionsOnTheSocket) {
    connect();
    timeval timeout{};
    int noDelay = 0;
    socklen_t length = sizeof timeout;
    for (const auto& [option, seconds] : {std::pair{SO_RCVTIMEO, 1}, std::pair{SO_SNDTIMEO, 30}}) {
        ASSERT_EQ(getsockopt(descriptor(), SOL_SOCKET, option, &timeout, &length), 0);
        EXPECT_EQ(timeout.tv_sec, seconds);
        EXPECT_EQ(timeout.tv_usec, 0);
    }
    length = sizeof noDelay;
    ASSERT_EQ(getsockopt(descriptor(), IPPROTO_TCP, TCP_NODELAY, &noDelay, &length), 0);
    EXPECT_EQ(noDelay, 1);
}

TEST_P(TransportOpening, SetsTheBufferSizesThatAreNotZeroBeforeConnecting) {
    const std::string send = "setsockopt #1 SOL_SOCKET SO_SNDBUF ";
    const std::string receive = "setsockopt #1 SOL_SOCKET SO_RCVBUF ";
    const std::string connection = "connect #1 AF_INET 127.0.0.1:1 padding=zero\n";
    const std::pair<Options, std::string> rows[] = {
        {bufferSizes(0, 0), ""},
        {bufferSizes(1, 0), send + "1\n"},
        {bufferSizes(0, 1), receive + "1\n"},
        {bufferSizes(10'000, 20'000), send + "10000\n" + receive + "20000\n"},
        {bufferSizes(0xFFFFFFFEU, 0xFFFFFFFFU), send + "4294967294\n" + receive + "4294967295\n"},
    };
    for (const auto& [options, expected] : rows) {
        transport->setOptions(options);
        SystemCalls calls;
        calls.answer("BUF", 0, 0);
        calls.fail("connect", ECONNREFUSED);
        EXPECT_FALSE(transport->openConnection(ScriptedHost::address(), 1));
        EXPECT_EQ(calls.textOf("BUF"), expected);
        const std::size_t end = calls.text().find(connection);
        ASSERT_NE(end, std::string::npos);
        EXPECT_EQ(calls.text().find("BUF", end), std::string::npos);
    }
}

TEST_P(TransportOpening, EndsTheOldConnection) {
    connect();
    const auto old = std::move(peer);
    connect();
    EXPECT_TRUE(old->waitForEnd());
    EXPECT_TRUE(peer->isQuietFor(milliseconds(50)));
}

TEST_P(TransportOpening, LeavesNoSocketBehindWhenTheHostRefuses) {
    const CapturedStreams streams;
    const unsigned int port = refusingPort();
    {
        SystemCalls calls;
        for (int i = 0; i < 3; ++i) {
            EXPECT_FALSE(transport->openConnection(ScriptedHost::address(), port));
            EXPECT_EQ(descriptor(), -1);
        }
        EXPECT_EQ(calls.textOf("socket AF"), std::string(kCreation) + kCreation + kCreation) << "one attempt each";
        EXPECT_EQ(calls.textOf("close #"), "close #1\nclose #2\nclose #3\n");
    }
    EXPECT_EQ(transport->close(), -1);
    EXPECT_EQ(readOnce(*transport, 1).error, EBADF);
    EXPECT_EQ(transport->writeMessage(messageOf("01")), -1);
    EXPECT_EQ(streams.out() + streams.err(), "");
    connect();
}

TEST_P(TransportOpening, UsesTheAddressAndTheLowSixteenBitsOfThePort) {
    struct Row {
        unsigned int address;
        unsigned int port;
        const char* text;
    };
    const unsigned int loopback = ScriptedHost::address();
    const Row rows[] = {
        {loopback, 55'580, "127.0.0.1:55580"},
        {loopback, 65'535, "127.0.0.1:65535"},
        {loopback, 258, "127.0.0.1:258"},
        {loopback, 0, "127.0.0.1:0"},
        {loopback, 65'536, "127.0.0.1:0"},
        {loopback, 65'537, "127.0.0.1:1"},
        {loopback, 70'000, "127.0.0.1:4464"},
        {loopback, 0xFFFFFFFFU, "127.0.0.1:65535"},
        {htonl(0x7F010203U), 1, "127.1.2.3:1"},
        {0xFFFFFFFFU, 1, "255.255.255.255:1"},
        {0, 1, "0.0.0.0:1"},
    };
    for (const Row& row : rows) {
        SystemCalls calls;
        calls.fail("connect", ECONNREFUSED);
        EXPECT_FALSE(transport->openConnection(row.address, row.port));
        EXPECT_EQ(calls.textOf("connect"), std::string("connect #1 AF_INET ") + row.text + " padding=zero\n");
    }
}

// The standard transport only.

/// Returns the calls of an opening of the standard transport without buffer sizes.
std::string openingCalls(const std::string& socket, unsigned int port) {
    return std::string("sigaction SIGPIPE SIG_IGN mask=empty flags=0 old=none\n") + kCreation + "setsockopt " + socket +
           " SOL_SOCKET SO_RCVTIMEO 1 s 0 us\n" + "setsockopt " + socket + " SOL_SOCKET SO_SNDTIMEO 30 s 0 us\n" +
           "setsockopt " + socket + " IPPROTO_TCP TCP_NODELAY 1\n" + "connect " + socket +
           " AF_INET 127.0.0.1:" + std::to_string(port) + " padding=zero\n";
}

TEST(StandardOpening, MakesItsCallsInOrderAndClosesTheOldSocketFirst) {
    ScriptedHost host;
    VisibleTransport transport;
    SystemCalls calls;
    EXPECT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
    const std::string first = openingCalls("#1", host.port());
    EXPECT_EQ(calls.text(), first);
    EXPECT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
    EXPECT_EQ(calls.text(), first + "shutdown #1 SHUT_RDWR\nclose #1\n" + openingCalls("#2", host.port()));
}

struct CountingTransport : VisibleTransport {
    int close() override {
        ++closes;
        return VisibleTransport::close();
    }
    int closes = 0;
};

TEST(StandardOpening, ClosesThroughTheVirtualOperationAlsoAfterAFailure) {
    ScriptedHost host;
    CountingTransport transport;
    ASSERT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
    EXPECT_EQ(transport.closes, 1);
    ASSERT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
    EXPECT_EQ(transport.closes, 2);
    for (const char* failing : {"SO_RCVTIMEO", "connect"}) {
        const CapturedStreams streams;
        SystemCalls calls;
        calls.fail(failing, EPERM);
        transport.closes = 0;
        EXPECT_FALSE(transport.openConnection(ScriptedHost::address(), 1));
        EXPECT_EQ(transport.closes, 2) << failing;
    }
}

TEST(StandardOpening, MakesTheProcessIgnoreBrokenPipesEachTime) {
    const SignalHandler deadly(SIGPIPE, SIG_DFL);
    ScriptedHost host;
    VisibleTransport transport;
    EXPECT_EQ(SignalHandler::current(SIGPIPE), SIG_DFL);
    for (const unsigned int port : {host.port(), host.port(), refusingPort()}) {
        signal(SIGPIPE, SIG_DFL);
        EXPECT_EQ(transport.openConnection(ScriptedHost::address(), port), port == host.port());
        EXPECT_EQ(SignalHandler::current(SIGPIPE), SIG_IGN);
    }
}

TEST(BufferedOpening, LeavesTheApplicationsHandlerOfBrokenPipes) {
    const SignalHandler own(SIGPIPE);
    const auto before = SignalHandler::current(SIGPIPE);
    BufferedPair pair;
    const SystemCalls calls;
    pair.connect();
    EXPECT_EQ(calls.textOf("sigaction"), "");
    EXPECT_EQ(SignalHandler::current(SIGPIPE), before);
}

// Addresses.

/// Returns the four bytes in the order in which they are in memory.
std::string bytesOfAddress(std::uint32_t address) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&address);
    return hexText(Bytes(bytes, bytes + sizeof address));
}

/// A transport that only records what it is asked to open.
class RecordingTransport : public CSCommsInterfaceTCP {
  public:
    explicit RecordingTransport(bool givenResult) : CSCommsInterfaceTCP(Options()), result(givenResult) {}

    using CSCommsInterfaceTCP::openConnection;
    bool openConnection(unsigned int address, unsigned int port) override {
        openings.emplace_back(bytesOfAddress(address), port);
        return result;
    }

    const bool result;
    std::vector<std::pair<std::string, unsigned int>> openings;
};

TEST(TransportAddressFromText, HasTheFirstNumberAtTheLowestAddressOrIsAllOnes) {
    constexpr std::pair<const char*, const char*> kRows[] = {
        {"10.1.2.3", "0A 01 02 03"},
        {"127.0.0.1", "7F 00 00 01"},
        {"0.0.0.0", "00 00 00 00"},
        {"192.168.255.254", "C0 A8 FF FE"},
        {"255.255.255.255", "FF FF FF FF"},
        // Forms that the system's own conversion accepts.
        {"127.1", "7F 00 00 01"},
        {"0x7f.0.0.010", "7F 00 00 08"},
    };
    for (const auto& [text, bytes] : kRows) {
        EXPECT_EQ(bytesOfAddress(CSCommsInterfaceTCP::convertIPAddressToOctet(text)), bytes) << text;
    }
    for (const char* text : {"", "host", "1.2.3.256", "1.2.3.4.5", "1.2.3.x", "1.2.3.4x", "-1.2.3.4"}) {
        EXPECT_EQ(CSCommsInterfaceTCP::convertIPAddressToOctet(text), 0xFFFFFFFFU) << text;
    }
}

TEST(TransportAddressToText, TakesTheLeastSignificantByteFirst) {
    constexpr std::pair<std::uint32_t, const char*> kRows[] = {
        {0x0100007FU, "127.0.0.1"},       {0x04030201U, "1.2.3.4"},       {0x0302010AU, "10.1.2.3"}, {0U, "0.0.0.0"},
        {0xFFFFFFFFU, "255.255.255.255"}, {0x80FF6409U, "9.100.255.128"},
    };
    for (const auto& [address, text] : kRows) {
        EXPECT_EQ(CSCommsInterfaceTCP::convertIPOctetToAddress(address), text);
    }
    ASSERT_EQ(htons(1), 0x0100) << "the machine is not little-endian";
}

TEST(TransportOpenByText, PassesAddressAndPortToTheNumericFormAndReturnsItsResult) {
    for (const bool result : {false, true}) {
        RecordingTransport transport(result);
        EXPECT_EQ(transport.openConnection("127.0.0.1", 4711), result);
        EXPECT_EQ(transport.openConnection("127.0.0.1", 70'000), result);
        EXPECT_EQ(transport.openConnection("no address", 1), result);
        const decltype(transport.openings) expected{{"7F 00 00 01", 4711}, {"7F 00 00 01", 70'000}, {"FF FF FF FF", 1}};
        EXPECT_EQ(transport.openings, expected);
    }
}

}  // namespace
}  // namespace com_tesk::test
