#include <gtest/gtest.h>

#include <dirent.h>

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "client/SimClient.h"
#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/ScriptedHost.h"
#include "tests/support/TransportUnderTest.h"

namespace com_tesk::test {
namespace {

/// Spins, so that the end is used the instant that it shows.
void awaitDisconnected(const CSClientProtocol& engine) {
    while (engine.getState() != CSClient::STATE_DISCONNECTED) {
        std::this_thread::yield();
    }
}

int threadsOfThisProcess() {
    int count = 0;
    DIR* const tasks = opendir("/proc/self/task");
    while (const dirent* const task = readdir(tasks)) {
        count += task->d_name[0] != '.';
    }
    closedir(tasks);
    return count;
}

/// Touches members of its own in every state change: a worker that still announces the end would touch them in an
/// object that is gone.
class TouchyEngine : public ConnectionEngine {
  public:
    TouchyEngine() : ConnectionEngine(kSilent) {}

    void handleConnectionStateChange(CSClient::State oldState, CSClient::State newState) override {
        history += std::to_string(oldState) + "->" + std::to_string(newState) + " ";
        ConnectionEngine::handleConnectionStateChange(oldState, newState);
        history += "done ";
    }

    std::string history;
};

TEST(EndOfAConnection, DerivedEngineMayBeDeletedAsSoonAsItIsSeen) {
    for (int round = 0; round < 300; ++round) {
        auto engine = std::make_unique<TouchyEngine>();
        ASSERT_EQ(engine->openConnection(1, 1, nullptr), 0);
        if (round % 2 == 0) {
            ASSERT_TRUE(waitForState(*engine, CSClient::STATE_READY));
        }
        engine->forceCloseConnection();
        awaitDisconnected(*engine);
        EXPECT_EQ(engine->history.substr(engine->history.size() - 10), "3->0 done ");
    }
}

TEST(EndOfAConnection, DerivedEngineMayBeDeletedByAThreadThatDidNotCloseIt) {
    for (int round = 0; round < 200; ++round) {
        auto engine = std::make_unique<TouchyEngine>();
        engine->probe().queueRead(0);
        ASSERT_EQ(engine->openConnection(1, 1, nullptr), 0);
        awaitDisconnected(*engine);
    }
}

TEST(EndOfAConnection, OpeningRightAfterItSucceedsAndIsNeverCancelled) {
    ConnectionEngine engine(kSilent);
    EndOnExit end(engine);
    for (int round = 0; round < 300; ++round) {
        ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0) << round;
        ASSERT_TRUE(waitForState(engine, CSClient::STATE_READY)) << round;
        engine.forceCloseConnection();
        awaitDisconnected(engine);
    }
}

TEST(EndOfAConnection, OpeningByAnotherThreadThatHasJustSeenItSucceeds) {
    ConnectionEngine engine(kSilent);
    EndOnExit end(engine);
    ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
    for (int round = 0; round < 100; ++round) {
        ASSERT_TRUE(waitForState(engine, CSClient::STATE_READY));
        auto opening = std::async(std::launch::async, [&engine] {
            awaitDisconnected(engine);
            return engine.openConnection(1, 1, nullptr);
        });
        engine.forceCloseConnection();
        ASSERT_EQ(opening.get(), 0) << round;
    }
}

TEST(EndOfAConnection, RegistrationRightAfterItStays) {
    ConnectionEngine engine(kSilent);
    EndOnExit end(engine);
    const CSClient::OutputDef before{"before", CSClient::TYPE_INT};
    const CSClient::OutputDef after{"after", CSClient::TYPE_INT};
    for (int round = 0; round < 200; ++round) {
        ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
        EXPECT_EQ(engine.registerOutputParameters(&before, 1), 0);
        engine.forceCloseConnection();
        awaitDisconnected(engine);
        ASSERT_EQ(engine.getNumberOfOutputParameters(false), 0U) << round;
        ASSERT_EQ(engine.registerOutputParameters(&after, 1), 0);
        // The next worker runs only after the old one is through with everything.
        ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
        ASSERT_TRUE(engine.hasOutputParameter("after", false)) << round;
        engine.forceCloseConnection();
        awaitDisconnected(engine);
    }
}

TEST(EndOfAConnection, IsSeenByOthersOnlyWhenTheCallbacksHaveReturned) {
    RecordingCallbacks callbacks;
    ConnectionEngine engine(kSilent);
    EndOnExit end(engine);
    engine.addCallbackInterface(&callbacks);
    const CSClient::OutputDef output{"A", CSClient::TYPE_INT};
    engine.registerOutputParameters(&output, 1);
    Latch announcing;
    Latch goOn;
    std::atomic<unsigned int> seenInside{99};
    engine.onStateChange = [&](CSClient::State, CSClient::State newState) {
        if (newState == CSClient::STATE_DISCONNECTED) {
            seenInside = engine.getState();
            announcing.open();
            goOn.wait();
        }
    };
    ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
    ASSERT_TRUE(waitForState(engine, CSClient::STATE_READY));
    engine.forceCloseConnection();
    ASSERT_TRUE(announcing.wait());
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
    EXPECT_EQ(seenInside, static_cast<unsigned int>(CSClient::STATE_DISCONNECTED));
    EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 1U) << "the tables are emptied after the callbacks";
    goOn.open();
    ASSERT_TRUE(waitForState(engine, CSClient::STATE_DISCONNECTED));
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 0U);
}

