#include <thread>

#include "tests/engine/connection/ConnectionFixtures.h"

namespace com_tesk::test {
namespace {

/// An engine with an input and an output, connected to a scripted host.
class ConnectionLoss : public HostTest {
  protected:
    void openWithBoth(unsigned int optionFlags) {
        createForHost(optionFlags);
        EXPECT_EQ(engine->registerInputs({input("A")}), 0);
        EXPECT_EQ(engine->registerOutputs({output("B", CSClient::TYPE_INT)}), 0);
        openToHost();
        acceptWithBoth();
    }

    /// The host accepts a connection and receives the version request and both registrations.
    void acceptWithBoth() {
        accept();
        EXPECT_EQ(peer->receiveBody(),
                  "04 02 7F FF 00 00 00 40 00 7F 00 01 00 01 00 00 00 00 00 01 "
                  "00 00 2E E0 00 00 2E E0 00 00 00 00 41 " +
                      hexField("", 31));
        EXPECT_EQ(peer->receiveBody(),
                  "04 02 7F FF 00 00 00 3C 00 7F 00 02 00 01 00 00 00 00 00 01 00 00 04 B0 00 00 00 01 42 " +
                      hexField("", 31));
    }

    void expectTables(unsigned int entries) {
        EXPECT_EQ(engine->getNumberOfInputParameters(false), entries);
        EXPECT_EQ(engine->getNumberOfOutputParameters(false), entries);
    }
};

TEST_F(ConnectionLoss, WithoutReconnectEndsDisconnectedWithEmptyTables) {
    openWithBoth(0);
    peer->close();
    EXPECT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
    expectEvents("0->1 1->2 2->4 4->3 3->0", "Connection closed by server.\n", kRegistrationLines);
    expectTables(0);
    EXPECT_EQ(engine->getServerIPAddress(), "0.0.0.0");
}

TEST_F(ConnectionLoss, WithReconnectIsFollowedByANewConnectionWithEveryRegistration) {
    openWithBoth(kReconnect);
    peer->close();
    acceptWithBoth();
    EXPECT_TRUE(callbacks->waitFor("state 2->4", 2));
    expectEvents("0->1 1->2 2->4 4->5 5->1 1->2 2->4", "Connection closed by server.\n",
                 std::string(kRegistrationLines) + kReconnectLine + kRegistrationLines);
    EXPECT_EQ(engine->getServerIPAddress(), "127.0.0.1");
    EXPECT_EQ(engine->getServerPort(), host.port());
}

TEST_F(ConnectionLoss, WithReconnectWaitsForAHostThatListensAgainLater) {
    openWithBoth(kReconnect | kSilent);
    host.stopListening();
    // The engine refuses the frame and prints nothing.
    peer->send("00 00 00 2C 00 00 00 21 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF");
    ASSERT_TRUE(callbacks->waitFor("state 5->1"));
    EXPECT_FALSE(callbacks->waitFor("state 1->2", 2, std::chrono::milliseconds(1200)));
    EXPECT_EQ(engine->getState(), CSClient::STATE_CONNECTING);
    expectTables(1);
    host.listenAgain();
    acceptWithBoth();
    expectEvents("0->1 1->2 2->4 4->5 5->1 1->2 2->4");
}

TEST_F(ConnectionLoss, ByAForcedCloseEndsTheStreamAndErasesEverything) {
    openWithBoth(kReconnect | kSilent);
    engine->forceCloseConnection();
    EXPECT_TRUE(peer->waitForEnd());
    EXPECT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
    expectEvents("0->1 1->2 2->4 4->3 3->0");
    EXPECT_EQ(engine->getServerIPAddress(), "0.0.0.0");
    expectTables(0);
}

/// Yields, so that the end is seen as soon as it is visible.
void awaitDisconnected(const CSClientProtocol& engine) {
    while (engine.getState() != CSClient::STATE_DISCONNECTED) {
        std::this_thread::yield();
    }
}

using EndOfAConnection = ConnectionTest;

/// Uses a member in every state change, which a worker must not do after the object is gone.
class DerivedEngine : public TestEngine {
  public:
    DerivedEngine() : TestEngine(1, kSilent) {}

    void handleConnectionStateChange(CSClient::State oldState, CSClient::State newState) override {
        history += std::to_string(oldState) + "->" + std::to_string(newState) + " ";
        TestEngine::handleConnectionStateChange(oldState, newState);
        history += "done ";
    }

    std::string history;
};

TEST_F(EndOfAConnection, DerivedEngineMayBeDeletedAsSoonAsItIsSeen) {
    for (int round = 0; round < 500; ++round) {
        DerivedEngine own;
        const bool isClosedByHost = round % 5 < 2;
        if (isClosedByHost) {
            own.fakeTransport().queueRead(0);
        }
        ASSERT_EQ(own.openConnection(1, 1, nullptr), 0);
        if (round % 5 == 2) {
            ASSERT_TRUE(waitForState(own, CSClient::STATE_READY));
        }
        if (!isClosedByHost) {
            own.forceCloseConnection();
        }
        awaitDisconnected(own);
        EXPECT_EQ(own.history.substr(own.history.size() - 10), "3->0 done ");
    }
}

TEST_F(EndOfAConnection, RegistrationAndOpeningRightAfterItSucceedOnAnyThread) {
    create();
    for (int round = 0; round < 200; ++round) {
        SCOPED_TRACE(round);
        open();
        if (round % 3 == 0) {
            ASSERT_TRUE(waitForState(*engine, CSClient::STATE_READY));
        }
        EXPECT_EQ(engine->registerOutputs({output("before")}), 0);
        const auto useAgain = [this] {
            awaitDisconnected(*engine);
            EXPECT_EQ(engine->getNumberOfOutputParameters(false), 0U);
            EXPECT_EQ(engine->registerOutputs({output("after")}), 0);
            // The next worker starts after the previous one has released the lock.
            EXPECT_EQ(engine->openConnection(1, 1, nullptr), 0);
            EXPECT_TRUE(engine->hasOutputParameter("after", false));
        };
        auto nextUse = std::async(round % 2 == 0 ? std::launch::async : std::launch::deferred, useAgain);
        engine->forceCloseConnection();
        nextUse.get();
        engine->forceCloseConnection();
        awaitDisconnected(*engine);
    }
}

TEST_F(EndOfAConnection, IsSeenByOthersOnlyWhenTheCallbacksHaveReturned) {
    create();
    EXPECT_EQ(engine->registerOutputs({output("A")}), 0);
    std::atomic<unsigned int> stateInside{99};
    engine->onStateChange = [&](CSClient::State, CSClient::State newState) {
        if (newState == CSClient::STATE_DISCONNECTED) {
            stateInside = engine->getState();
            gate.pass();
        }
    };
    const EndOnExit end(*engine);
    open();
    ASSERT_TRUE(waitForState(*engine, CSClient::STATE_READY));
    engine->forceCloseConnection();
    ASSERT_TRUE(gate.waitUntilReached());
    EXPECT_EQ(callbacks->states(), "0->1 1->2 2->4 4->3 3->0");
    EXPECT_EQ(stateInside, static_cast<unsigned int>(CSClient::STATE_DISCONNECTED));
    EXPECT_EQ(engine->getState(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(engine->getNumberOfOutputParameters(false), 1U) << "the tables are emptied after the callbacks";
    gate.open();
    ASSERT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
    EXPECT_EQ(engine->getNumberOfOutputParameters(false), 0U);
}

}  // namespace
}  // namespace com_tesk::test
