#include "tests/engine/connection/ThreadCreation.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <string>

#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

const CSClient::OutputDef kAnyOutput{"A", CSClient::TYPE_INT};

/// Opens while no thread can be started.
int openWithoutThread(ConnectionEngine& engine) {
    const NoMoreThreads none;
    return engine.openConnection(0x0100007F, 4711, nullptr);
}

TEST(FailedThreadCreation, WithoutReconnectLeavesTheEngineDisconnecting) {
    const CapturedStreams captured;
    RecordingCallbacks callbacks;
    ConnectionEngine engine;
    engine.addCallbackInterface(&callbacks);
    EXPECT_EQ(engine.registerOutputParameters(&kAnyOutput, 1), 0);
    const int refusals = NoMoreThreads::refusals();
    const Stopwatch stopwatch;
    EXPECT_EQ(openWithoutThread(engine), 2);
    EXPECT_LT(stopwatch.seconds(), 0.9);
    EXPECT_EQ(NoMoreThreads::refusals(), refusals + 1);
    EXPECT_EQ(callbacks.states(), "0->1 1->3");
    EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(engine.getServerIPAddress(), "0.0.0.0");
    EXPECT_EQ(engine.getServerPort(), 0U);
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 1U);
    EXPECT_EQ(captured.out() + captured.err(), "");
}

TEST(FailedThreadCreation, WithReconnectLeavesTheEngineConnectingAfterASecond) {
    const CapturedStreams captured;
    RecordingCallbacks callbacks;
    ConnectionEngine engine(kReconnect);
    engine.addCallbackInterface(&callbacks);
    const Stopwatch stopwatch;
    EXPECT_EQ(openWithoutThread(engine), 2);
    EXPECT_TRUE(isOneSecond(stopwatch.seconds())) << stopwatch.seconds();
    EXPECT_EQ(callbacks.states(), "0->1");
    EXPECT_EQ(engine.getState(), CSClient::STATE_CONNECTING);
    EXPECT_EQ(engine.getServerIPAddress(), "127.0.0.1");
    EXPECT_EQ(engine.getServerPort(), 4711U);
    EXPECT_EQ(captured.out() + captured.err(), "");
}

TEST(FailedThreadCreation, NobodyLeavesTheStateThatItEndsIn) {
    for (const unsigned int optionFlags : {kSilent, kReconnect | kSilent}) {
        ConnectionEngine engine(optionFlags);
        EXPECT_EQ(openWithoutThread(engine), 2);
        const CSClient::State left = engine.getState();
        EXPECT_EQ(engine.openConnection(1, 1, nullptr), 2);
        ProbeTransport other;
        EXPECT_FALSE(engine.changeCommsInterface(&other));
        EXPECT_EQ(engine.getState(), left);
        EXPECT_TRUE(engine.probe().openings().empty());
        EXPECT_EQ(engine.probe().closeCount(), 0);
    }
}

TEST(FailedThreadCreation, ForcedCloseAfterwardsRequestsAnEndThatNobodyCarriesOut) {
    RecordingCallbacks callbacks;
    ConnectionEngine engine(kReconnect | kSilent);
    engine.addCallbackInterface(&callbacks);
    EXPECT_EQ(openWithoutThread(engine), 2);
    engine.forceCloseConnection();
    EXPECT_EQ(callbacks.states(), "0->1 1->3");
    EXPECT_EQ(engine.getServerIPAddress(), "0.0.0.0");
}

TEST(FailedThreadCreation, WithReconnectItsSecondIsSleptWithoutAnyLock) {
    RecordingCallbacks callbacks;
    ConnectionEngine engine(kReconnect | kSilent);
    engine.addCallbackInterface(&callbacks);
    std::atomic<bool> returned{false};
    const int refusals = NoMoreThreads::refusals();
    const auto opening = std::async(std::launch::async, [&] {
        EXPECT_EQ(openWithoutThread(engine), 2);
        returned = true;
    });
    ASSERT_TRUE(waitUntil([refusals] { return NoMoreThreads::refusals() == refusals + 1; }));
    EXPECT_EQ(engine.openConnection(1, 1, nullptr), 2);
    EXPECT_EQ(engine.registerOutputParameters(&kAnyOutput, 1), 0);
    EXPECT_FALSE(returned) << "a lock was held during the sleep";
    engine.forceCloseConnection();
    EXPECT_EQ(callbacks.states(), "0->1 1->3");
}

}  // namespace
}  // namespace com_tesk::test
