#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <memory>

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

TEST_F(OpenForwarding, PassesAddressAndPortOn) {
    struct {
        std::function<int()> open;
        unsigned int address;
        unsigned int port;
        const char* text;
    } const rows[] = {
        {[&] { return client.open(0x0302010AU, 55580, nullptr); }, 0x0302010AU, 55580, "10.1.2.3"},
        {[&] { return client.open("10.1.2.3", 55580, nullptr); }, 0x0302010AU, 55580, "10.1.2.3"},
        {[&] { return client.open("no address", 55580, nullptr); }, 0xFFFFFFFFU, 55580, "255.255.255.255"},
        {[&] { return client.open("10.1.2.3", 70000, nullptr); }, 0x0302010AU, 70000, "10.1.2.3"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(row.open(), 0);
        const FakeTransport::Opening asked = opening();
        EXPECT_EQ(asked.address, row.address);
        EXPECT_EQ(asked.port, row.port);
        EXPECT_EQ(client.getServerIPAddress(), row.text);
        EXPECT_EQ(client.getServerPort(), row.port);
        ASSERT_EQ(closeWithoutSleeping(client), CSClient::STATE_DISCONNECTED);
        EXPECT_EQ(client.getServerIPAddress(), "0.0.0.0");
        EXPECT_EQ(client.getServerPort(), 0U);
    }
}

TEST_F(OpenForwarding, CopiesTheConnectionOptionsForOneConnection) {
    CSClient::ConnectionOptions options{8192, 4096};
    EXPECT_EQ(client.open(kAnyAddress, 1, &options), 0);
    options = {};
    FakeTransport::Opening asked = opening();
    EXPECT_EQ(asked.options.receiveBufferSize, 8192U);
    EXPECT_EQ(asked.options.sendBufferSize, 4096U);
    ASSERT_EQ(closeWithoutSleeping(client), CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(client.open(kAnyAddress, 1, nullptr), 0);
    asked = opening();
    EXPECT_EQ(asked.options.receiveBufferSize, 0U);
    EXPECT_EQ(asked.options.sendBufferSize, 0U);
}

TEST_F(OpenForwarding, IsRefusedInEveryStateButDisconnected) {
    for (const unsigned int state : {1U, 2U, 3U, 4U, 5U}) {
        client.pretendState(static_cast<CSClient::State>(state));
        client.probed->pretendAddress(0x0302010AU, 55580);
        EXPECT_EQ(client.open("10.9.9.9", 1, nullptr), 2) << "in state " << state;
        EXPECT_EQ(client.open(0x01010101U, 1, nullptr), 2) << "in state " << state;
        EXPECT_EQ(client.getConnectionState(), state);
        EXPECT_EQ(client.getServerIPAddress(), "10.1.2.3");
        EXPECT_EQ(client.getServerPort(), 55580U);
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

TEST_F(ChangeCommsInterface, RefusedWithAConnectionLeavesTheTransportWithTheCaller) {
    ASSERT_NO_FATAL_FAILURE(session.connect());
    const std::unique_ptr<FakeTransport> refused(newTransport());
    EXPECT_FALSE(client.changeCommsInterface(refused.get()));
    EXPECT_EQ(destructions, 0);
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(destructions, 0);
    EXPECT_TRUE(client.changeCommsInterface(newTransport()));
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

}  // namespace
}  // namespace com_tesk::test
