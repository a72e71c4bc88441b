#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "client/SimClient.h"
#include "message/RawMessage.h"
#include "tests/client/Conversation.h"
#include "tests/client/ProbedClient.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/ScriptedHost.h"
#include "tests/support/TransportUnderTest.h"

namespace com_tesk::test {
namespace {

using Peer = std::unique_ptr<ScriptedHost::Peer>;

/// The bytes that a client's operations put on the wire, over a real socket.
class Wire : public testing::Test {
  protected:
    Wire() { client.addCallbackInterface(&callbacks); }

    /// Connects a client, and takes its version request off the wire.
    Peer connect(CSClient& connecting) {
        useTransportUnderTest(connecting);
        EXPECT_EQ(connecting.open(ScriptedHost::address(), host.port(), nullptr), 0);
        Peer peer = host.accept();
        EXPECT_TRUE(peer);
        versionRequest = peer->receiveFrame();
        EXPECT_TRUE(connecting.waitForConnectionState(CSClient::STATE_READY, 0));
        return peer;
    }

    ScriptedHost host;
    RecordingCallbacks callbacks;
    SimClient client{5, CSClient::OPTION_SILENT};
    std::string versionRequest;
};

std::string versionRequestOf(const std::string& simulatorWord) {
    return "00 00 00 34 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
           "04 02 7F FF 00 00 00 14 00 7F 00 06 " +
           simulatorWord + " 00 00 00 00";
}

TEST_F(Wire, TheVersionRequestCarriesTheSimulatorId) {
    const Peer peer = connect(client);
    EXPECT_EQ(versionRequest, versionRequestOf("00 05 00 00"));
}

TEST_F(Wire, TheHighestIdOfASimulatorIsCarried) {
    SimClient other(32767, CSClient::OPTION_SILENT);
    const Peer peer = connect(other);
    EXPECT_EQ(versionRequest, versionRequestOf("7F FF 00 00"));
}

TEST_F(Wire, AnIdThatASimulatorCannotHaveIsNotRefusedAtConstruction) {
    SimClient other(32768, CSClient::OPTION_SILENT);
    const Peer peer = connect(other);
    EXPECT_EQ(versionRequest, versionRequestOf("80 00 00 00"));
}

TEST_F(Wire, WhatDoesNotFitTheSimulatorWordIsLost) {
    SimClient other(0x12345678U, CSClient::OPTION_SILENT);
    const Peer peer = connect(other);
    EXPECT_EQ(versionRequest, versionRequestOf("56 78 00 00"));
}

TEST_F(Wire, AnOutputIsRegisteredPublishedAndUnregistered) {
    const Peer peer = connect(client);
    ASSERT_EQ(client.registerOutputParameter({"ALT", CSClient::TYPE_FLOAT}), 0);
    EXPECT_EQ(peer->receiveBody(),
              "04 02 7F FF 00 00 00 3C 00 7F 00 02 00 05 00 00 00 00 00 01 00 00 04 B0 00 00 00 00 "
              "41 4C 54 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    peer->send(hexFrame(outputConfirmation(7, "ALT")));
    ASSERT_TRUE(callbacks.waitFor("outputs confirmed ALT"));
    EXPECT_TRUE(client.waitForOutputsToBeRegistered(1));
    ASSERT_EQ(client.publishParameter(floatParameter("ALT", 12.5F)), 0);
    EXPECT_EQ(peer->receiveBody(),
              "04 02 7F FF 00 00 00 24 00 7F 00 03 00 05 00 00 00 00 00 00 00 00 00 01 "
              "00 00 00 07 00 00 00 00 41 48 00 00");
    ASSERT_EQ(client.unregisterOutputParameter("ALT"), 0);
    EXPECT_EQ(peer->receiveBody(), "04 02 7F FF 00 00 00 18 00 7F 00 05 00 05 00 00 00 00 00 01 00 00 00 07");
}

TEST_F(Wire, AnInputIsSubscribedUpdatedAndUnsubscribed) {
    const Peer peer = connect(client);
    ASSERT_EQ(client.registerInputParameter({"A", CSClient::TYPE_INT, 3}), 0);
    EXPECT_EQ(peer->receiveBody(),
              "04 02 7F FF 00 00 00 40 00 7F 00 01 00 05 00 00 00 00 00 01 "
              "00 01 D4 C0 00 01 D4 C0 00 00 00 01 "
              "41 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    peer->send(hexFrame(inputConfirmation(9, "A")));
    ASSERT_TRUE(callbacks.waitFor("updated A=float:1.5"));
    EXPECT_TRUE(client.isInputParameterRegistered("A"));
    peer->send(
        hexFrame("04 02 7F FF 00 00 00 24 00 7F 00 03 00 05 00 00 00 00 00 00 00 00 00 01 "
                 "00 00 00 09 00 00 00 01 FF FF FF FE"));
    EXPECT_TRUE(callbacks.waitFor("updated A=int:-2"));
    ASSERT_EQ(client.unregisterInputParameter("A"), 0);
    EXPECT_EQ(peer->receiveBody(), "04 02 7F FF 00 00 00 18 00 7F 00 04 00 05 00 00 00 00 00 01 00 00 00 09");
}

TEST_F(Wire, EmptyListsPutNothingOnTheWire) {
    const Peer peer = connect(client);
    EXPECT_EQ(client.registerOutputParameters(std::vector<CSClient::OutputDef>{}), 0);
    EXPECT_EQ(client.registerInputParameters(std::vector<CSClient::InputDef>{}), 0);
    EXPECT_EQ(client.publishParameters(std::vector<CSClient::Parameter>{}), 0);
    EXPECT_EQ(client.unregisterOutputParameters(nullptr, 0), 0);
    EXPECT_EQ(client.unregisterInputParameters(nullptr, 0), 0);
    client.unregisterAllOutputParameters();
    client.unregisterAllInputParameters();
    EXPECT_TRUE(peer->isQuietFor(std::chrono::milliseconds(200)));
}

TEST_F(Wire, AMessageOfTheApplicationsOwnIsSentAsItIs) {
    const Peer peer = connect(client);
    RawMessage message(RawMessage::DATA);
    message.write(0x01020304U);
    EXPECT_EQ(client.sendMessage(message), 0);
    EXPECT_EQ(peer->receiveFrame(),
              "00 00 00 24 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
              "01 02 03 04");
}

TEST_F(Wire, ParametersRegisteredBeforeOpenReachTheHostWithTheConnection) {
    ASSERT_EQ(client.registerOutputParameter({"A", CSClient::TYPE_FLOAT}), 0);
    ASSERT_EQ(client.publishParameter(floatParameter("A", 2.0F)), 0);
    const Peer peer = connect(client);
    EXPECT_EQ(peer->receiveBody(),
              "04 02 7F FF 00 00 00 3C 00 7F 00 02 00 05 00 00 00 00 00 01 00 00 04 B0 00 00 00 00 " + hexField("A"));
    peer->send(hexFrame(outputConfirmation(3, "A")));
    EXPECT_EQ(peer->receiveBody(),
              "04 02 7F FF 00 00 00 24 00 7F 00 03 00 05 00 00 00 00 00 00 00 00 00 01 "
              "00 00 00 03 00 00 00 00 40 00 00 00");
}

TEST_F(Wire, ClosingOnPurposeForgetsTheRegistrations) {
    const Peer peer = connect(client);
    client.registerOutputParameter({"A", CSClient::TYPE_FLOAT});
    peer->receiveFrame();
    ASSERT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
    const Peer again = connect(client);
    EXPECT_EQ(versionRequest, versionRequestOf("00 05 00 00"));
    EXPECT_TRUE(again->isQuietFor(std::chrono::milliseconds(200)));
}

// The worker writes what these queries read.
TEST_F(Wire, TheHostsVersionMayBeReadWhileItArrives) {
    const Peer peer = connect(client);
    std::atomic<bool> isOver{false};
    std::string strange;
    std::thread reader([&] {
        while (!isOver) {
            const std::string version = client.getServerVersion();
            const unsigned int protocol = client.getProtocolVersion();
            if ((version != "UNKNOWN" && version != "odd host" && version != "even host, with a longer text") ||
                protocol > 2) {
                strange = version + " " + std::to_string(protocol);
            }
        }
    });
    for (int i = 0; i < 100; ++i) {
        peer->send(hexFrame("04 02 7F FF 00 00 00 98 00 7F 01 06 00 05 00 00 " + hexField("odd host", 128) +
                            " 00 00 00 01 00 00 00 01"));
        peer->send(hexFrame("04 02 7F FF 00 00 00 98 00 7F 01 06 00 05 00 00 " +
                            hexField("even host, with a longer text", 128) + " 00 00 00 02 00 00 00 01"));
    }
    // Handled after all the others.
    peer->send(hexFrame("04 02 7F FF 00 00 00 14 00 7F 01 02 00 05 00 00 00 00 00 00"));
    EXPECT_TRUE(callbacks.waitFor("outputs confirmed"));
    isOver = true;
    reader.join();
    EXPECT_EQ(strange, "");
    EXPECT_EQ(client.getServerVersion(), "even host, with a longer text");
    EXPECT_EQ(client.getProtocolVersion(), 2U);
}

/// Asks for the host's version in every callback.
class AskingCallbacks : public RecordingCallbacks {
  public:
    explicit AskingCallbacks(const CSClient& asked) : client(asked) {}

  protected:
    void record(const std::string& line) override {
        RecordingCallbacks::record(line + " at " + client.getServerVersion() + " " +
                                   std::to_string(client.getProtocolVersion()));
    }

  private:
    const CSClient& client;
};

TEST_F(Wire, CallbacksMayAskForTheHostsVersion) {
    AskingCallbacks asking(client);
    client.addCallbackInterface(&asking);
    const Peer peer = connect(client);
    EXPECT_TRUE(asking.waitFor("state 2->4 at UNKNOWN 0"));
    peer->send(hexFrame("04 02 7F FF 00 00 00 98 00 7F 01 06 00 05 00 00 " + hexField("host", 128) +
                        " 00 00 00 03 00 00 00 01"));
    peer->send(hexFrame("04 02 7F FF 00 00 00 14 00 7F 01 02 00 05 00 00 00 00 00 00"));
    EXPECT_TRUE(asking.waitFor("outputs confirmed at host 3"));
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
    EXPECT_TRUE(asking.waitFor("state 3->0 at host 3"));
}

TEST_F(Wire, ASilentClientPrintsNothingInAWholeConversation) {
    const CapturedStreams streams;
    SimClient silent(5, CSClient::OPTION_SILENT);
    silent.registerOutputParameter({"A", CSClient::TYPE_FLOAT});
    const Peer peer = connect(silent);
    peer->send(hexFrame("04 02 7F FF 00 00 00 98 00 7F 01 06 00 05 00 00 " + hexField("host", 128) +
                        " 00 00 00 01 00 00 00 01"));
    peer->close();
    EXPECT_TRUE(silent.waitForConnectionState(CSClient::STATE_DISCONNECTED, 5));
    EXPECT_EQ(streams.out(), "");
    EXPECT_EQ(streams.err(), "");
}

}  // namespace
}  // namespace com_tesk::test
