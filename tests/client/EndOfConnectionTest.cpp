#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "tests/client/CountedSleeps.h"
#include "tests/client/GatedTransport.h"
#include "tests/client/ProbedClient.h"
#include "tests/client/Stopwatch.h"
#include "tests/support/RecordingCallbacks.h"

// What whoever has seen state 0 may rely on. Nothing here sleeps a whole second: the state itself is watched.

namespace com_tesk::test {
namespace {

constexpr int kRounds = 40;

/// Takes its time over the end of the connection.
class SlowCallbacks : public RecordingCallbacks {
  public:
    explicit SlowCallbacks(const CSClient& ending) : client(ending) {}

    void connectionStateChanged(CSClient::State oldState, CSClient::State newState) override {
        if (newState == CSClient::STATE_DISCONNECTED) {
            stateSeenInside = client.getConnectionState();
            gate.pass();
        }
        RecordingCallbacks::connectionStateChanged(oldState, newState);
    }

    const CSClient& client;
    Gate gate;
    std::atomic<CSClient::State> stateSeenInside{CSClient::STATE_RECONNECTING};
};

class EndOfConnection : public testing::Test {
  protected:
    static void openAndGetReady(CSClient& client) {
        ASSERT_EQ(client.open(kAnyAddress, 1, nullptr), 0);
        ASSERT_TRUE(spinUntilState(client, CSClient::STATE_READY));
    }
};

TEST_F(EndOfConnection, CloseReturnsZeroOnlyAfterTheLastCallbackHasReturned) {
    ProbedClient client;
    SlowCallbacks callbacks(client);
    client.addCallbackInterface(&callbacks);
    openAndGetReady(client);
    const CountedSleeps sleeps([&](int sleep) {
        if (sleep == 1) {
            EXPECT_TRUE(callbacks.gate.waitUntilReached());
            EXPECT_EQ(client.getConnectionState(), CSClient::STATE_DISCONNECTING);
        } else {
            callbacks.gate.open();
            EXPECT_TRUE(spinUntilState(client, CSClient::STATE_DISCONNECTED));
        }
    });
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(sleeps.count(), 2);
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
}

TEST_F(EndOfConnection, CloseDoesNotReturnZeroWhileTheLastCallbackRuns) {
    ProbedClient client;
    SlowCallbacks callbacks(client);
    client.addCallbackInterface(&callbacks);
    openAndGetReady(client);
    const CountedSleeps sleeps([&](int /*sleep*/) { EXPECT_TRUE(callbacks.gate.waitUntilReached()); });
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTING);
    callbacks.gate.open();
    EXPECT_TRUE(spinUntilState(client, CSClient::STATE_DISCONNECTED));
}

TEST_F(EndOfConnection, TheLastCallbackItselfSeesStateZero) {
    ProbedClient client;
    SlowCallbacks callbacks(client);
    client.addCallbackInterface(&callbacks);
    callbacks.gate.open();
    openAndGetReady(client);
    client.close();
    EXPECT_EQ(callbacks.stateSeenInside, CSClient::STATE_DISCONNECTED);
}

TEST_F(EndOfConnection, WhenCloseReturnsZeroTheTablesAreEmpty) {
    ProbedClient client;
    openAndGetReady(client);
    client.registerOutputParameter({"A", CSClient::TYPE_FLOAT});
    client.registerInputParameter({"B", CSClient::TYPE_FLOAT, 1});
    ASSERT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(client.getNumberOfUnregisteredOutputParameters(), 0);
    EXPECT_EQ(client.getNumberOfUnregisteredInputParameters(), 0);
    CSClient::Parameter parameter;
    EXPECT_FALSE(client.findPublishedParameter("A", parameter));
}

TEST_F(EndOfConnection, ARegistrationMadeAfterStateZeroWasSeenStays) {
    for (int round = 0; round < kRounds; ++round) {
        ProbedClient client;
        openAndGetReady(client);
        client.registerOutputParameter({"old", CSClient::TYPE_FLOAT});
        client.probed->forceCloseConnection();
        ASSERT_TRUE(spinUntilState(client, CSClient::STATE_DISCONNECTED));
        EXPECT_EQ(client.registerOutputParameter({"new", CSClient::TYPE_FLOAT}), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        std::vector<CSClient::Parameter> all;
        client.getAllPublishedParameters(all);
        ASSERT_EQ(all.size(), 1U) << "round " << round;
        ASSERT_EQ(all[0].name, "new");
    }
}

TEST_F(EndOfConnection, OpenRightAfterStateZeroWasSeenSucceeds) {
    ProbedClient client;
    for (int round = 0; round < kRounds; ++round) {
        openAndGetReady(client);
        client.probed->forceCloseConnection();
        ASSERT_TRUE(spinUntilState(client, CSClient::STATE_DISCONNECTED)) << "round " << round;
    }
    openAndGetReady(client);
    EXPECT_EQ(client.getServerPort(), 1U);
}

TEST_F(EndOfConnection, TheClientMayBeDeletedAsSoonAsStateZeroIsSeen) {
    for (int round = 0; round < kRounds; ++round) {
        RecordingCallbacks callbacks;
        auto client = std::make_unique<ProbedClient>();
        client->addCallbackInterface(&callbacks);
        openAndGetReady(*client);
        client->probed->forceCloseConnection();
        ASSERT_TRUE(spinUntilState(*client, CSClient::STATE_DISCONNECTED)) << "round " << round;
        client.reset();
        EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
    }
}

TEST_F(EndOfConnection, AClientCanBeOpenedAndClosedAgain) {
    RecordingCallbacks callbacks;
    ProbedClient client;
    client.addCallbackInterface(&callbacks);
    for (int round = 0; round < 3; ++round) {
        openAndGetReady(client);
        ASSERT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
    }
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->3 3->0 0->1 1->2 2->4 4->3 3->0 0->1 1->2 2->4 4->3 3->0");
}

}  // namespace
}  // namespace com_tesk::test
