#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/ScriptedHost.h"
#include "tests/support/TransportUnderTest.h"

namespace com_tesk::test {
namespace {

/// An engine with an input and an output, connected to a scripted host.
class ConnectionLoss : public testing::Test {
  protected:
    void open(unsigned int optionFlags) {
        engine = std::make_unique<SimulatorProtocol>(1, optionFlags);
        useTransportUnderTest(*engine);
        engine->addCallbackInterface(&callbacks);
        const CSClient::InputDef input{"A", CSClient::TYPE_FLOAT, 1};
        const CSClient::OutputDef output{"B", CSClient::TYPE_INT};
        EXPECT_EQ(engine->registerInputParameters(&input, 1), 0);
        EXPECT_EQ(engine->registerOutputParameters(&output, 1), 0);
        EXPECT_EQ(engine->openConnection(ScriptedHost::address(), host.port(), nullptr), 0);
        expectConnection();
    }

    /// The host accepts a connection and takes the version request and both registrations.
    void expectConnection() {
        peer = host.accept();
        ASSERT_TRUE(peer);
        EXPECT_EQ(peer->receiveFrame(), versionRequestFrame());
        EXPECT_EQ(peer->receiveBody(),
                  "04 02 7F FF 00 00 00 40 00 7F 00 01 00 01 00 00 00 00 00 01 "
                  "00 00 2E E0 00 00 2E E0 00 00 00 00 41 " +
                      hexField("", 31));
        EXPECT_EQ(peer->receiveBody(),
                  "04 02 7F FF 00 00 00 3C 00 7F 00 02 00 01 00 00 00 00 00 01 00 00 04 B0 00 00 00 01 42 " +
                      hexField("", 31));
    }

    void TearDown() override {
        if (engine) {
            const EndOnExit end(*engine);
        }
    }

    CapturedStreams captured;
    RecordingCallbacks callbacks;
    ScriptedHost host;
    std::unique_ptr<ScriptedHost::Peer> peer;
    std::unique_ptr<SimulatorProtocol> engine;
};

constexpr const char* kRegistrationLines =
    "Re-registering input/output parameters (1/1)...\n"
    "Registering input parameters with server...\n"
    "Registering output parameters with server...\n";

TEST_F(ConnectionLoss, WithoutReconnectEndsDisconnectedWithEmptyTables) {
    open(0);
    ASSERT_TRUE(peer);
    peer->close();
    EXPECT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
    EXPECT_EQ(engine->getNumberOfInputParameters(false), 0U);
    EXPECT_EQ(engine->getNumberOfOutputParameters(false), 0U);
    EXPECT_EQ(engine->getServerIPAddress(), "0.0.0.0");
    EXPECT_EQ(captured.err(), "Connection closed by server.\n");
    EXPECT_EQ(captured.out(), kRegistrationLines);
}

TEST_F(ConnectionLoss, WithReconnectIsFollowedByANewConnectionAndEveryRegistration) {
    open(kReconnect);
    ASSERT_TRUE(peer);
    peer->close();
    expectConnection();
    EXPECT_TRUE(callbacks.waitFor("state 2->4", 2));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->5 5->1 1->2 2->4");
    EXPECT_EQ(captured.err(), "Connection closed by server.\n");
    EXPECT_EQ(captured.out(), kRegistrationLines + std::string("Attempting to reconnect...\n") + kRegistrationLines);
    EXPECT_EQ(engine->getServerIPAddress(), "127.0.0.1");
    EXPECT_EQ(engine->getServerPort(), host.port());
}

TEST_F(ConnectionLoss, WithReconnectWaitsForAHostThatComesBackLater) {
    open(kReconnect | kSilent);
    ASSERT_TRUE(peer);
    host.stopListening();
    peer->close();
    ASSERT_TRUE(callbacks.waitFor("state 5->1"));
    EXPECT_FALSE(callbacks.waitFor("state 1->2", 2, std::chrono::milliseconds(2300)));
    EXPECT_EQ(engine->getState(), CSClient::STATE_CONNECTING);
    EXPECT_EQ(engine->getNumberOfInputParameters(false), 1U);
    host.listenAgain();
    expectConnection();
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->5 5->1 1->2 2->4");
}

TEST_F(ConnectionLoss, ByAResetIsFollowedByANewConnectionToo) {
    open(kReconnect);
    ASSERT_TRUE(peer);
    peer->reset();
    expectConnection();
    EXPECT_EQ(captured.err(),
              "Read error (104). Closing connection.\n"
              "Invalid header data received. Closing connection.\n");
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->5 5->1 1->2 2->4");
}

TEST_F(ConnectionLoss, SilentEnginePrintsNothingWhenTheConnectionIsLostAndMadeAgain) {
    open(kReconnect | kSilent);
    ASSERT_TRUE(peer);
    peer->send("00 00 00 2C 00 00 00 21 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF");
    EXPECT_TRUE(callbacks.waitFor("state 5->1"));
    peer->close();
    expectConnection();
    EXPECT_EQ(captured.out() + captured.err(), "");
}

TEST_F(ConnectionLoss, RepeatedInARowEndsConnectedAllTheSame) {
    open(kReconnect | kSilent);
    for (int round = 0; round < 4; ++round) {
        ASSERT_TRUE(peer);
        peer->close();
        expectConnection();
    }
    EXPECT_TRUE(callbacks.waitFor("state 2->4", 5));
    EXPECT_EQ(engine->getNumberOfInputParameters(false), 1U);
    EXPECT_EQ(engine->getNumberOfOutputParameters(false), 1U);
}

TEST_F(ConnectionLoss, ForcedCloseEndsTheStreamAndForgetsEverythingDespiteReconnect) {
    open(kReconnect | kSilent);
    ASSERT_TRUE(peer);
    engine->forceCloseConnection();
    EXPECT_TRUE(waitUntil([this] { return engine->getServerIPAddress() == "0.0.0.0"; }));
    EXPECT_TRUE(peer->waitForEnd());
    EXPECT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
    EXPECT_EQ(engine->getNumberOfInputParameters(false), 0U);
    EXPECT_EQ(engine->getNumberOfOutputParameters(false), 0U);
}

}  // namespace
}  // namespace com_tesk::test
