#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <new>
#include <string>

#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

/// Throws as a failed allocation does, once.
class MemoryRunsOutOnce {
  public:
    void operator()() const {
        if (!thrown.exchange(true)) {
            throw std::bad_alloc();
        }
    }

  private:
    mutable std::atomic<bool> thrown{false};
};

class OutOfMemory : public testing::Test {
  protected:
    CapturedStreams captured;
    RecordingCallbacks callbacks;
};

TEST_F(OutOfMemory, WhileABodyIsReadIsAReadError) {
    ConnectionEngine engine;
    engine.connect();
    engine.addCallbackInterface(&callbacks);
    engine.probe().onRead = [](unsigned int count) {
        if (count != 32) {
            throw std::bad_alloc();
        }
    };
    engine.probe().queueFrame("01 02");
    EXPECT_NO_THROW(engine.receiveMessage());
    EXPECT_EQ(captured.err(), "EXIT: Read error.\n");
    EXPECT_EQ(callbacks.states(), "4->3");
    EXPECT_TRUE(engine.received().empty());
}

TEST_F(OutOfMemory, WhileAHeaderIsReadIsAReadError) {
    ConnectionEngine engine;
    engine.connect();
    engine.addCallbackInterface(&callbacks);
    engine.probe().onRead = [](unsigned int) { throw std::bad_alloc(); };
    EXPECT_NO_THROW(engine.receiveMessage());
    EXPECT_EQ(captured.err(), "EXIT: Read error.\n");
    EXPECT_EQ(callbacks.states(), "4->3");
}

TEST_F(OutOfMemory, InTheHandlerIsAReadError) {
    ConnectionEngine engine;
    engine.connect();
    engine.addCallbackInterface(&callbacks);
    engine.onMessage = [] { throw std::bad_alloc(); };
    engine.probe().queueFrame("01 02");
    EXPECT_NO_THROW(engine.receiveMessage());
    EXPECT_EQ(captured.err(), "EXIT: Read error.\n");
    EXPECT_EQ(callbacks.states(), "4->3");
}

TEST_F(OutOfMemory, OfASilentEngineClosesWithoutALine) {
    ConnectionEngine engine(kSilent);
    engine.connect();
    engine.onMessage = [] { throw std::bad_alloc(); };
    engine.probe().queueFrame("01 02");
    EXPECT_NO_THROW(engine.receiveMessage());
    EXPECT_EQ(captured.err() + captured.out(), "");
    EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING);
}

TEST_F(OutOfMemory, OnTheWorkerEndsTheConnectionAndNotTheProcess) {
    ConnectionEngine engine;
    EndOnExit end(engine);
    engine.addCallbackInterface(&callbacks);
    const auto runsOut = std::make_shared<MemoryRunsOutOnce>();
    engine.onMessage = [runsOut] { (*runsOut)(); };
    engine.probe().queueFrame("01 02");
    ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
    ASSERT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
    EXPECT_EQ(captured.err(), "EXIT: Read error.\n");
}

TEST_F(OutOfMemory, OnTheWorkerWithReconnectIsFollowedByANewConnection) {
    ConnectionEngine engine(kReconnect);
    EndOnExit end(engine);
    engine.addCallbackInterface(&callbacks);
    const auto runsOut = std::make_shared<MemoryRunsOutOnce>();
    engine.probe().onRead = [runsOut](unsigned int) { (*runsOut)(); };
    ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
    ASSERT_TRUE(callbacks.waitFor("state 2->4", 2));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->5 5->1 1->2 2->4");
    EXPECT_EQ(captured.err(), "EXIT: Read error.\n");
    EXPECT_EQ(captured.out(), "Attempting to reconnect...\n");
    engine.probe().queueFrame("01 02");
    EXPECT_TRUE(waitUntil([&engine] { return engine.received().size() == 1; }));
}

TEST_F(OutOfMemory, DuringTheChangeToReadyEndsTheConnectionAndNotTheProcess) {
    ConnectionEngine engine(kSilent);
    EndOnExit end(engine);
    engine.addCallbackInterface(&callbacks);
    engine.onVersionRequest = [] { throw std::bad_alloc(); };
    ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
    ASSERT_TRUE(waitForState(engine, CSClient::STATE_DISCONNECTED));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
    // No lock may be left behind.
    engine.onVersionRequest = nullptr;
    ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
    EXPECT_TRUE(waitForState(engine, CSClient::STATE_READY));
}

TEST_F(OutOfMemory, DuringTheChangeToReadyWithReconnectIsFollowedByANewConnection) {
    ConnectionEngine engine(kReconnect | kSilent);
    EndOnExit end(engine);
    engine.addCallbackInterface(&callbacks);
    const auto runsOut = std::make_shared<MemoryRunsOutOnce>();
    engine.onVersionRequest = [runsOut] { (*runsOut)(); };
    ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
    ASSERT_TRUE(callbacks.waitFor("state 2->4", 2));
    EXPECT_TRUE(waitUntil([&engine] { return engine.probe().written().size() == 1; }));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->5 5->1 1->2 2->4");
}

TEST_F(OutOfMemory, DuringTheChangeToConnectedWithReconnectIsFollowedByANewConnection) {
    ConnectionEngine engine(kReconnect | kSilent);
    EndOnExit end(engine);
    engine.addCallbackInterface(&callbacks);
    const auto runsOut = std::make_shared<MemoryRunsOutOnce>();
    engine.onStateChange = [runsOut](CSClient::State, CSClient::State newState) {
        if (newState == CSClient::STATE_CONNECTED) {
            (*runsOut)();
        }
    };
    ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
    ASSERT_TRUE(callbacks.waitFor("state 2->4", 1));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->1 1->2 2->4");
}

TEST_F(OutOfMemory, InTheTransportsConnectCountsAsAFailedAttempt) {
    ConnectionEngine engine(kReconnect | kSilent);
    EndOnExit end(engine);
    engine.addCallbackInterface(&callbacks);
    const auto runsOut = std::make_shared<MemoryRunsOutOnce>();
    engine.probe().onOpen = [runsOut] {
        (*runsOut)();
        return true;
    };
    ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
    ASSERT_TRUE(callbacks.waitFor("state 2->4"));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4");
}

TEST_F(OutOfMemory, InASendReachesTheCallerAndLeavesNoLockBehind) {
    ConnectionEngine engine(kSilent);
    engine.connect();
    const auto runsOut = std::make_shared<MemoryRunsOutOnce>();
    engine.probe().onWrite = [runsOut] { (*runsOut)(); };
    const CSClient::OutputDef output{"A", CSClient::TYPE_INT};
    EXPECT_THROW(engine.registerOutputParameters(&output, 1), std::bad_alloc);
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 1U);
    EXPECT_EQ(engine.sendMessage(messageOf(RawMessage::CONTROL, "01")), 0U);
    engine.forceCloseConnection();
    engine.changeState(CSClient::STATE_DISCONNECTED);
    EXPECT_TRUE(engine.changeCommsInterface(new ProbeTransport));
}

}  // namespace
}  // namespace com_tesk::test
