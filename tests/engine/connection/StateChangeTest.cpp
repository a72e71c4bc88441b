#include <gtest/gtest.h>

#include <future>
#include <string>
#include <vector>

#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

using Strings = std::vector<std::string>;

const CSClient::InputDef kInputs[] = {{"I2", CSClient::TYPE_FLOAT, 1}, {"I1", CSClient::TYPE_INT, 1}};
const CSClient::OutputDef kOutputs[] = {
    {"O3", CSClient::TYPE_FLOAT}, {"O1", CSClient::TYPE_INT}, {"O2", CSClient::TYPE_INT}};

/// The codes of the requests written, from the last byte of each sub-header.
Strings requestCodes(const Strings& frames) {
    Strings codes;
    for (const std::string& frame : frames) {
        codes.push_back(frame.substr(3 * (32 + 10), 5));
    }
    return codes;
}

/// Writes down what happens, in order: callbacks, the engine's own reaction, the version request.
class OrderedEngine : public ConnectionEngine, private CSClient::CallbackIface {
  public:
    OrderedEngine() : ConnectionEngine(kSilent) {
        addCallbackInterface(this);
        onStateChange = [this](CSClient::State oldState, CSClient::State newState) {
            events.push_back("engine " + std::to_string(oldState) + "->" + std::to_string(newState));
        };
        onVersionRequest = [this] { events.push_back("version request"); };
    }

    Strings events;

  private:
    void connectionStateChanged(CSClient::State oldState, CSClient::State newState) override {
        events.push_back("callback " + std::to_string(oldState) + "->" + std::to_string(newState) + " in " +
                         std::to_string(getState()));
    }
    void inputParametersUpdated(const std::vector<CSClient::Parameter>& /*parameters*/) override {}
    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& /*outputs*/) override {}
    void inputParametersConfirmed(const std::vector<CSClient::InputDef>& /*inputs*/) override {}
};

TEST(StateChange, ToTheSameStateNotifiesNobody) {
    OrderedEngine engine;
    for (const CSClient::State same :
         {CSClient::STATE_DISCONNECTED, CSClient::STATE_CONNECTING, CSClient::STATE_CONNECTED,
          CSClient::STATE_DISCONNECTING, CSClient::STATE_READY, CSClient::STATE_RECONNECTING}) {
        engine.pretendState(same);
        engine.changeState(same);
    }
    EXPECT_TRUE(engine.events.empty());
    EXPECT_TRUE(engine.probe().written().empty());
}

TEST(StateChange, CallbacksComeBeforeTheEnginesOwnReaction) {
    OrderedEngine engine;
    engine.changeState(CSClient::STATE_CONNECTING);
    EXPECT_EQ(engine.events, (Strings{"callback 0->1 in 1", "engine 0->1"}));
}

TEST(StateChange, ConnectedMovesOnToReadyAtOnceAndReadyRequestsTheVersion) {
    OrderedEngine engine;
    engine.pretendState(CSClient::STATE_CONNECTING);
    engine.changeState(CSClient::STATE_CONNECTED);
    EXPECT_EQ(engine.events,
              (Strings{"callback 1->2 in 2", "engine 1->2", "callback 2->4 in 4", "engine 2->4", "version request"}));
    EXPECT_EQ(engine.getState(), CSClient::STATE_READY);
    EXPECT_EQ(engine.probe().written(), Strings{versionRequestFrame()});
}

TEST(StateChange, OtherStatesOnlyNotify) {
    for (const CSClient::State quiet :
         {CSClient::STATE_CONNECTING, CSClient::STATE_DISCONNECTING, CSClient::STATE_RECONNECTING}) {
        OrderedEngine engine;
        engine.registerInputParameters(kInputs, 2);
        engine.registerOutputParameters(kOutputs, 3);
        engine.pretendState(CSClient::STATE_READY);
        engine.changeState(quiet);
        EXPECT_EQ(engine.getState(), quiet);
        EXPECT_TRUE(engine.probe().written().empty());
        EXPECT_EQ(engine.getNumberOfInputParameters(false), 2U);
        EXPECT_EQ(engine.getNumberOfOutputParameters(false), 3U);
    }
}

TEST(StateChange, DisconnectedForgetsEveryParameterAfterTheCallbacks) {
    OrderedEngine engine;
    engine.registerInputParameters(kInputs, 2);
    engine.registerOutputParameters(kOutputs, 3);
    engine.pretendState(CSClient::STATE_DISCONNECTING);
    unsigned int inputsInReaction = 0;
    engine.onStateChange = [&](CSClient::State, CSClient::State) {
        inputsInReaction = engine.getNumberOfInputParameters(false);
    };
    engine.changeState(CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(inputsInReaction, 2U);
    EXPECT_EQ(engine.getNumberOfInputParameters(false), 0U);
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 0U);
}

