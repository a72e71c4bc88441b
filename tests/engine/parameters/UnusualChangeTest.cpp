// Changes to ready that do not end as usual: the connection is lost meanwhile, or a derived protocol makes them its own way.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "tests/engine/parameters/ReadyChange.h"

namespace com_tesk::test {
namespace {

class LostChange : public ReadyChange, public testing::WithParamInterface<Place> {
  protected:
    /// The next connection, on this thread.
    void connectAgain() {
        ASSERT_EQ(engine.getState(), CSClient::STATE_CONNECTING);
        engine.onPlace = nullptr;
        engine.connect();
    }
};

INSTANTIATE_TEST_SUITE_P(At, LostChange,
                         testing::Values(Place::CONNECTED_CALLBACK, Place::READY_CALLBACK, Place::VERSION_WRITE,
                                         Place::AFTER_VERSION),
                         [](const testing::TestParamInfo<Place>& place) { return placeName(place.param); });

TEST_P(LostChange, LeavesRegistrationsToTheNextConnection) {
    registerInputBefore();
    // The write of the version request fails, unless it is over; then that of the inputs does.
    const bool isVersionOut = GetParam() == Place::AFTER_VERSION;
    holdAt(GetParam());
    engine.fakeTransport().failWrites(-1, ECONNRESET);
    EXPECT_EQ(engine.registerInputs({input("X")}), 0);
    EXPECT_EQ(engine.registerOutputs({output("Y")}), 0);
    finish();
    EXPECT_EQ(bodies(), isVersionOut ? versionRequest() : Bodies());
    connectAgain();
    EXPECT_EQ(bodies(), (isVersionOut ? versionRequest() : Bodies()) + versionRequest() + inputRequest({"I", "X"}) +
                            outputRequest({"Y"}));
}

TEST_P(LostChange, OnceMoreLeavesRegistrationsOnlyDuringTheNextChange) {
    holdAt(GetParam());
    engine.fakeTransport().failWrites(-1, ECONNRESET);
    EXPECT_EQ(engine.registerInputs({input("X")}), 0);
    finish();
    connectAgain();
    const std::size_t old = bodies().size();
    EXPECT_EQ(engine.registerInputs({input("Y")}), 0);
    ASSERT_EQ(bodies().size(), old + 1);
    EXPECT_EQ(bodies().back(), inputRequest({"Y"}).front());
}

/// A derived protocol that leaves out some of what the engine does.
class OwnWayEngine : public ChangingEngine {
  public:
    bool staysConnected = false;

    void handleConnectionStateChange(CSClient::State oldState, CSClient::State newState) override {
        const bool isOwnWay =
            newState == CSClient::STATE_READY || (newState == CSClient::STATE_CONNECTED && staysConnected);
        if (!isOwnWay) {
            ChangingEngine::handleConnectionStateChange(oldState, newState);
        }
    }
};

/// Another thread acts in the callbacks of the changes from 1 to 2 and from 2 to 4.
class OwnWay : public testing::Test {
  protected:
    class ActingCallbacks : public RecordingCallbacks {
      public:
        std::function<void(CSClient::State)> onState;

        void connectionStateChanged(CSClient::State oldState, CSClient::State newState) override {
            RecordingCallbacks::connectionStateChanged(oldState, newState);
            if (onState) {
                std::thread([this, newState] { onState(newState); }).join();
            }
        }
    };

    OwnWay() { engine.addCallbackInterface(&callbacks); }
    ~OwnWay() override { engine.pretendState(CSClient::STATE_DISCONNECTED); }

    void registerIn(CSClient::State state) {
        callbacks.onState = [this, state](CSClient::State newState) {
            if (newState == state) {
                EXPECT_EQ(engine.registerInputs({input("X")}), 0);
                EXPECT_EQ(engine.registerOutputs({output("Y")}), 0);
            }
        };
    }

    Bodies bodies() {
        Bodies found;
        for (const std::string& frame : engine.fakeTransport().written()) {
            found.emplace_back(frame, std::size_t{32} * 3);
        }
        return found;
    }

    ActingCallbacks callbacks;
    OwnWayEngine engine;
};

TEST_F(OwnWay, ToReadyRequestsOnceWhatWasRegisteredIn2) {
    registerIn(CSClient::STATE_CONNECTED);
    engine.connect();
    EXPECT_EQ(bodies(), inputRequest({"X"}) + outputRequest({"Y"}));
}

TEST_F(OwnWay, ToReadyRequestsOnceWhatWasRegisteredIn4) {
    registerIn(CSClient::STATE_READY);
    engine.connect();
    EXPECT_EQ(bodies(), inputRequest({"X"}) + outputRequest({"Y"}));
}

TEST_F(OwnWay, StayingConnectedRequestsOnceWhatWasRegistered) {
    engine.staysConnected = true;
    registerIn(CSClient::STATE_CONNECTED);
    engine.connect();
    EXPECT_EQ(engine.getState(), CSClient::STATE_CONNECTED);
    EXPECT_EQ(bodies(), inputRequest({"X"}) + outputRequest({"Y"}));
}

TEST_F(OwnWay, WithoutOthersRegistrationsNothingIsSent) {
    EXPECT_EQ(engine.registerInputs({input("I")}), 0);
    EXPECT_EQ(engine.registerOutputs({output("O")}), 0);
    engine.connect();
    EXPECT_EQ(bodies(), Bodies());
}

TEST_F(OwnWay, AfterTheChangeARegistrationGoesOutAtOnce) {
    registerIn(CSClient::STATE_READY);
    engine.connect();
    EXPECT_EQ(engine.registerInputs({input("Z")}), 0);
    EXPECT_EQ(bodies(), inputRequest({"X"}) + outputRequest({"Y"}) + inputRequest({"Z"}));
}

TEST_F(OwnWay, LeavesAnotherKindOfParameterAlone) {
    EXPECT_EQ(engine.registerInputs({input("I")}), 0);
    callbacks.onState = [this](CSClient::State state) {
        if (state == CSClient::STATE_READY) {
            EXPECT_EQ(engine.registerOutputs({output("Y")}), 0);
        }
    };
    engine.connect();
    EXPECT_EQ(bodies(), outputRequest({"Y"}));
}

}  // namespace
}  // namespace com_tesk::test