TEST(EndOfAConnection, LeavesNoThreadBehind) {
    ConnectionEngine engine(kSilent);
    const auto openAndClose = [&engine] {
        ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
        engine.forceCloseConnection();
        awaitDisconnected(engine);
    };
    // Whatever threads the tools of a build start of their own are there after the first round.
    const int before = threadsOfThisProcess();
    openAndClose();
    ASSERT_TRUE(waitUntil([before] { return threadsOfThisProcess() <= before + 1; }));
    for (int round = 0; round < 50; ++round) {
        openAndClose();
    }
    EXPECT_TRUE(waitUntil([before] { return threadsOfThisProcess() <= before + 1; }));
}

TEST(EndOfAClient, RegistrationAfterASuccessfulCloseStays) {
    ScriptedHost host;
    SimClient client(1, CSClient::OPTION_SILENT);
    useTransportUnderTest(client);
    RecordingCallbacks callbacks;
    client.addCallbackInterface(&callbacks);
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(client.open(ScriptedHost::address(), host.port(), nullptr), 0);
        const std::unique_ptr<ScriptedHost::Peer> peer = host.accept();
        ASSERT_TRUE(peer);
        EXPECT_EQ(peer->receiveFrame(), versionRequestFrame());
        ASSERT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
        EXPECT_EQ(callbacks.lines().back(), "state 3->0");
        EXPECT_EQ(client.getNumberOfUnregisteredOutputParameters(), 0);
        EXPECT_EQ(client.registerOutputParameter({"A", CSClient::TYPE_INT}), 0);
        EXPECT_EQ(client.getNumberOfUnregisteredOutputParameters(), 1);
        EXPECT_EQ(client.unregisterOutputParameter("A"), 0);
    }
}

TEST(EndOfAClient, DeletionClosesTheConnection) {
    ScriptedHost host;
    RecordingCallbacks callbacks;
    auto client = std::make_unique<SimClient>(1, CSClient::OPTION_AUTO_RECONNECT | CSClient::OPTION_SILENT);
    useTransportUnderTest(*client);
    client->addCallbackInterface(&callbacks);
    ASSERT_EQ(client->open(ScriptedHost::address(), host.port(), nullptr), 0);
    const std::unique_ptr<ScriptedHost::Peer> peer = host.accept();
    ASSERT_TRUE(peer);
    ASSERT_TRUE(callbacks.waitFor("state 2->4"));
    client.reset();
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
    EXPECT_TRUE(peer->waitForEnd());
}

}  // namespace
}  // namespace com_tesk::test
