#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

const CSClient::InputDef kInput{"I", CSClient::TYPE_FLOAT, 1};
const CSClient::OutputDef kOutput{"O", CSClient::TYPE_INT};

constexpr const char* kRegistrationLines =
    "Re-registering input/output parameters (1/1)...\n"
    "Registering input parameters with server...\n"
    "Registering output parameters with server...\n";

/// Publishes the output "O" in chosen state changes and writes down what it got, as "2:0".
class PublishingCallbacks : public RecordingCallbacks {
  public:
    PublishingCallbacks(ConnectionEngine& engineToUse, std::vector<CSClient::State> statesToPublishIn)
        : engine(engineToUse), publishIn(std::move(statesToPublishIn)) {}

    void connectionStateChanged(CSClient::State oldState, CSClient::State newState) override {
        RecordingCallbacks::connectionStateChanged(oldState, newState);
        for (const CSClient::State chosen : publishIn) {
            if (newState == chosen) {
                const CSClient::Parameter parameter{"O", {}, CSClient::TYPE_INT, 0};
                const int result = engine.publishParameters(&parameter, 1, CSClientProtocol::PUBLISH_DEFAULT);
                results += std::to_string(newState) + ":" + std::to_string(result) + " ";
            }
        }
    }

    std::string results;

  private:
    ConnectionEngine& engine;
    std::vector<CSClient::State> publishIn;
};

class FailedWriteInStateChange : public testing::Test {
  protected:
    void registerBoth(ConnectionEngine& engine) {
        EXPECT_EQ(engine.registerInputParameters(&kInput, 1), 0);
        EXPECT_EQ(engine.registerOutputParameters(&kOutput, 1), 0);
        engine.addCallbackInterface(&callbacks);
    }

    /// Has the write with this number, counted from 1, fail.
    static void failWriteNumber(ConnectionEngine& engine, int number) {
        ProbeTransport& probe = engine.probe();
        auto count = std::make_shared<int>(0);
        probe.onWrite = [&probe, number, count] {
            if (++*count == number) {
                probe.failWrites(-1, EPIPE);
            }
        };
    }

    CapturedStreams captured;
    RecordingCallbacks callbacks;
};

/// The failed write is the version request (1), the input registration (2) or the output registration (3).
class FailedRequestOnReady : public FailedWriteInStateChange, public testing::WithParamInterface<int> {};

TEST_P(FailedRequestOnReady, WithoutReconnectClosesOnceAfterTheStateChange) {
    ConnectionEngine engine;
    registerBoth(engine);
    failWriteNumber(engine, GetParam());
    EXPECT_EQ(engine.connect(), 0);
    EXPECT_EQ(captured.err(), kBrokenPipeLine);
    EXPECT_EQ(captured.errInsertions(), 1);
    EXPECT_EQ(captured.out(), kRegistrationLines);
    EXPECT_EQ(callbacks.states(), "1->2 2->4 4->3");
    EXPECT_EQ(engine.getServerIPAddress(), "0.0.0.0");
    EXPECT_EQ(engine.probe().written().size(), static_cast<std::size_t>(GetParam() - 1))
        << "nothing may be written between the failure and the close";
    EXPECT_EQ(engine.getNumberOfInputParameters(false), 1U);
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 1U);
}

