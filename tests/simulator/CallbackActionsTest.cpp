#include <gtest/gtest.h>

#include "tests/support/HostMessages.h"
#include "tests/simulator/ReadyEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

// What an interface may do inside a callback. A callback that ran under a lock of the library would never return here.

class CallbackActions : public ::testing::Test {
  protected:
    CallbackActions() {
        engine.registerInput("A");
        engine.registerOutput("P", CSClient::TYPE_INT);
        engine.addCallbackInterface(&first());
        engine.forgetRequests();
    }

    ActingCallbacks& first() { return two[0]; }
    ActingCallbacks& second() { return two[1]; }

    void confirmInput() { engine.receive(inputConfirmation(1, {confirmedInput(7, 1, "00 00 00 01", "A")})); }
    void confirmOutput() { engine.receive(outputConfirmation(1, {confirmedOutput(8, "P")})); }
    void updateInput() { engine.receive(update(1, {updated(7, 1, "00 00 00 02")})); }

    /// Makes the first interface do the same in each of its three callbacks.
    void inEachCallback(const std::function<void()>& action) {
        first().onInputsConfirmed = action;
        first().onUpdated = action;
        first().onOutputsConfirmed = action;
    }

    Lines log;
    /// In an array, so that the first is called first.
    ActingCallbacks two[2] = {ActingCallbacks(log, "1: "), ActingCallbacks(log, "2: ")};
    ReadyEngine engine{5, kSilent};
};

TEST_F(CallbackActions, NoCallbackRunsUnderALock) {
    int calls = 0;
    inEachCallback([&] {
        ++calls;
        EXPECT_FALSE(engine.isAnyMutexHeldHere());
    });
    confirmInput();
    confirmOutput();
    updateInput();
    EXPECT_EQ(4, calls);
}

TEST_F(CallbackActions, EveryCallbackMayRegister) {
    int made = 0;
    inEachCallback([&] {
        ++made;
        EXPECT_EQ(0, engine.registerInput("I" + std::to_string(made)));
        EXPECT_EQ(0, engine.registerOutput("O" + std::to_string(made)));
    });
    confirmInput();
    confirmOutput();
    updateInput();
    EXPECT_EQ(4, made);
    EXPECT_EQ(5U, engine.getNumberOfInputParameters(false));
    EXPECT_EQ(5U, engine.getNumberOfOutputParameters(false));
    EXPECT_EQ(8U, engine.requests().size());
}

TEST_F(CallbackActions, EveryCallbackMayPublishAndQuery) {
    inEachCallback([&] {
        EXPECT_EQ(0, engine.publish("P", 42));
        EXPECT_TRUE(engine.hasInputParameter("A", true));
        EXPECT_EQ(1U, engine.getNumberOfInputParameters(true));
        EXPECT_EQ(1, engine.getNumCallbackInterfaces());
    });
    confirmInput();
    updateInput();
    EXPECT_EQ(3U, engine.requests().size());
}

TEST_F(CallbackActions, EveryCallbackMayUnregister) {
    inEachCallback([&] {
        EXPECT_EQ(0, engine.unregisterInputParameters({"A"}));
        engine.unregisterAllOutputParameters();
    });
    confirmInput();
    EXPECT_EQ((Lines{"1: inputs confirmed A(type 1 mode 1)", "1: updated A(type 2)=00 00 00 01"}), log);
    EXPECT_EQ(0U, engine.getNumberOfInputParameters(false));
    EXPECT_EQ(0U, engine.getNumberOfOutputParameters(false));
    EXPECT_EQ((Lines{"04 02 7F FF 00 00 00 18 00 7F 00 04 00 05 00 00 00 00 00 01 00 00 00 07",
                     "04 02 7F FF 00 00 00 18 00 7F 00 05 00 05 00 00 00 00 00 01 00 0F FF FF"}),
              engine.requests());
}

TEST_F(CallbackActions, ConfirmedOutputMayBeUnregisteredAtOnce) {
    first().onOutputsConfirmed = [&] { EXPECT_EQ(0, engine.unregisterOutputParameters({"P"})); };
    confirmOutput();
    EXPECT_EQ(Lines{"04 02 7F FF 00 00 00 18 00 7F 00 05 00 05 00 00 00 00 00 01 00 00 00 08"}, engine.requests());
    EXPECT_EQ(0U, engine.getNumberOfOutputParameters(true));
}

TEST_F(CallbackActions, UpdatedInputMayBeUnregisteredAtOnce) {
    confirmInput();
    first().onUpdated = [&] { EXPECT_EQ(0, engine.unregisterInputParameters({"A"})); };
    updateInput();
    log.clear();
    updateInput();
    EXPECT_EQ(Lines{}, log);
}

