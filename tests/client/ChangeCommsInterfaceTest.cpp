#include <gtest/gtest.h>

#include <memory>

#include "client/SimClient.h"
#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "message/RawMessage.h"
#include "tests/client/ProbedClient.h"
#include "tests/client/Stopwatch.h"
#include "tests/support/FakeTransport.h"
#include "tests/support/ScriptedHost.h"
#include "tests/support/TransportUnderTest.h"

namespace com_tesk::test {
namespace {

/// Counts its destructions.
class CountedTransport : public FakeTransport {
  public:
    explicit CountedTransport(int& destructionCount) : destructions(destructionCount) {}
    ~CountedTransport() override { ++destructions; }

  private:
    int& destructions;
};

TEST(ChangeCommsInterface, GivesTheTransportToTheClient) {
    int destructions = 0;
    {
        SimClient client(1, CSClient::OPTION_SILENT);
        EXPECT_TRUE(client.changeCommsInterface(new CountedTransport(destructions)));
        EXPECT_EQ(destructions, 0);
    }
    EXPECT_EQ(destructions, 1);
}

TEST(ChangeCommsInterface, DeletesTheTransportBefore) {
    int first = 0;
    int second = 0;
    SimClient client(1, CSClient::OPTION_SILENT);
    EXPECT_TRUE(client.changeCommsInterface(new CountedTransport(first)));
    EXPECT_TRUE(client.changeCommsInterface(new CountedTransport(second)));
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 0);
}

TEST(ChangeCommsInterface, ToTheTransportThatTheClientHasKeepsIt) {
    int destructions = 0;
    {
        SimClient client(1, CSClient::OPTION_SILENT);
        auto* const transport = new CountedTransport(destructions);
        EXPECT_TRUE(client.changeCommsInterface(transport));
        EXPECT_TRUE(client.changeCommsInterface(transport));
        ASSERT_EQ(destructions, 0);
    }
    EXPECT_EQ(destructions, 1);
}

TEST(ChangeCommsInterface, ToTheTransportThatTheClientHasLeavesItUsable) {
    ScriptedHost host;
    SimClient client(1, CSClient::OPTION_SILENT);
    CSCommsInterfaceTCP* transport = newTransportUnderTest();
    if (transport == nullptr) {
        transport = new CSCommsInterfaceTCP(CSCommsInterfaceTCP::Options());
    }
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(client.changeCommsInterface(transport));
        ASSERT_TRUE(client.changeCommsInterface(transport));
        ASSERT_EQ(client.open(ScriptedHost::address(), host.port(), nullptr), 0);
        const auto peer = host.accept();
        ASSERT_TRUE(peer);
        EXPECT_EQ(peer->receiveBody(), "04 02 7F FF 00 00 00 14 00 7F 00 06 00 01 00 00 00 00 00 00");
        EXPECT_TRUE(client.waitForConnectionState(CSClient::STATE_READY, 5));
        EXPECT_FALSE(client.changeCommsInterface(transport)) << "with a connection it is refused";
        EXPECT_EQ(client.sendMessage(RawMessage(RawMessage::DATA)), 0) << "and the connection stays";
        EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
    }
}

TEST(ChangeCommsInterface, OfNothingIsRefused) {
    int destructions = 0;
    SimClient client(1, CSClient::OPTION_SILENT);
    EXPECT_TRUE(client.changeCommsInterface(new CountedTransport(destructions)));
    EXPECT_FALSE(client.changeCommsInterface(nullptr));
    EXPECT_EQ(destructions, 0);
}

TEST(ChangeCommsInterface, WithAConnectionIsRefusedAndTheCallerKeepsTheTransport) {
    int refusedDestructions = 0;
    ScriptedHost host;
    SimClient client(1, CSClient::OPTION_SILENT);
    ASSERT_EQ(client.open(ScriptedHost::address(), host.port(), nullptr), 0);
    {
        CountedTransport refused(refusedDestructions);
        EXPECT_FALSE(client.changeCommsInterface(&refused));
        EXPECT_EQ(refusedDestructions, 0);
    }
    EXPECT_EQ(refusedDestructions, 1);
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
    EXPECT_TRUE(client.changeCommsInterface(new FakeTransport));
}

TEST(ChangeCommsInterface, IsForwardedToTheEngine) {
    ProbedClient client;
    auto* const transport = new FakeTransport;
    EXPECT_TRUE(client.changeCommsInterface(transport));
    client.open(0x0100007FU, 1, nullptr);
    ASSERT_TRUE(spinUntilState(client, CSClient::STATE_READY));
    const Stopwatch watch;
    while (transport->written().empty() && watch.seconds() < 10.0) {
        std::this_thread::yield();
    }
    EXPECT_EQ(transport->written().size(), 1U) << "the version request";
    client.pretendState(CSClient::STATE_READY);
    FakeTransport other;
    EXPECT_FALSE(client.changeCommsInterface(&other));
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
}

TEST(ChangeCommsInterface, ToTheBufferedTransportAndBackWorksWithTheSameHost) {
    ScriptedHost host;
    SimClient client(1, CSClient::OPTION_SILENT);
    for (int round = 0; round < 2; ++round) {
        const CSCommsInterfaceTCP::Options options;
        ASSERT_TRUE(client.changeCommsInterface(round == 0 ? new CSCommsInterfaceTCPBuffered(options)
                                                           : new CSCommsInterfaceTCP(options)));
        ASSERT_EQ(client.open(ScriptedHost::address(), host.port(), nullptr), 0);
        const auto peer = host.accept();
        ASSERT_TRUE(peer);
        EXPECT_EQ(peer->receiveBody(), "04 02 7F FF 00 00 00 14 00 7F 00 06 00 01 00 00 00 00 00 00");
        EXPECT_TRUE(client.waitForConnectionState(CSClient::STATE_READY, 5));
        EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
    }
}

}  // namespace
}  // namespace com_tesk::test
