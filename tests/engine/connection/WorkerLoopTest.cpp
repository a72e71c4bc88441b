#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <chrono>
#include <future>
#include <string>
#include <vector>

#include "tests/client/CountedSleeps.h"
#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

TEST(ConnectionAttempt, HandsTheServerAndTheOptionsToTheTransport) {
    ConnectionEngine engine(kSilent);
    EndOnExit end(engine);
    CSClient::ConnectionOptions connectionOptions;
    connectionOptions.receiveBufferSize = 70001;
    connectionOptions.sendBufferSize = 70002;
    ASSERT_EQ(engine.openConnection(0x0201A8C0, 70000, &connectionOptions), 0);
    connectionOptions = {};
    ASSERT_TRUE(waitForState(engine, CSClient::STATE_READY));
    const std::vector<ProbeTransport::Opening> openings = engine.probe().openings();
    ASSERT_EQ(openings.size(), 1U);
    EXPECT_EQ(openings[0].address, 0x0201A8C0U);
    EXPECT_EQ(openings[0].port, 70000U);
    EXPECT_EQ(openings[0].options.receiveBufferSize, 70001U);
    EXPECT_EQ(openings[0].options.sendBufferSize, 70002U);
    EXPECT_EQ(engine.getServerIPAddress(), "192.168.1.2");
    EXPECT_EQ(engine.getServerPort(), 70000U);
}

TEST(ConnectionAttempt, TransportIsNotQuietEvenInSilentMode) {
    ConnectionEngine engine(kSilent);
    EXPECT_EQ(engine.connect(), 0);
    EXPECT_FALSE(engine.probe().openings().at(0).options.quiet);
}

TEST(ConnectionAttempt, WithoutOptionsTheBuffersAreTheSystems) {
    ConnectionEngine engine(kSilent);
    CSClient::ConnectionOptions connectionOptions;
    connectionOptions.receiveBufferSize = 70001;
    connectionOptions.sendBufferSize = 70002;
    for (const CSClient::ConnectionOptions* const given : {&connectionOptions, (CSClient::ConnectionOptions*)nullptr}) {
        EndOnExit end(engine);
        ASSERT_EQ(engine.openConnection(1, 1, given), 0);
        ASSERT_TRUE(waitForState(engine, CSClient::STATE_READY));
    }
    ASSERT_EQ(engine.probe().openings().size(), 2U);
    EXPECT_EQ(engine.probe().openings()[1].options.receiveBufferSize, 0U);
    EXPECT_EQ(engine.probe().openings()[1].options.sendBufferSize, 0U);
}

TEST(ConnectionAttempt, FailureWithoutReconnectEndsTheConnection) {
    const CapturedStreams captured;
    ConnectionEngine engine;
    RecordingCallbacks callbacks;
    engine.addCallbackInterface(&callbacks);
    engine.probe().onOpen = [] { return false; };
    EXPECT_EQ(engine.connect(), 2);
    EXPECT_EQ(callbacks.states(), "1->3");
    EXPECT_EQ(engine.getServerIPAddress(), "0.0.0.0");
    EXPECT_EQ(captured.out() + captured.err(), "");
}

TEST(ConnectionAttempt, FailureWithReconnectSleepsAndStaysConnecting) {
    const CapturedStreams captured;
    ConnectionEngine engine(kReconnect);
    RecordingCallbacks callbacks;
    engine.addCallbackInterface(&callbacks);
    engine.probe().onOpen = [] { return false; };
    const Stopwatch stopwatch;
    EXPECT_EQ(engine.connect(), 2);
    EXPECT_TRUE(isOneSecond(stopwatch.seconds())) << stopwatch.seconds();
    EXPECT_EQ(callbacks.states(), "");
    EXPECT_EQ(engine.getState(), CSClient::STATE_CONNECTING);
    EXPECT_EQ(engine.getServerIPAddress(), "127.0.0.1");
    EXPECT_EQ(captured.out() + captured.err(), "");
}

