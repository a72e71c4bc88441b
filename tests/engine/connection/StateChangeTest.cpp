#include "tests/engine/connection/ConnectionFixtures.h"

namespace com_tesk::test {
namespace {

/// Records, in order, the callbacks, the engine's own reactions and the version requests.
class StateChange : public ConnectionTest {
  protected:
    StateChange() { start(); }

    void start() {
        create();
        events.clear();
        callbacks->onLine = [this](const std::string& line) {
            events.push_back(line + " in " + std::to_string(engine->getState()));
        };
        engine->onStateChange = [this](CSClient::State oldState, CSClient::State newState) {
            events.push_back("engine " + std::to_string(oldState) + "->" + std::to_string(newState));
        };
        engine->onVersionRequest = [this] { events.emplace_back("version request"); };
    }

    void registerBoth() {
        EXPECT_EQ(engine->registerInputs({input("I2"), input("I1")}), 0);
        EXPECT_EQ(engine->registerOutputs({output("O3"), output("O1"), output("O2")}), 0);
    }

    void expectTables(unsigned int inputs, unsigned int outputs) {
        EXPECT_EQ(engine->getNumberOfInputParameters(false), inputs);
        EXPECT_EQ(engine->getNumberOfOutputParameters(false), outputs);
    }

    Strings events;
};

TEST_F(StateChange, ToTheSameStateIsNotNotified) {
    engine->changeState(CSClient::STATE_DISCONNECTED);
    for (const CSClient::State state : kStatesOfAConnection) {
        engine->pretendState(state);
        engine->changeState(state);
    }
    EXPECT_TRUE(events.empty());
    EXPECT_TRUE(transport().written().empty());
}

TEST_F(StateChange, CallbacksComeBeforeTheEnginesOwnReaction) {
    engine->changeState(CSClient::STATE_CONNECTING);
    EXPECT_EQ(events, (Strings{"state 0->1 in 1", "engine 0->1"}));
}

TEST_F(StateChange, ConnectedBecomesReadyAtOnceAndReadyRequestsTheVersion) {
    engine->pretendState(CSClient::STATE_CONNECTING);
    engine->changeState(CSClient::STATE_CONNECTED);
    EXPECT_EQ(events, (Strings{"state 1->2 in 2", "engine 1->2", "state 2->4 in 4", "engine 2->4", "version request"}));
    EXPECT_EQ(engine->getState(), CSClient::STATE_READY);
    EXPECT_EQ(transport().written(), Strings{versionRequestFrame()});
}

TEST_F(StateChange, ToOtherStatesOnlyNotifies) {
    for (const CSClient::State other :
         {CSClient::STATE_CONNECTING, CSClient::STATE_DISCONNECTING, CSClient::STATE_RECONNECTING}) {
        start();
        registerBoth();
        engine->pretendState(CSClient::STATE_READY);
        engine->changeState(other);
        EXPECT_EQ(engine->getState(), other);
        EXPECT_TRUE(transport().written().empty());
        expectTables(2, 3);
    }
}

TEST_F(StateChange, ToDisconnectedErasesEveryParameterAfterTheCallbacks) {
    registerBoth();
    engine->pretendState(CSClient::STATE_DISCONNECTING);
    int reactions = 0;
    engine->onStateChange = [&](CSClient::State, CSClient::State) {
        ++reactions;
        expectTables(2, 3);
    };
    engine->changeState(CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(reactions, 1);
    expectTables(0, 0);
}

/// Runs `afterReady` when the engine's part of the change to `STATE_READY` is done.
class EngineWithAfterReady : public TestEngine {
  public:
    using TestEngine::TestEngine;

    void handleConnectionStateChange(CSClient::State oldState, CSClient::State newState) override {
        TestEngine::handleConnectionStateChange(oldState, newState);
        if (newState == CSClient::STATE_READY) {
            afterReady();
        }
    }

    std::function<void()> afterReady;
};

TEST_F(StateChange, ToReadyIsCompleteAlsoWhileAnotherThreadsWriteIsBlocked) {
    EngineWithAfterReady own(1, kSilent);
    ASSERT_EQ(own.registerOutputs({output("O")}), 0);
    std::future<int> publishing;
    own.afterReady = [&] {
        own.fakeTransport().onWrite = [this] { gate.pass(); };
        publishing = onAnotherThread([&own] { return own.publish({floatParameter("O", 0)}); });
        EXPECT_TRUE(gate.waitUntilReached());
    };
    auto changing = onAnotherThread([&own] { return own.connect(); });
    ASSERT_TRUE(gate.waitUntilReached());
    EXPECT_TRUE(own.waitForStateChange());
    gate.open();
    EXPECT_EQ(changing.get(), 0);
    EXPECT_EQ(publishing.get(), 0);
}

TEST_F(StateChange, ToReadyRegistersAgainWhatACallbackHasRegistered) {
    engine->onStateChange = [this](CSClient::State, CSClient::State newState) {
        if (newState == CSClient::STATE_CONNECTED) {
            EXPECT_EQ(engine->registerOutputs({output("O")}), 0);
        }
    };
    EXPECT_EQ(engine->connect(), 0);
    const Strings frames = transport().written();
    ASSERT_EQ(frames.size(), 3U);
    EXPECT_EQ(frames[1], versionRequestFrame());
    EXPECT_EQ(frames[2], frames[0]) << "the registrations follow the version request";
}

}  // namespace
}  // namespace com_tesk::test
