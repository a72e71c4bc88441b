#include <gtest/gtest.h>

#include <memory>

#include "tests/client/Conversation.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/TransportUnderTest.h"

namespace com_tesk::test {
namespace {

constexpr unsigned int kSilentReconnect = CSClient::OPTION_SILENT | CSClient::OPTION_AUTO_RECONNECT;

/// A host that can go away and come back on its port.
class HostRestart : public testing::Test {
  protected:
    HostRestart() { restart(); }

    void restart() {
        HostOptions options;
        options.port = port;
        host = std::make_unique<LoopbackHost>(options);
        port = host->port();
    }

    std::uint16_t port = 0;
    std::unique_ptr<LoopbackHost> host;
};

TEST_F(HostRestart, TheLastPublishedValuesArriveAgain) {
    Participant pilot(*host, 1, kSilentReconnect);
    pilot.client.registerOutputParameters({{"ALT", CSClient::TYPE_FLOAT}, {"GEAR", CSClient::TYPE_INT}});
    ASSERT_TRUE(pilot.heard.waitFor("outputs confirmed ALT GEAR"));
    pilot.client.publishParameter(floatParameter("ALT", 1.5F));
    pilot.client.publishParameters({floatParameter("ALT", 12.5F), intParameter("GEAR", -3)});
    ASSERT_TRUE(host->waitForValue("GEAR", HostValue::integer(-3), kPatience));
    host.reset();
    ASSERT_TRUE(pilot.heard.waitFor("state 5->1"));
    restart();
    EXPECT_TRUE(host->waitForValue("ALT", HostValue::real(12.5F), kPatience));
    EXPECT_TRUE(host->waitForValue("GEAR", HostValue::integer(-3), kPatience));
    EXPECT_EQ(pilot.heard.states(), "0->1 1->2 2->4 4->5 5->1 1->2 2->4");
}

TEST_F(HostRestart, AnOutputThatWasNeverPublishedIsRegisteredButNotSent) {
    Participant pilot(*host, 1, kSilentReconnect);
    pilot.client.registerOutputParameters({{"quiet", CSClient::TYPE_FLOAT}, {"spoken", CSClient::TYPE_FLOAT}});
    ASSERT_TRUE(pilot.heard.waitFor("outputs confirmed quiet spoken"));
    pilot.client.publishParameter(floatParameter("spoken", 1.5F));
    host.reset();
    ASSERT_TRUE(pilot.heard.waitFor("state 5->1"));
    restart();
    ASSERT_TRUE(host->waitForValue("spoken", HostValue::real(1.5F), kPatience));
    EXPECT_FALSE(host->value("quiet").has_value());
    EXPECT_TRUE(pilot.heard.waitFor("outputs confirmed quiet spoken", 2));
}

TEST_F(HostRestart, AValuePublishedWhileTheHostIsAwayArrivesWhenItIsBack) {
    Participant pilot(*host, 1, kSilentReconnect);
    pilot.client.registerOutputParameter({"ALT", CSClient::TYPE_FLOAT});
    ASSERT_TRUE(pilot.heard.waitFor("outputs confirmed ALT"));
    host.reset();
    ASSERT_TRUE(pilot.heard.waitFor("state 5->1"));
    EXPECT_EQ(pilot.client.publishParameter(floatParameter("ALT", 99.0F)), 0);
    restart();
    EXPECT_TRUE(host->waitForValue("ALT", HostValue::real(99.0F), kPatience));
}

TEST_F(HostRestart, AnOutputRegisteredWhileTheHostIsAwayIsConfirmedWhenItIsBack) {
    Participant pilot(*host, 1, kSilentReconnect);
    host.reset();
    ASSERT_TRUE(pilot.heard.waitFor("state 5->1"));
    EXPECT_EQ(pilot.client.registerOutputParameter({"ALT", CSClient::TYPE_FLOAT}), 0);
    restart();
    EXPECT_TRUE(pilot.heard.waitFor("outputs confirmed ALT"));
}

TEST_F(HostRestart, InputsAreSubscribedAgainAndFollowTheNewHost) {
    Participant watcher(*host, 1, kSilentReconnect);
    watcher.client.registerInputParameter({"ALT", CSClient::TYPE_FLOAT, 1});
    ASSERT_TRUE(watcher.heard.waitFor("inputs confirmed ALT"));
    host.reset();
    ASSERT_TRUE(watcher.heard.waitFor("state 5->1"));
    restart();
    ASSERT_TRUE(host->waitForSubscribers("ALT", 1, kPatience));
    host->setValue("ALT", HostValue::real(7.5F));
    EXPECT_TRUE(watcher.heard.waitFor("updated ALT=float:7.5"));
    EXPECT_TRUE(watcher.heard.waitFor("inputs confirmed ALT", 2));
}

TEST_F(HostRestart, AResetConnectionIsMadeAgain) {
    Participant pilot(*host, 1, kSilentReconnect);
    pilot.client.registerOutputParameter({"ALT", CSClient::TYPE_FLOAT});
    ASSERT_TRUE(pilot.heard.waitFor("outputs confirmed ALT"));
    EXPECT_EQ(host->dropClients(LoopbackHost::DropMode::RESET), 1U);
    EXPECT_TRUE(pilot.heard.waitFor("outputs confirmed ALT", 2));
    EXPECT_EQ(pilot.heard.states(), "0->1 1->2 2->4 4->5 5->1 1->2 2->4");
}

TEST_F(HostRestart, ReconnectingIsReportedStepByStep) {
    const CapturedStreams streams;
    {
        SimClient client(1, CSClient::OPTION_AUTO_RECONNECT);
        useTransportUnderTest(client);
        client.open("127.0.0.1", port, nullptr);
        ASSERT_TRUE(streams.waitForOut("Found protocol version: 1\n"));
        client.registerOutputParameter({"ALT", CSClient::TYPE_FLOAT});
        client.registerInputParameter({"SPEED", CSClient::TYPE_FLOAT, 1});
        ASSERT_TRUE(client.waitForInputsToBeRegistered(5));
        host->dropClients(LoopbackHost::DropMode::GRACEFUL);
        ASSERT_TRUE(streams.waitForOut("Registering output parameters with server...\nFound server version: "));
        ASSERT_TRUE(client.waitForInputsToBeRegistered(5));
    }
    const std::string found =
        "Found server version: csclient loopback host\nFound simulator id: 1\nFound protocol version: 1\n";
    EXPECT_EQ(streams.out(), found + "Attempting to reconnect...\n" +
                                 "Re-registering input/output parameters (1/1)...\n" +
                                 "Registering input parameters with server...\n" +
                                 "Registering output parameters with server...\n" + found);
    EXPECT_EQ(streams.err(), "Connection closed by server.\n");
}

TEST_F(HostRestart, WithoutReconnectALostHostEndsTheConnectionAndForgetsEverything) {
    Participant pilot(*host, 1, CSClient::OPTION_SILENT);
    pilot.client.registerOutputParameter({"ALT", CSClient::TYPE_FLOAT});
    ASSERT_TRUE(pilot.heard.waitFor("outputs confirmed ALT"));
    host.reset();
    ASSERT_TRUE(pilot.heard.waitFor("state 3->0"));
    EXPECT_TRUE(pilot.client.waitForConnectionState(CSClient::STATE_DISCONNECTED, 2));
    EXPECT_EQ(pilot.heard.states(), "0->1 1->2 2->4 4->3 3->0");
    EXPECT_EQ(pilot.client.getNumberOfRegisteredOutputParameters(), 0);
    EXPECT_EQ(pilot.client.getNumberOfUnregisteredOutputParameters(), 0);
    EXPECT_EQ(pilot.client.getServerPort(), 0U);
}

TEST_F(HostRestart, AClientThatWasThereFirstFindsTheHostWhenItComes) {
    host.reset();
    RecordingCallbacks heard;
    SimClient client(1, kSilentReconnect);
    useTransportUnderTest(client);
    client.addCallbackInterface(&heard);
    ASSERT_EQ(client.open("127.0.0.1", port, nullptr), 0);
    EXPECT_FALSE(client.waitForConnectionState(CSClient::STATE_READY, 1));
    restart();
    EXPECT_TRUE(client.waitForConnectionState(CSClient::STATE_READY, 5));
    EXPECT_EQ(heard.states(), "0->1 1->2 2->4");
}

}  // namespace
}  // namespace com_tesk::test
