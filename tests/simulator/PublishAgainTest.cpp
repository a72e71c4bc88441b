#include <gtest/gtest.h>

#include "tests/support/HostMessages.h"
#include "tests/simulator/ReadyEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

/// Three integer outputs P, Q and R that wait for their confirmation, the first two published.
class PublishAgain : public ::testing::Test {
  protected:
    PublishAgain() {
        for (const char* const name : {"P", "Q", "R"}) {
            engine.registerOutput(name, CSClient::TYPE_INT);
        }
        engine.publish("P", 1);
        engine.publish("Q", -2);
        engine.addCallbackInterface(&callbacks);
        engine.forgetRequests();
    }

    static std::string allThree() {
        return outputConfirmation(3, {confirmedOutput(9, "R"), confirmedOutput(8, "Q"), confirmedOutput(7, "P")});
    }

    CapturedStreams streams;
    Lines log;
    ActingCallbacks callbacks{log};
    ReadyEngine engine{5, kTalking};
};

const std::string kQThenP =
    "04 02 7F FF 00 00 00 30 00 7F 00 03 00 05 00 00 00 00 00 00 00 00 00 02 "
    "00 00 00 08 00 00 00 01 FF FF FF FE 00 00 00 07 00 00 00 01 00 00 00 01";

const std::string kPAlone =
    "04 02 7F FF 00 00 00 24 00 7F 00 03 00 05 00 00 00 00 00 00 00 00 00 01 00 00 00 07 00 00 00 01 00 00 00 01";

TEST_F(PublishAgain, SendsWhatWasPublishedInTheOrderOfTheMessage) {
    engine.receive(allThree());
    EXPECT_EQ(Lines{kQThenP}, engine.requests());
    EXPECT_EQ(Lines{"outputs confirmed R(type 2) Q(type 2) P(type 2)"}, log);
}

TEST_F(PublishAgain, LeavesOutWhatWasNeverPublished) {
    engine.receive(outputConfirmation(2, {confirmedOutput(7, "P"), confirmedOutput(9, "R")}));
    EXPECT_EQ(Lines{kPAlone}, engine.requests());
}

TEST_F(PublishAgain, LeavesOutWhatTheMessageDoesNotConfirm) {
    engine.receive(outputConfirmation(1, {confirmedOutput(7, "P")}));
    EXPECT_EQ(Lines{kPAlone}, engine.requests());
}

TEST_F(PublishAgain, SendsNothingWhenNothingWasPublished) {
    engine.receive(outputConfirmation(1, {confirmedOutput(9, "R")}));
    EXPECT_EQ(Lines{}, engine.requests());
}

TEST_F(PublishAgain, HappensAtEveryConfirmation) {
    engine.receive(outputConfirmation(1, {confirmedOutput(7, "P")}));
    engine.receive(outputConfirmation(1, {confirmedOutput(7, "P")}));
    EXPECT_EQ((Lines{kPAlone, kPAlone}), engine.requests());
}

TEST_F(PublishAgain, RepeatedNameIsSentTwiceUnderItsLastId) {
    engine.receive(outputConfirmation(2, {confirmedOutput(7, "P"), confirmedOutput(6, "P")}));
    EXPECT_EQ(Lines{"04 02 7F FF 00 00 00 30 00 7F 00 03 00 05 00 00 00 00 00 00 00 00 00 02 "
                    "00 00 00 06 00 00 00 01 00 00 00 01 00 00 00 06 00 00 00 01 00 00 00 01"},
              engine.requests());
}

TEST_F(PublishAgain, SendsEachValueUnderTheTypeOfItsOutput) {
    ReadyEngine other;
    other.registerOutput("F", CSClient::TYPE_FLOAT);
    other.registerOutput("X", 5);
    other.publish("F", 0x40490FDB);
    other.publish("X", 3);
    other.forgetRequests();
    other.receive(outputConfirmation(2, {confirmedOutput(7, "F"), confirmedOutput(8, "X")}));
    EXPECT_EQ(Lines{"04 02 7F FF 00 00 00 28 00 7F 00 03 00 05 00 00 00 00 00 00 00 00 00 02 "
                    "00 00 00 07 00 00 00 00 40 49 0F DB 00 00 00 08"},
              other.requests());
}

TEST_F(PublishAgain, ComesAfterAllCallbacks) {
    Lines order;
    ReadyEngine other;
    ActingCallbacks two[2] = {ActingCallbacks(order, "first: "), ActingCallbacks(order, "second: ")};
    other.registerOutput("P");
    other.publish("P", 1);
    other.addCallbackInterface(&two[0]);
    other.addCallbackInterface(&two[1]);
    other.fakeTransport().onWrite = [&] { order.push_back("request"); };
    other.receive(outputConfirmation(1, {confirmedOutput(7, "P")}));
    EXPECT_EQ((Lines{"first: outputs confirmed P(type 1)", "second: outputs confirmed P(type 1)", "request"}), order);
}

TEST_F(PublishAgain, HappensWithoutInterfaces) {
    engine.removeCallbackInterface(&callbacks);
    engine.receive(outputConfirmation(1, {confirmedOutput(7, "P")}));
    EXPECT_EQ(Lines{kPAlone}, engine.requests());
}

TEST_F(PublishAgain, LeavesOutWhatACallbackHasUnregistered) {
    callbacks.onOutputsConfirmed = [&] { engine.unregisterOutputParameters({"Q"}); };
    engine.receive(allThree());
    EXPECT_EQ((Lines{"04 02 7F FF 00 00 00 18 00 7F 00 05 00 05 00 00 00 00 00 01 00 00 00 08", kPAlone}),
              engine.requests());
}