TEST_P(FailedRequestOnReady, WithReconnectSleepsOneSecondHoldingNoLock) {
    ConnectionEngine engine(kReconnect);
    registerBoth(engine);
    failWriteNumber(engine, GetParam());
    std::atomic<bool> returned{false};
    auto connecting = std::async(std::launch::async, [&] {
        const Stopwatch stopwatch;
        EXPECT_EQ(engine.connect(), 0);
        returned = true;
        return stopwatch.seconds();
    });
    ASSERT_TRUE(callbacks.waitFor("state 5->1"));
    const CSClient::OutputDef second{"O2", CSClient::TYPE_INT};
    EXPECT_EQ(engine.registerOutputParameters(&second, 1), 0);
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 2U);
    EXPECT_EQ(engine.openConnection(1, 1, nullptr), 2);
    EXPECT_EQ(engine.getState(), CSClient::STATE_CONNECTING);
    EXPECT_FALSE(returned) << "a lock was held during the sleep";
    const double seconds = connecting.get();
    EXPECT_TRUE(isOneSecond(seconds)) << seconds;
    EXPECT_EQ(captured.err(), kBrokenPipeLine);
    EXPECT_EQ(captured.out(), kRegistrationLines + std::string("Attempting to reconnect...\n"));
    EXPECT_EQ(callbacks.states(), "1->2 2->4 4->5 5->1");
    EXPECT_EQ(engine.getServerIPAddress(), "127.0.0.1");
}

INSTANTIATE_TEST_SUITE_P(Write, FailedRequestOnReady, testing::Values(1, 2, 3), testing::PrintToStringParamName());

TEST_F(FailedWriteInStateChange, WorkerConnectsAgainAfterAFailedVersionRequest) {
    ConnectionEngine engine(kReconnect | kSilent);
    registerBoth(engine);
    failWriteNumber(engine, 1);
    EndOnExit end(engine);
    ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
    ASSERT_TRUE(callbacks.waitFor("state 2->4", 2));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->5 5->1 1->2 2->4");
    EXPECT_TRUE(waitUntil([&engine] { return engine.probe().written().size() == 3; }));
    EXPECT_EQ(engine.probe().written().at(0), versionRequestFrame());
}

TEST_F(FailedWriteInStateChange, WorkerEndsAfterAFailedVersionRequestWithoutReconnect) {
    ConnectionEngine engine(kSilent);
    registerBoth(engine);
    failWriteNumber(engine, 1);
    EndOnExit end(engine);
    ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
    ASSERT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
}

TEST_F(FailedWriteInStateChange, OnlyTheCloseIsOwedWhenEveryFurtherWriteWouldFailToo) {
    ConnectionEngine engine;
    registerBoth(engine);
    engine.probe().failWrites(-1, EPIPE, 10);
    EXPECT_EQ(engine.connect(), 0);
    EXPECT_EQ(captured.err(), kBrokenPipeLine);
    EXPECT_EQ(callbacks.states(), "1->2 2->4 4->3");
}

TEST_F(FailedWriteInStateChange, CallbackThatPublishesOnReadyFailsOnceAndNothingMoreIsSent) {
    ConnectionEngine engine;
    registerBoth(engine);
    PublishingCallbacks publishing(engine, {CSClient::STATE_READY});
    engine.addCallbackInterface(&publishing);
    failWriteNumber(engine, 1);
    EXPECT_EQ(engine.connect(), 0);
    EXPECT_EQ(publishing.results, "4:2 ");
    EXPECT_EQ(captured.err(), kBrokenPipeLine);
    EXPECT_TRUE(engine.probe().written().empty()) << "the version request finds no connection any more";
    EXPECT_EQ(callbacks.states(), "1->2 2->4 4->3");
}

TEST_F(FailedWriteInStateChange, CallbackThatPublishesOnConnectedFailsOnceAndReadyIsStillPassed) {
    ConnectionEngine engine;
    registerBoth(engine);
    PublishingCallbacks publishing(engine, {CSClient::STATE_CONNECTED, CSClient::STATE_READY});
    engine.addCallbackInterface(&publishing);
    failWriteNumber(engine, 1);
    EXPECT_EQ(engine.connect(), 0);
    EXPECT_EQ(publishing.results, "2:2 4:0 ") << "without a connection a publication counts as stored";
    EXPECT_EQ(captured.err(), kBrokenPipeLine);
    EXPECT_EQ(callbacks.states(), "1->2 2->4 4->3");
    EXPECT_TRUE(engine.probe().written().empty());
}

