#include <cerrno>
#include <set>

#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "message/RawMessage.h"
#include "tests/client/ClientFixtures.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

/// Opens a client whose transport only records what it connects to.
class OpenForwarding : public testing::Test {
  protected:
    /// Returns what the transport was asked for since the last call.
    FakeTransport::Opening opening() {
        EXPECT_TRUE(waitUntil([this] { return client.probed->fakeTransport().openings().size() > seen; }));
        return client.probed->fakeTransport().openings().at(seen++);
    }

    std::size_t seen = 0;
    TestClient client;
};

TEST_F(OpenForwarding, PassesAddressPortAndOptionsOn) {
    struct {
        std::function<int(const CSClient::ConnectionOptions*)> open;
        unsigned int address;
        unsigned int port;
        const char* text;
        CSClient::ConnectionOptions options;
    } const rows[] = {
        {[&](auto* with) { return client.open(0x0302010AU, 55580, with); }, 0x0302010AU, 55580, "10.1.2.3", {8192, 1}},
        {[&](auto*) { return client.open(0x0302010AU, 55580, nullptr); }, 0x0302010AU, 55580, "10.1.2.3", {}},
        {[&](auto* with) { return client.open("10.1.2.3", 70000, with); }, 0x0302010AU, 70000, "10.1.2.3", {1, 4096}},
        {[&](auto*) { return client.open("no address", 1, nullptr); }, 0xFFFFFFFFU, 1, "255.255.255.255", {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        CSClient::ConnectionOptions options = row.options;
        EXPECT_EQ(row.open(&options), 0);
        options = {};
        const FakeTransport::Opening asked = opening();
        EXPECT_EQ(asked.address, row.address);
        EXPECT_EQ(asked.port, row.port);
        EXPECT_EQ(asked.options.receiveBufferSize, row.options.receiveBufferSize);
        EXPECT_EQ(asked.options.sendBufferSize, row.options.sendBufferSize);
        EXPECT_FALSE(asked.options.quiet) << "even a silent engine reports refused options";
        EXPECT_EQ(client.open("10.9.9.9", 2, nullptr), 2) << "it is open";
        EXPECT_EQ(client.getServerIPAddress(), row.text);
        EXPECT_EQ(client.getServerPort(), row.port);
        ASSERT_EQ(closeWithoutSleeping(client), CSClient::STATE_DISCONNECTED);
        EXPECT_EQ(client.getServerIPAddress(), "0.0.0.0");
        EXPECT_EQ(client.getServerPort(), 0U);
    }
}

/// A subclass of an application that replaces the virtual operations.
class ReplacingClient : public TestClient {
  public:
    using CSClient::open;
    int open(unsigned int address, unsigned int port, const ConnectionOptions* options) override {
        seen = hexWord(address) + " port " + std::to_string(port) + (options == nullptr ? " no options" : " options");
        return 42;
    }
    State close() override {
        seen = "close";
        return STATE_RECONNECTING;
    }

    std::string seen;
};

TEST(OpenForwardingToASubclass, CallsItsVirtualOperations) {
    ReplacingClient client;
    CSClient& base = client;
    EXPECT_EQ(base.open(0x0302010AU, 1, nullptr), 42);
    EXPECT_EQ(client.seen, "03 02 01 0A port 1 no options");
    const CSClient::ConnectionOptions options;
    EXPECT_EQ(base.open("10.1.2.4", 70000, &options), 42);
    EXPECT_EQ(client.seen, "04 02 01 0A port 70000 options");
    EXPECT_EQ(base.close(), CSClient::STATE_RECONNECTING);
    EXPECT_EQ(client.seen, "close");
}

TEST(SendForwarding, ReturnsTheResultOfTheEngine) {
    const CapturedStreams streams;
    TestClient client(0);
    FakeTransport& transport = client.probed->fakeTransport();
    RawMessage message(RawMessage::CONTROL);
    message.write(0x01020304U);
    EXPECT_EQ(client.sendMessage(message), 1) << "not connected";
    client.pretendState(CSClient::STATE_READY);
    EXPECT_EQ(client.sendMessage(RawMessage(RawMessage::INVALID)), 3);
    EXPECT_EQ(transport.written(), Lines{});
    EXPECT_EQ(client.sendMessage(message), 0);
    EXPECT_EQ(transport.written(), Lines{"00 00 00 24 00 00 00 20 00 00 00 03 00 00 00 02 "
                                         "FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FE 01 02 03 04"});
    transport.failWrites(-1, EPIPE);
    EXPECT_EQ(client.sendMessage(message), 2);
    EXPECT_EQ(client.getConnectionState(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(streams.err(), "Error writing to server (32) \n");
}

/// Counts the transports that the client has destroyed.
class ChangeCommsInterface : public testing::Test {
  protected:
    FakeTransport* newTransport() {
        auto* const transport = new FakeTransport;
        transport->onDestruction = [this] { ++destructions; };
        return transport;
    }

    int destructions = 0;
    ScriptedSession session;
    SimClient& client = *session.client;
};

TEST_F(ChangeCommsInterface, GivesTheTransportToTheClient) {
    FakeTransport* const transport = newTransport();
    EXPECT_TRUE(client.changeCommsInterface(transport));
    EXPECT_TRUE(client.changeCommsInterface(transport)) << "the client has it already";
    EXPECT_FALSE(client.changeCommsInterface(nullptr));
    ASSERT_EQ(destructions, 0);
    EXPECT_TRUE(client.changeCommsInterface(newTransport()));
    EXPECT_EQ(destructions, 1);
    session.client.reset();
    EXPECT_EQ(destructions, 2);
}

TEST_F(ChangeCommsInterface, ChangedTransportsConnectAgainAndAgain) {
    const CSCommsInterfaceTCP::Options options;
    auto* const buffered = new CSCommsInterfaceTCPBuffered(options);
    auto* const standard = new CSCommsInterfaceTCP(options);
    // The buffered transport is set twice in a row, so that the client must keep it.
    for (CSCommsInterfaceTCP* const transport : {static_cast<CSCommsInterfaceTCP*>(buffered),
                                                 static_cast<CSCommsInterfaceTCP*>(buffered), standard, standard}) {
        ASSERT_TRUE(client.changeCommsInterface(transport));
        ASSERT_TRUE(client.changeCommsInterface(transport));
        ASSERT_NO_FATAL_FAILURE(session.connect());
        EXPECT_EQ(session.versionRequest, hexFrame("04 02 7F FF 00 00 00 14 00 7F 00 06 00 01 00 00 00 00 00 00"));
        EXPECT_FALSE(client.changeCommsInterface(transport)) << "it is refused with a connection";
        EXPECT_EQ(client.sendMessage(RawMessage(RawMessage::DATA)), 0) << "the connection stays";
        EXPECT_EQ(closeWithoutSleeping(client), CSClient::STATE_DISCONNECTED);
    }
}

using Interfaces = std::set<CSClient::CallbackIface*>;

TEST(QueryForwarding, ClientVersionNeedsNoObject) {
    EXPECT_STREQ(CSClient::getClientVersion(), "4.4.132");
}

TEST(QueryForwarding, OptionsAreSetOnlyWhenAllBitsAre) {
    for (const unsigned int options : {0U, 1U, 2U, 3U, 0x80000003U}) {
        const TestClient client(options);
        EXPECT_EQ(client.getOptions(), options);
        for (const unsigned int mask : {0U, 1U, 2U, 3U, 7U}) {
            EXPECT_EQ(client.hasOptions(mask), (options & mask) == mask) << options << " " << mask;
        }
    }
}

TEST(QueryForwarding, HostIsThatOfTheEngine) {
    TestClient client;
    EXPECT_EQ(client.getServerVersion(), "UNKNOWN");
    EXPECT_EQ(client.getProtocolVersion(), 0U);
    EXPECT_EQ(client.getServerIPAddress(), "0.0.0.0");
    EXPECT_EQ(client.getServerPort(), 0U);
    client.probed->receive(versionResponse(0x00010000, "Host 2.1", 65538));
    client.probed->pretendAddress(0x0302010AU, 70000);
    EXPECT_EQ(client.getServerVersion(), "Host 2.1");
    EXPECT_EQ(client.getProtocolVersion(), 65538U);
    EXPECT_EQ(client.getServerIPAddress(), "10.1.2.3");
    EXPECT_EQ(client.getServerPort(), 70000U);
}

template <typename Kind>
class QueryForwardingOfParameters : public ForEachKind<Kind> {
  protected:
    /// Expects that nothing of the other kind is counted.
    void expectCounts(int confirmed, int unconfirmed) {
        EXPECT_EQ(Kind::confirmed(this->client), confirmed);
        EXPECT_EQ(Kind::unconfirmed(this->client), unconfirmed);
        EXPECT_EQ(ForEachKind<Kind>::OtherKind::confirmed(this->client), 0);
        EXPECT_EQ(ForEachKind<Kind>::OtherKind::unconfirmed(this->client), 0);
    }
};

TYPED_TEST_SUITE(QueryForwardingOfParameters, Kinds, KindNames);

TYPED_TEST(QueryForwardingOfParameters, CountsConfirmedAndUnconfirmed) {
    this->expectCounts(0, 0);
    const std::vector definitions{TypeParam::define("A"), TypeParam::define("B"), TypeParam::define("C")};
    TypeParam::registerMany(this->client, definitions);
    this->expectCounts(0, 3);
    this->confirm(7, "B");
    this->expectCounts(1, 2);
    for (const unsigned int id : {8U, 9U, 10U}) {
        this->confirm(id, "B");
    }
    this->expectCounts(4, -1);
}

TYPED_TEST(QueryForwardingOfParameters, IsRegisteredOnceConfirmed) {
    using Other = typename TestFixture::OtherKind;
    TypeParam::registerOne(this->client, TypeParam::define("A"));
    Other::registerOne(this->client, Other::define("other"));
    this->client.probed->receive(Other::kConfirmation({{3, "other"}}));
    EXPECT_FALSE(TypeParam::isConfirmed(this->client, "A"));
    this->confirm(7, "A");
    EXPECT_TRUE(TypeParam::isConfirmed(this->client, "A"));
    EXPECT_FALSE(TypeParam::isConfirmed(this->client, "a"));
    EXPECT_FALSE(TypeParam::isConfirmed(this->client, "other"));
}

class CallbackForwarding : public testing::Test {
  protected:
    RecordingCallbacks callbacks;
    RecordingCallbacks other;
    TestClient client;
};

TEST_F(CallbackForwarding, AddsAnInterfaceOnceAndRemovesIt) {
    Interfaces interfaces{&other};
    EXPECT_EQ(client.getCallbackInterfaces(interfaces), 0);
    EXPECT_EQ(interfaces, Interfaces{});
    EXPECT_EQ(client.addCallbackInterface(nullptr), 0U);
    EXPECT_FALSE(client.hasCallbackInterface(nullptr));
    EXPECT_FALSE(client.hasCallbackInterface(&callbacks));
    EXPECT_EQ(client.addCallbackInterface(&callbacks), 1U);
    EXPECT_EQ(client.addCallbackInterface(&callbacks), 0U);
    EXPECT_TRUE(client.hasCallbackInterface(&callbacks));
    EXPECT_EQ(client.removeCallbackInterface(&other), 0) << "it was not added";
    EXPECT_EQ(client.getNumCallbackInterfaces(), 1);
    interfaces = {&other};
    EXPECT_EQ(client.getCallbackInterfaces(interfaces), 0);
    EXPECT_EQ(interfaces, Interfaces{&callbacks});
    EXPECT_EQ(client.removeCallbackInterface(&callbacks), 0);
    EXPECT_FALSE(client.hasCallbackInterface(&callbacks));
    EXPECT_EQ(client.getNumCallbackInterfaces(), 0);
}

TEST_F(CallbackForwarding, NotifiesAnInterfaceUntilItsRemoval) {
    client.addCallbackInterface(&callbacks);
    client.registerInputParameter(input("A"));
    client.registerOutputParameter(output("B"));
    client.probed->receive(inputConfirmation(1, {confirmedInput(7, 0, "3F C0 00 00", "A")}));
    client.probed->receive(outputsConfirmed({{8, "B"}}));
    client.removeCallbackInterface(&callbacks);
    client.probed->receive(outputsConfirmed({{8, "B"}}));
    EXPECT_EQ(callbacks.lines(), (Lines{"inputs confirmed A", "updated A=float:1.5", "outputs confirmed B"}));
}

}  // namespace
}  // namespace com_tesk::test
