#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "client/SimClient.h"
#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

/// An engine whose worker hangs in the transport's connect until the test lets it go on.
class HangingConnect : public testing::Test {
  protected:
    void open(unsigned int optionFlags, bool succeeds) {
        engine = std::make_unique<ConnectionEngine>(optionFlags);
        engine->addCallbackInterface(&callbacks);
        engine->probe().onOpen = [this, succeeds] {
            connecting.open();
            goOn.wait();
            return succeeds;
        };
        ASSERT_EQ(engine->openConnection(0x0100007F, 4711, nullptr), 0);
        ASSERT_TRUE(connecting.wait());
    }

    void TearDown() override {
        goOn.open();
        if (engine) {
            const EndOnExit end(*engine);
        }
    }

    CapturedStreams captured;
    RecordingCallbacks callbacks;
    Latch connecting;
    Latch goOn;
    std::unique_ptr<ConnectionEngine> engine;
};

TEST_F(HangingConnect, HoldsUpNoOtherThread) {
    open(kReconnect, true);
    const CSClient::OutputDef output{"A", CSClient::TYPE_INT};
    ProbeTransport other;
    const Stopwatch stopwatch;
    EXPECT_EQ(engine->getState(), CSClient::STATE_CONNECTING);
    EXPECT_EQ(engine->getServerIPAddress(), "127.0.0.1");
    EXPECT_EQ(engine->getServerPort(), 4711U);
    EXPECT_EQ(engine->getServerVersion(), "UNKNOWN");
    EXPECT_EQ(engine->openConnection(1, 1, nullptr), 2);
    EXPECT_FALSE(engine->changeCommsInterface(&other));
    EXPECT_EQ(engine->registerOutputParameters(&output, 1), 0);
    EXPECT_EQ(engine->getNumberOfOutputParameters(false), 1U);
    EXPECT_EQ(engine->sendMessage(messageOf(RawMessage::DATA, "01")), 1U);
    EXPECT_EQ(engine->getNumCallbackInterfaces(), 1);
    engine->forceCloseConnection();
    EXPECT_EQ(engine->getState(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(engine->getServerIPAddress(), "0.0.0.0");
    EXPECT_LT(stopwatch.seconds(), 2.0);
    EXPECT_EQ(callbacks.states(), "0->1 1->3");
}

TEST_F(HangingConnect, SuccessAfterAForcedCloseEndsDisconnectedAndSendsNothing) {
    for (const unsigned int optionFlags : {0U, kReconnect}) {
        RecordingCallbacks own;
        ConnectionEngine closed(optionFlags);
        EndOnExit end(closed);
        Latch inConnect;
        Latch succeed;
        closed.addCallbackInterface(&own);
        closed.probe().onOpen = [&] {
            inConnect.open();
            succeed.wait();
            return true;
        };
        ASSERT_EQ(closed.openConnection(0x0100007F, 4711, nullptr), 0);
        ASSERT_TRUE(inConnect.wait());
        closed.forceCloseConnection();
        EXPECT_EQ(closed.getState(), CSClient::STATE_DISCONNECTING);
        succeed.open();
        ASSERT_TRUE(waitForState(closed, CSClient::STATE_DISCONNECTED));
        EXPECT_EQ(own.states(), "0->1 1->3 3->0");
        EXPECT_TRUE(closed.probe().written().empty());
        EXPECT_GE(closed.probe().closeCount(), 1);
        EXPECT_EQ(closed.probe().openings().size(), 1U);
    }
    EXPECT_EQ(captured.out() + captured.err(), "");
}

TEST_F(HangingConnect, FailureAfterAForcedCloseEndsDisconnectedToo) {
    open(kReconnect, false);
    engine->forceCloseConnection();
    const Stopwatch stopwatch;
    goOn.open();
    ASSERT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
    EXPECT_LT(stopwatch.seconds(), 0.9) << "an ended connection is not waited for";
    EXPECT_EQ(callbacks.states(), "0->1 1->3 3->0");
    EXPECT_EQ(engine->probe().openings().size(), 1U);
}

TEST_F(HangingConnect, EngineWhoseConnectHungCanBeOpenedAgain) {
    open(kSilent, true);
    engine->forceCloseConnection();
    EXPECT_EQ(engine->openConnection(1, 1, nullptr), 2);
    goOn.open();
    ASSERT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
    EXPECT_EQ(engine->openConnection(0x0200007F, 4712, nullptr), 0);
    ASSERT_TRUE(waitForState(*engine, CSClient::STATE_READY));
    EXPECT_EQ(engine->probe().openings().at(1).address, 0x0200007FU);
}

TEST_F(HangingConnect, CloseConnectionWithReconnectSleepsOnItsOwnThreadOnly) {
    open(kReconnect | kSilent, true);
    const Stopwatch stopwatch;
    engine->closeConnection();
    EXPECT_TRUE(isOneSecond(stopwatch.seconds())) << stopwatch.seconds();
    EXPECT_EQ(engine->getState(), CSClient::STATE_CONNECTING);
    goOn.open();
    ASSERT_TRUE(waitForState(*engine, CSClient::STATE_READY));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4");
}

TEST_F(HangingConnect, RegistrationsMadeMeanwhileAreSentOnceConnected) {
    open(kSilent, true);
    const CSClient::OutputDef output{"A", CSClient::TYPE_INT};
    EXPECT_EQ(engine->registerOutputParameters(&output, 1), 0);
    goOn.open();
    ASSERT_TRUE(waitUntil([this] { return engine->probe().written().size() == 2; }));
    EXPECT_EQ(engine->probe().written().at(0), versionRequestFrame());
}

/// A client on a transport of the test's choice.
class ClientWithTransport : public SimClient {
  public:
    explicit ClientWithTransport(CSCommsInterfaceTCP* newTransport) : SimClient(1, OPTION_SILENT) {
        engine->changeCommsInterface(newTransport);
    }
};

TEST(HangingConnectOfAClient, CloseGivesUpAfterTwoSeconds) {
    Latch connecting;
    Latch goOn;
    auto* const probe = new ProbeTransport;
    probe->onOpen = [&] {
        connecting.open();
        goOn.wait();
        return true;
    };
    ClientWithTransport client(probe);
    ASSERT_EQ(client.open(0x0100007FU, 4711, nullptr), 0);
    EXPECT_TRUE(connecting.wait());
    const Stopwatch stopwatch;
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTING);
    EXPECT_LT(stopwatch.seconds(), 2.9);
    goOn.open();
    EXPECT_TRUE(client.waitForConnectionState(CSClient::STATE_DISCONNECTED, 5));
}

}  // namespace
}  // namespace com_tesk::test