TEST_F(CallbackActions, InterfaceAddedInACallbackHearsFromTheNextEventOn) {
    inEachCallback([&] { engine.addCallbackInterface(&second()); });
    confirmInput();
    EXPECT_EQ((Lines{"1: inputs confirmed A(type 1 mode 1)", "1: updated A(type 2)=00 00 00 01"}), log);
    log.clear();
    engine.removeCallbackInterface(&second());
    updateInput();
    EXPECT_EQ(Lines{"1: updated A(type 2)=00 00 00 02"}, log);
    log.clear();
    engine.removeCallbackInterface(&second());
    confirmOutput();
    EXPECT_EQ(Lines{"1: outputs confirmed P(type 2)"}, log);
    log.clear();
    updateInput();
    EXPECT_EQ((Lines{"1: updated A(type 2)=00 00 00 02", "2: updated A(type 2)=00 00 00 02"}), log);
}

TEST_F(CallbackActions, InterfaceRemovedInACallbackStillHearsOfThisEvent) {
    inEachCallback([&] { engine.removeCallbackInterface(&second()); });
    engine.addCallbackInterface(&second());
    confirmInput();
    EXPECT_EQ((Lines{"1: inputs confirmed A(type 1 mode 1)", "1: updated A(type 2)=00 00 00 01",
                     "2: inputs confirmed A(type 1 mode 1)", "2: updated A(type 2)=00 00 00 01"}),
              log);
    log.clear();
    engine.addCallbackInterface(&second());
    confirmOutput();
    EXPECT_EQ((Lines{"1: outputs confirmed P(type 2)", "2: outputs confirmed P(type 2)"}), log);
    log.clear();
    engine.addCallbackInterface(&second());
    updateInput();
    EXPECT_EQ((Lines{"1: updated A(type 2)=00 00 00 02", "2: updated A(type 2)=00 00 00 02"}), log);
    log.clear();
    updateInput();
    EXPECT_EQ(Lines{"1: updated A(type 2)=00 00 00 02"}, log);
}

TEST_F(CallbackActions, InterfaceThatRemovesItselfStillHearsTheValuesOfThisConfirmation) {
    engine.addCallbackInterface(&second());
    first().onInputsConfirmed = [&] { engine.removeCallbackInterface(&first()); };
    confirmInput();
    EXPECT_EQ((Lines{"1: inputs confirmed A(type 1 mode 1)", "1: updated A(type 2)=00 00 00 01",
                     "2: inputs confirmed A(type 1 mode 1)", "2: updated A(type 2)=00 00 00 01"}),
              log);
    log.clear();
    updateInput();
    EXPECT_EQ(Lines{"2: updated A(type 2)=00 00 00 02"}, log);
}

TEST_F(CallbackActions, EveryCallbackMayEndTheConnection) {
    engine.addCallbackInterface(&second());
    first().onInputsConfirmed = [&] { engine.forceCloseConnection(); };
    confirmInput();
    EXPECT_EQ(
        (Lines{"1: inputs confirmed A(type 1 mode 1)", "1: state 3", "2: state 3", "1: updated A(type 2)=00 00 00 01",
               "2: inputs confirmed A(type 1 mode 1)", "2: updated A(type 2)=00 00 00 01"}),
        log);
}

TEST_F(CallbackActions, FailedWriteInACallbackGivesOneLineAndOneClose) {
    CapturedStreams streams;
    Lines states;
    ActingCallbacks callbacks(states);
    ReadyEngine talking(5, kTalking);
    talking.registerInput("A");
    talking.addCallbackInterface(&callbacks);
    callbacks.onInputsConfirmed = [&] {
        talking.fakeTransport().failWrites(-1, 32);
        EXPECT_EQ(2, talking.registerOutput("P"));
    };
    talking.receive(inputConfirmation(1, {confirmedInput(7, 1, "00 00 00 01", "A")}));
    EXPECT_EQ("Error writing to server (32) \n", streams.err());
    EXPECT_EQ((Lines{"inputs confirmed A(type 1 mode 1)", "state 3", "updated A(type 2)=00 00 00 01"}), states);
}

TEST_F(CallbackActions, HandlingAnotherMessageInACallbackIsPossible) {
    // As a test of the locks: not even the handlers' own are held.
    first().onInputsConfirmed = [&] {
        first().onInputsConfirmed = nullptr;
        confirmOutput();
        updateInput();
    };
    confirmInput();
    EXPECT_EQ((Lines{"1: inputs confirmed A(type 1 mode 1)", "1: outputs confirmed P(type 2)",
                     "1: updated A(type 2)=00 00 00 02", "1: updated A(type 2)=00 00 00 01"}),
              log);
}

}  // namespace
}  // namespace com_tesk::test