TEST(ConnectionAttempt, InAnotherStateTheTransportIsLeftAloneAndTheConnectionClosed) {
    for (const CSClient::State other :
         {CSClient::STATE_DISCONNECTED, CSClient::STATE_CONNECTED, CSClient::STATE_DISCONNECTING, CSClient::STATE_READY,
          CSClient::STATE_RECONNECTING}) {
        SCOPED_TRACE(other);
        ConnectionEngine engine(kSilent);
        engine.pretendState(other);
        EXPECT_EQ(engine.startConnection(), 2);
        EXPECT_TRUE(engine.probe().openings().empty());
        EXPECT_EQ(engine.getState(),
                  other == CSClient::STATE_DISCONNECTED ? CSClient::STATE_DISCONNECTED : CSClient::STATE_DISCONNECTING);
    }
}

TEST(WorkerLoop, WithoutAnEngineReturnsAtOnce) {
    EXPECT_EQ(CSClientProtocol::mainThread(nullptr), nullptr);
}

TEST(WorkerLoop, EndClosesTheTransportAndAnnouncesTheDisconnection) {
    ConnectionEngine engine(kSilent);
    RecordingCallbacks callbacks;
    engine.addCallbackInterface(&callbacks);
    const CSClient::OutputDef output{"A", CSClient::TYPE_INT};
    engine.registerOutputParameters(&output, 1);
    engine.pretendState(CSClient::STATE_DISCONNECTING);
    int closesWhenAnnounced = 0;
    engine.onStateChange = [&](CSClient::State, CSClient::State) { closesWhenAnnounced = engine.probe().closeCount(); };
    EXPECT_EQ(CSClientProtocol::mainThread(static_cast<CSClientProtocol*>(&engine)), nullptr);
    EXPECT_EQ(callbacks.states(), "3->0");
    EXPECT_EQ(closesWhenAnnounced, 1);
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 0U);
}

TEST(WorkerLoop, InStateReconnectingItSleepsASecondAndThenConnects) {
    ConnectionEngine engine(kReconnect | kSilent);
    engine.pretendState(CSClient::STATE_RECONNECTING);
    const Stopwatch stopwatch;
    auto running = std::async(std::launch::async,
                              [&engine] { CSClientProtocol::mainThread(static_cast<CSClientProtocol*>(&engine)); });
    EXPECT_TRUE(waitForState(engine, CSClient::STATE_READY));
    EXPECT_TRUE(isOneSecond(stopwatch.seconds())) << stopwatch.seconds();
    EXPECT_EQ(engine.probe().openings().size(), 1U);
    engine.forceCloseConnection();
    running.get();
}

TEST(WorkerLoop, InStateReconnectingARequestToCloseEndsTheSleep) {
    ConnectionEngine engine(kReconnect | kSilent);
    engine.pretendState(CSClient::STATE_RECONNECTING);
    const LongPauses pauses;
    auto running = std::async(std::launch::async,
                              [&engine] { CSClientProtocol::mainThread(static_cast<CSClientProtocol*>(&engine)); });
    ASSERT_TRUE(LongPauses::waitForOne());
    engine.forceCloseConnection();
    EXPECT_EQ(running.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    running.get();
    EXPECT_TRUE(engine.probe().openings().empty());
    EXPECT_TRUE(engine.probe().readCounts().empty());
}

TEST(WorkerLoop, ReadsFramesUntilTheConnectionEnds) {
    ConnectionEngine engine(kSilent);
    EndOnExit end(engine);
    for (const char* const body : {"01", "02", "03"}) {
        engine.probe().queueFrame(body);
    }
    ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
    ASSERT_TRUE(waitUntil([&engine] { return engine.received().size() == 3; }));
    EXPECT_EQ(engine.received(), (std::vector<std::string>{"1: 01", "1: 02", "1: 03"}));
}

}  // namespace
}  // namespace com_tesk::test
