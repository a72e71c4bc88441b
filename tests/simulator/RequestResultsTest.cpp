#include <gtest/gtest.h>

#include <cerrno>

#include "tests/simulator/ReadyEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

using Input = CSClientProtocol::InputParameterEntry;
using Output = CSClientProtocol::OutputParameterEntry;

/// Calls each batch sender with one entry, and gives their results.
std::vector<int> batchResults(TestEngine& engine) {
    Input input{"I", CSClient::TYPE_FLOAT, 1, 7};
    Output output{"O", CSClient::TYPE_FLOAT, 8, false, {0.0F}};
    return {engine.sendInputSubscriptionRequest({&input}), engine.sendInputUnsubscriptionRequest({&input}),
            engine.sendOutputSubscriptionRequest({&output}), engine.sendOutputUnsubscriptionRequest({&output}),
            engine.sendParameterPublishRequest({&output}, CSClientProtocol::PUBLISH_DEFAULT)};
}

using Sender = std::function<int(TestEngine&)>;

/// All six.
std::vector<Sender> senders() {
    static Input input{"I", CSClient::TYPE_FLOAT, 1, 7};
    static Output output{"O", CSClient::TYPE_FLOAT, 8, false, {0.0F}};
    return {[](TestEngine& engine) { return engine.requestSimulatorVersion(); },
            [](TestEngine& engine) { return engine.sendInputSubscriptionRequest({&input}); },
            [](TestEngine& engine) { return engine.sendInputUnsubscriptionRequest({&input}); },
            [](TestEngine& engine) { return engine.sendOutputSubscriptionRequest({&output}); },
            [](TestEngine& engine) { return engine.sendOutputUnsubscriptionRequest({&output}); },
            [](TestEngine& engine) {
                return engine.sendParameterPublishRequest({&output}, CSClientProtocol::PUBLISH_DEFAULT);
            }};
}

TEST(RequestResults, EmptyBatchSendsNothingAndSucceeds) {
    ReadyEngine engine;
    EXPECT_EQ(0, engine.sendInputSubscriptionRequest({}));
    EXPECT_EQ(0, engine.sendInputUnsubscriptionRequest({}));
    EXPECT_EQ(0, engine.sendOutputSubscriptionRequest({}));
    EXPECT_EQ(0, engine.sendOutputUnsubscriptionRequest({}));
    EXPECT_EQ(0, engine.sendParameterPublishRequest({}, CSClientProtocol::PUBLISH_DEFAULT));
    EXPECT_EQ(Lines{}, engine.requests());
}

TEST(RequestResults, EmptyBatchDoesNotMeetAFailingTransport) {
    ReadyEngine engine;
    engine.fakeTransport().failWrites(-1, EPIPE);
    EXPECT_EQ(0, engine.sendInputSubscriptionRequest({}));
    EXPECT_EQ(0, engine.sendParameterPublishRequest({}, CSClientProtocol::PUBLISH_DEFAULT));
    EXPECT_EQ(CSClient::STATE_READY, engine.getState());
}

TEST(RequestResults, EveryRequestIsSentInBothConnectedStates) {
    for (const CSClient::State connected : {CSClient::STATE_CONNECTED, CSClient::STATE_READY}) {
        TestEngine engine(5, kSilent);
        engine.pretendState(connected);
        EXPECT_EQ(0, engine.requestSimulatorVersion());
        EXPECT_EQ(std::vector<int>(5, 0), batchResults(engine));
        EXPECT_EQ(6U, engine.fakeTransport().written().size());
    }
}

TEST(RequestResults, WithoutAConnectionBatchesSucceedAndSendNothing) {
    for (const CSClient::State state : {CSClient::STATE_DISCONNECTED, CSClient::STATE_CONNECTING,
                                        CSClient::STATE_DISCONNECTING, CSClient::STATE_RECONNECTING}) {
        CapturedStreams streams;
        TestEngine engine(5, kTalking);
        engine.pretendState(state);
        EXPECT_EQ(std::vector<int>(5, 0), batchResults(engine));
        EXPECT_EQ(Lines{}, engine.fakeTransport().written());
        EXPECT_EQ("", streams.out() + streams.err());
    }
}

TEST(RequestResults, WithoutAConnectionTheVersionRequestSaysSo) {
    for (const CSClient::State state : {CSClient::STATE_DISCONNECTED, CSClient::STATE_CONNECTING,
                                        CSClient::STATE_DISCONNECTING, CSClient::STATE_RECONNECTING}) {
        CapturedStreams streams;
        TestEngine engine(5, kTalking);
        engine.pretendState(state);
        EXPECT_EQ(1, engine.requestSimulatorVersion());
        EXPECT_EQ(Lines{}, engine.fakeTransport().written());
        EXPECT_EQ("", streams.out() + streams.err());
    }
}

TEST(RequestResults, FailedWriteGivesTwoAndOneLineAndOneClose) {
    for (const Sender& send : senders()) {
        CapturedStreams streams;
        Lines log;
        ActingCallbacks callbacks(log);
        ReadyEngine engine(5, kTalking);
        engine.addCallbackInterface(&callbacks);
        engine.fakeTransport().failWrites(-1, 32);
        EXPECT_EQ(2, send(engine));
        EXPECT_EQ("Error writing to server (32) \n", streams.err());
        EXPECT_EQ(1, streams.errInsertions());
        EXPECT_EQ(Lines{"state 3"}, log);
    }
}

TEST(RequestResults, SilentFailedWriteGivesTwoAndNoLine) {
    for (const Sender& send : senders()) {
        CapturedStreams streams;
        ReadyEngine engine(5, kSilent);
        engine.fakeTransport().failWrites(-1, 32);
        EXPECT_EQ(2, send(engine));
        EXPECT_EQ("", streams.out() + streams.err());
        EXPECT_EQ(CSClient::STATE_DISCONNECTING, engine.getState());
    }
}

TEST(RequestResults, ShortWriteIsAFailure) {
    ReadyEngine engine;
    // The version request is a frame of 52 bytes.
    engine.fakeTransport().failWrites(51, 0);
    EXPECT_EQ(2, engine.requestSimulatorVersion());
    EXPECT_EQ(CSClient::STATE_DISCONNECTING, engine.getState());
}

TEST(RequestResults, FailedRequestIsNotRetried) {
    ReadyEngine engine;
    int writes = 0;
    engine.fakeTransport().onWrite = [&writes] { ++writes; };
    engine.fakeTransport().failWrites(-1, 32);
    EXPECT_EQ(2, engine.requestSimulatorVersion());
    EXPECT_EQ(1, writes);
    EXPECT_EQ(1, engine.requestSimulatorVersion());
    EXPECT_EQ(1, writes);
}

TEST(RequestResults, SendersTakeNoEngineLock) {
    ReadyEngine engine;
    engine.withConnectionMutexHeld([&engine] {
        engine.withParameterMutexHeld([&engine] {
            EXPECT_EQ(0, engine.requestSimulatorVersion());
            EXPECT_EQ(std::vector<int>(5, 0), batchResults(engine));
        });
    });
    EXPECT_EQ(6U, engine.requests().size());
}

}  // namespace
}  // namespace com_tesk::test