TEST(ReachingReady, WithoutParametersPrintsNothingAndSendsTheVersionRequestOnly) {
    const CapturedStreams captured;
    ConnectionEngine engine;
    EXPECT_EQ(engine.connect(), 0);
    EXPECT_EQ(captured.out() + captured.err(), "");
    EXPECT_EQ(engine.probe().written(), Strings{versionRequestFrame()});
}

TEST(ReachingReady, RegistersEverythingAgainAfterTheVersionRequest) {
    const CapturedStreams captured;
    ConnectionEngine engine;
    engine.registerInputParameters(kInputs, 2);
    engine.registerOutputParameters(kOutputs, 3);
    EXPECT_EQ(engine.connect(), 0);
    EXPECT_EQ(captured.out(),
              "Re-registering input/output parameters (2/3)...\n"
              "Registering input parameters with server...\n"
              "Registering output parameters with server...\n");
    EXPECT_EQ(captured.outInsertions(), 3);
    EXPECT_EQ(requestCodes(engine.probe().written()), (Strings{"00 06", "00 01", "00 02"}));
}

TEST(ReachingReady, WithInputsOnlyCountsNoOutputs) {
    const CapturedStreams captured;
    ConnectionEngine engine;
    engine.registerInputParameters(kInputs, 1);
    EXPECT_EQ(engine.connect(), 0);
    EXPECT_EQ(captured.out(),
              "Re-registering input/output parameters (1/0)...\n"
              "Registering input parameters with server...\n");
    EXPECT_EQ(requestCodes(engine.probe().written()), (Strings{"00 06", "00 01"}));
}

TEST(ReachingReady, WithOutputsOnlyCountsNoInputs) {
    const CapturedStreams captured;
    ConnectionEngine engine;
    engine.registerOutputParameters(kOutputs, 1);
    EXPECT_EQ(engine.connect(), 0);
    EXPECT_EQ(captured.out(),
              "Re-registering input/output parameters (0/1)...\n"
              "Registering output parameters with server...\n");
    EXPECT_EQ(requestCodes(engine.probe().written()), (Strings{"00 06", "00 02"}));
}

TEST(ReachingReady, InSilenceRegistersAgainAllTheSame) {
    const CapturedStreams captured;
    ConnectionEngine engine(kSilent);
    engine.registerInputParameters(kInputs, 2);
    engine.registerOutputParameters(kOutputs, 3);
    EXPECT_EQ(engine.connect(), 0);
    EXPECT_EQ(captured.out() + captured.err(), "");
    EXPECT_EQ(requestCodes(engine.probe().written()), (Strings{"00 06", "00 01", "00 02"}));
}

TEST(ReachingReady, CallbackMayStillRegisterWhatIsThenSentWithTheRest) {
    const CapturedStreams captured;
    ConnectionEngine engine;
    engine.onStateChange = [&engine](CSClient::State, CSClient::State newState) {
        if (newState == CSClient::STATE_CONNECTED) {
            EXPECT_EQ(engine.registerOutputParameters(kOutputs, 1), 0);
        }
    };
    EXPECT_EQ(engine.connect(), 0);
    EXPECT_EQ(requestCodes(engine.probe().written()), (Strings{"00 02", "00 06", "00 02"}));
}

/// Publishes on another thread, whose write is stuck, after the engine's part of the change to `STATE_READY`.
class StuckAfterwards : public ConnectionEngine {
  public:
    StuckAfterwards() : ConnectionEngine(kSilent) {}

    void handleConnectionStateChange(CSClient::State oldState, CSClient::State newState) override {
        ConnectionEngine::handleConnectionStateChange(oldState, newState);
        if (newState != CSClient::STATE_READY) {
            return;
        }
        probe().onWrite = [this] {
            isStuck.open();
            goOn.wait();
        };
        publishing = std::async(std::launch::async, [this] {
            const CSClient::Parameter value{"O", {}, CSClient::TYPE_FLOAT, 0};
            return publishParameters(&value, 1, PUBLISH_DEFAULT);
        });
        EXPECT_TRUE(isStuck.wait());
    }

    Latch isStuck;
    Latch goOn;
    std::future<int> publishing;
};

TEST(StateChange, ToReadyIsCompleteAlsoWhileAnotherThreadsWriteIsStuck) {
    StuckAfterwards engine;
    const CSClient::OutputDef output{"O", CSClient::TYPE_FLOAT};
    ASSERT_EQ(engine.registerOutputParameters(&output, 1), 0);
    auto changing = std::async(std::launch::async, [&engine] { return engine.connect(); });
    ASSERT_TRUE(engine.isStuck.wait());
    EXPECT_TRUE(engine.waitForStateChange());
    engine.goOn.open();
    EXPECT_EQ(changing.get(), 0);
    EXPECT_EQ(engine.publishing.get(), 0);
    engine.pretendState(CSClient::STATE_DISCONNECTED);
}

}  // namespace
}  // namespace com_tesk::test