TEST_F(FailedWriteInStateChange, CallbackThatPublishesWithReconnectSleepsOnceAfterTheStateChange) {
    ConnectionEngine engine(kReconnect);
    registerBoth(engine);
    PublishingCallbacks publishing(engine, {CSClient::STATE_READY, CSClient::STATE_RECONNECTING});
    engine.addCallbackInterface(&publishing);
    failWriteNumber(engine, 1);
    const Stopwatch stopwatch;
    EXPECT_EQ(engine.connect(), 0);
    EXPECT_TRUE(isOneSecond(stopwatch.seconds())) << stopwatch.seconds();
    EXPECT_EQ(publishing.results, "4:2 5:0 ");
    EXPECT_EQ(captured.err(), kBrokenPipeLine);
    EXPECT_EQ(captured.out(), kRegistrationLines + std::string("Attempting to reconnect...\n"));
    EXPECT_EQ(callbacks.states(), "1->2 2->4 4->5 5->1");
}

TEST_F(FailedWriteInStateChange, FurtherSendsOfTheCallbackReportNotConnected) {
    ConnectionEngine engine;
    engine.addCallbackInterface(&callbacks);
    std::vector<unsigned int> results;
    engine.onStateChange = [&](CSClient::State, CSClient::State newState) {
        if (newState == CSClient::STATE_READY) {
            for (int i = 0; i < 3; ++i) {
                results.push_back(engine.sendMessage(messageOf(RawMessage::CONTROL, "01")));
            }
        }
    };
    failWriteNumber(engine, 1);
    EXPECT_EQ(engine.connect(), 0);
    EXPECT_EQ(results, (std::vector<unsigned int>{2, 1, 1}));
    EXPECT_EQ(captured.err(), kBrokenPipeLine);
    EXPECT_EQ(callbacks.states(), "1->2 2->4 4->3");
}

TEST_F(FailedWriteInStateChange, CallbacksOfTheOwedCloseFindNoConnection) {
    ConnectionEngine engine;
    registerBoth(engine);
    PublishingCallbacks publishing(engine, {CSClient::STATE_READY, CSClient::STATE_DISCONNECTING});
    engine.addCallbackInterface(&publishing);
    failWriteNumber(engine, 1);
    EXPECT_EQ(engine.connect(), 0);
    EXPECT_EQ(publishing.results, "4:2 3:0 ");
    EXPECT_EQ(captured.err(), kBrokenPipeLine);
}

TEST_F(FailedWriteInStateChange, NextConnectionIsNotTakenForTheFailedOne) {
    ConnectionEngine engine(kReconnect | kSilent);
    registerBoth(engine);
    failWriteNumber(engine, 1);
    EXPECT_EQ(engine.connect(), 0);
    EXPECT_EQ(engine.getState(), CSClient::STATE_CONNECTING);
    EXPECT_EQ(engine.startConnection(), 0);
    EXPECT_EQ(engine.getState(), CSClient::STATE_READY);
    EXPECT_EQ(engine.probe().written().size(), 3U);
    EXPECT_EQ(engine.sendMessage(messageOf(RawMessage::CONTROL, "01")), 0U);
}

TEST_F(FailedWriteInStateChange, OtherThreadMayEndTheConnectionDuringTheSleep) {
    ConnectionEngine engine(kReconnect | kSilent);
    engine.addCallbackInterface(&callbacks);
    failWriteNumber(engine, 1);
    EndOnExit end(engine);
    ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
    ASSERT_TRUE(callbacks.waitFor("state 5->1"));
    const Stopwatch stopwatch;
    engine.forceCloseConnection();
    EXPECT_LT(stopwatch.seconds(), 0.5);
    EXPECT_TRUE(waitForState(engine, CSClient::STATE_DISCONNECTED));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->5 5->1 1->3 3->0");
}

}  // namespace
}  // namespace com_tesk::test