TEST_F(PublishAgain, SendsNothingWhenACallbackHasUnregisteredEverything) {
    callbacks.onOutputsConfirmed = [&] { engine.unregisterAllOutputParameters(); };
    engine.receive(allThree());
    EXPECT_EQ(Lines{"04 02 7F FF 00 00 00 20 00 7F 00 05 00 05 00 00 00 00 00 03 00 00 00 07 00 00 00 08 00 00 00 09"},
              engine.requests());
}

TEST_F(PublishAgain, LeavesOutWhatACallbackHasRegisteredAnew) {
    // The new output of that name has not been published.
    callbacks.onOutputsConfirmed = [&] {
        engine.unregisterOutputParameters({"Q"});
        engine.registerOutput("Q", CSClient::TYPE_INT);
        engine.forgetRequests();
    };
    engine.receive(allThree());
    EXPECT_EQ(Lines{kPAlone}, engine.requests());
    EXPECT_FALSE(engine.hasOutputParameter("Q", true));
}

TEST_F(PublishAgain, SendsWhatACallbackHasRegisteredAndPublishedAnew) {
    // The new output of that name waits for its own confirmation, and goes out without an id until then.
    callbacks.onOutputsConfirmed = [&] {
        engine.unregisterOutputParameters({"P"});
        engine.registerOutput("P", CSClient::TYPE_INT);
        engine.publish("P", 3);
        engine.forgetRequests();
    };
    engine.receive(outputConfirmation(1, {confirmedOutput(7, "P")}));
    EXPECT_EQ(Lines{"04 02 7F FF 00 00 00 24 00 7F 00 03 00 05 00 00 00 00 00 00 00 00 00 01 "
                    "00 0F FF FF 00 00 00 01 00 00 00 03"},
              engine.requests());
}

TEST_F(PublishAgain, SendsTheValueThatACallbackHasPublished) {
    callbacks.onOutputsConfirmed = [&] { engine.publish("P", 42); };
    engine.receive(outputConfirmation(1, {confirmedOutput(7, "P")}));
    const std::string fortyTwo =
        "04 02 7F FF 00 00 00 24 00 7F 00 03 00 05 00 00 00 00 00 00 00 00 00 01 00 00 00 07 00 00 00 01 00 00 00 2A";
    EXPECT_EQ((Lines{fortyTwo, fortyTwo}), engine.requests());
}

TEST_F(PublishAgain, LeavesOutWhatACallbackHasPublishedForTheFirstTime) {
    callbacks.onOutputsConfirmed = [&] {
        engine.publish("R", 42);
        engine.forgetRequests();
    };
    engine.receive(allThree());
    EXPECT_EQ(Lines{kQThenP}, engine.requests());
}

TEST_F(PublishAgain, SendsNothingWhenACallbackHasEndedTheConnection) {
    callbacks.onOutputsConfirmed = [&] { engine.forceCloseConnection(); };
    engine.receive(allThree());
    EXPECT_EQ(Lines{}, engine.requests());
    EXPECT_EQ("", streams.err());
}

TEST_F(PublishAgain, FailedWriteGivesOneLineAndOneClose) {
    engine.fakeTransport().failWrites(-1, 32);
    engine.receive(allThree());
    EXPECT_EQ("Error writing to server (32) \n", streams.err());
    EXPECT_EQ((Lines{"outputs confirmed R(type 2) Q(type 2) P(type 2)", "state 3"}), log);
    EXPECT_EQ(CSClient::STATE_DISCONNECTING, engine.getState());
}

TEST_F(PublishAgain, FailedWriteReconnectsOnceAndTheValuesGoOutAfterIt) {
    Lines states;
    ActingCallbacks stateCallbacks(states);
    ReadyEngine other(5, CSClient::OPTION_AUTO_RECONNECT);
    other.registerOutput("P", CSClient::TYPE_INT);
    other.publish("P", 1);
    other.addCallbackInterface(&stateCallbacks);
    const std::string printedBefore = streams.out();
    other.fakeTransport().failWrites(-1, 32);
    other.receive(outputConfirmation(1, {confirmedOutput(6, "P")}));
    EXPECT_EQ("Error writing to server (32) \n", streams.err());
    EXPECT_EQ(printedBefore + "Attempting to reconnect...\n", streams.out());
    EXPECT_EQ((Lines{"outputs confirmed P(type 2)", "state 5", "state 1"}), states);
    other.connect();
    other.forgetRequests();
    other.receive(outputConfirmation(1, {confirmedOutput(7, "P")}));
    EXPECT_EQ(Lines{kPAlone}, other.requests());
}

/// Writes down what reaches the virtual sender.
class DerivedEngine : public ReadyEngine {
  public:
    using ReadyEngine::ReadyEngine;
    int sendParameterPublishRequest(const std::vector<OutputParameterEntry*>& entries, PublishMode mode) override {
        for (const OutputParameterEntry* const entry : entries) {
            sent += entry->name;
        }
        sent += " mode " + std::to_string(mode);
        return 0;
    }
    std::string sent;
};

TEST_F(PublishAgain, GoesThroughTheVirtualSenderWithModeZero) {
    DerivedEngine derived;
    derived.registerOutput("P");
    derived.registerOutput("Q");
    derived.publish("Q", 1);
    derived.publish("P", 1);
    derived.sent.clear();
    derived.receive(outputConfirmation(2, {confirmedOutput(7, "Q"), confirmedOutput(8, "P")}));
    EXPECT_EQ("QP mode 0", derived.sent);
}

}  // namespace
}  // namespace com_tesk::test
