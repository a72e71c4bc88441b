#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/engine/parameters/ParameterEngine.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const char kInputsLine[] = "Registering input parameters with server...\n";
const char kOutputsLine[] = "Registering output parameters with server...\n";

/// The request for what registerTwoInputs registers.
const std::string kBothInputs =
    "04 02 7F FF 00 00 00 6C 00 7F 00 01 00 01 00 00 00 00 00 02"
    "00 00 2E E0 00 00 2E E0 00 00 00 00" +
    hexField("A") + "00 01 D4 C0 00 01 D4 C0 00 00 00 01" + hexField("B");

const std::string kThreeOutputs =
    "04 02 7F FF 00 00 00 8C 00 7F 00 02 00 01 00 00 00 00 00 03"
    "00 00 04 B0 00 00 00 00" +
    hexField("X") + "00 00 04 B0 00 00 00 01" + hexField("Y") + "00 00 04 B0 00 00 00 00" + hexField("Z");

const std::string kVersionRequest = "04 02 7F FF 00 00 00 14 00 7F 00 06 00 01 00 00 00 00 00 00";

void registerTwoInputs(ParameterEngine& engine) {
    engine.registerInputs({input("B", 2, 3), input("A", 1, 1)});
}

void registerThreeOutputs(ParameterEngine& engine) {
    engine.registerOutputs({output("Z", 1), output("X", 1), output("Y", 2)});
}

class Reregistration : public testing::Test {
  protected:
    CapturedStreams streams;
    ParameterEngine engine;
};

TEST_F(Reregistration, WithoutInputsItPrintsAndSendsNothing) {
    engine.pretendState(CSClient::STATE_READY);
    engine.reregisterAllInputParameters();
    EXPECT_THAT(engine.requests(), IsEmpty());
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_F(Reregistration, WithoutOutputsItPrintsAndSendsNothing) {
    engine.pretendState(CSClient::STATE_READY);
    engine.reregisterAllOutputParameters();
    EXPECT_THAT(engine.requests(), IsEmpty());
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_F(Reregistration, InputsAreSentInNameOrderAndAnnounced) {
    registerTwoInputs(engine);
    engine.pretendState(CSClient::STATE_READY);
    engine.reregisterAllInputParameters();
    EXPECT_THAT(engine.requests(), ElementsAre(frame(kBothInputs)));
    EXPECT_EQ(streams.out(), kInputsLine);
    EXPECT_EQ(streams.outInsertions(), 1);
    EXPECT_EQ(streams.err(), "");
}

TEST_F(Reregistration, OutputsAreSentInNameOrderAndAnnounced) {
    registerThreeOutputs(engine);
    engine.pretendState(CSClient::STATE_READY);
    engine.reregisterAllOutputParameters();
    EXPECT_THAT(engine.requests(), ElementsAre(frame(kThreeOutputs)));
    EXPECT_EQ(streams.out(), kOutputsLine);
    EXPECT_EQ(streams.outInsertions(), 1);
    EXPECT_EQ(streams.err(), "");
}

TEST_F(Reregistration, InputsAreRebuiltAndWaitForFreshIds) {
    engine.registerInputs({input("A", 1, 7), input("B", 5, 0)});
    engine.receive(inputsConfirmed({{7, "A"}, {8, "A"}, {9, "B"}}));
    engine.reregisterAllInputParameters();
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 7 waiting", "B type 5 mode 0 waiting"));
    EXPECT_EQ(engine.inputIds(), "");
    EXPECT_EQ(engine.getNumberOfInputParameters(true), 0U);
    EXPECT_FALSE(engine.hasInputParameter("A", true));
    EXPECT_EQ(engine.getNumberOfInputParametersWaitingForConfirmation(), 2);
}

TEST_F(Reregistration, OutputsStayAsTheyAre) {
    engine.registerOutputs({output("A", 1), output("B", 5), output("C", 2)});
    engine.publish({record("A", 1, 0x3F800000)});
    engine.receive(outputsConfirmed({{7, "A"}, {8, "A"}, {9, "B"}}));
    engine.reregisterAllOutputParameters();
    EXPECT_THAT(engine.outputTable(),
                ElementsAre("A type 1 id 8 published 3F800000", "B type 5 id 9 00000000", "C type 2 waiting 00000000"));
    EXPECT_EQ(engine.outputIds(), "7=A 8=A 9=B");
    EXPECT_TRUE(engine.hasOutputParameter("A", true));
    EXPECT_EQ(engine.getNumberOfOutputParametersWaitingForConfirmation(), 0);
}

TEST_F(Reregistration, OldInputIdsAreForgottenByUpdatesToo) {
    RecordingCallbacks callbacks;
    engine.registerInputs({input("A")});
    engine.receive(inputsConfirmed({{7, "A"}}));
    engine.addCallbackInterface(&callbacks);
    engine.reregisterAllInputParameters();
    engine.receive(
        "04 02 7F FF 00 00 00 00 00 7F 00 03 00 00 00 00 00 00 00 00 00 00 00 01"
        "00 00 00 07 00 00 00 01 00 00 00 2A");
    EXPECT_THAT(callbacks.lines(), IsEmpty());
}

TEST_F(Reregistration, IdsThatWereUpdatedBeforeAreForgottenToo) {
    const char* const update =
        "04 02 7F FF 00 00 00 00 00 7F 00 03 00 00 00 00 00 00 00 00 00 00 00 01"
        "00 00 00 07 00 00 00 01 00 00 00 2A";
    RecordingCallbacks callbacks;
    engine.registerInputs({input("A")});
    engine.receive(inputsConfirmed({{7, "A"}}));
    engine.receive(update);
    engine.addCallbackInterface(&callbacks);
    engine.reregisterAllInputParameters();
    engine.receive(update);
    EXPECT_THAT(callbacks.lines(), IsEmpty());
}

TEST_F(Reregistration, OlderIdsOfAnInputThatIsGoneStayWhenThereAreNoInputs) {
    RecordingCallbacks callbacks;
    engine.registerInputs({input("A")});
    engine.receive(inputsConfirmed({{7, "A"}}));
    engine.receive(inputsConfirmed({{8, "A"}}));
    engine.unregisterInputParameters({"A"});
    engine.addCallbackInterface(&callbacks);
    engine.reregisterAllInputParameters();
    EXPECT_EQ(engine.getNumberOfInputParameters(true), 1U);
    engine.receive(
        "04 02 7F FF 00 00 00 00 00 7F 00 03 00 00 00 00 00 00 00 00 00 00 00 01"
        "00 00 00 07 00 00 00 01 00 00 00 2A");
    EXPECT_THAT(callbacks.lines(), ElementsAre("updated A=int:42"));
}

TEST_F(Reregistration, InputsConfirmedAgainAreCountedOnce) {
    engine.registerInputs({input("A"), input("B")});
    engine.receive(inputsConfirmed({{1, "A"}, {2, "B"}}));
    engine.reregisterAllInputParameters();
    engine.receive(inputsConfirmed({{11, "A"}, {12, "B"}}));
    EXPECT_EQ(engine.inputIds(), "11=A 12=B");
    EXPECT_EQ(engine.getNumberOfInputParametersWaitingForConfirmation(), 0);
}

TEST_F(Reregistration, OutputsConfirmedAgainUnderFreshIdsKeepTheStaleOnesCounted) {
    engine.registerOutputs({output("A"), output("B"), output("C")});
    engine.receive(outputsConfirmed({{1, "A"}, {2, "B"}}));
    engine.reregisterAllOutputParameters();
    engine.receive(outputsConfirmed({{11, "A"}, {2, "B"}, {13, "C"}}));
    EXPECT_EQ(engine.outputIds(), "1=A 2=B 11=A 13=C");
    EXPECT_EQ(engine.getNumberOfOutputParameters(true), 4U);
    EXPECT_EQ(engine.getNumberOfOutputParametersWaitingForConfirmation(), -1);
}

TEST_F(Reregistration, WithoutConnectionInputsAreRebuiltAndNothingIsSent) {
    registerTwoInputs(engine);
    engine.receive(inputsConfirmed({{7, "A"}}));
    engine.reregisterAllInputParameters();
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting", "B type 2 mode 3 waiting"));
    EXPECT_EQ(engine.inputIds(), "");
    EXPECT_EQ(streams.out(), kInputsLine);
    EXPECT_THAT(engine.requests(), IsEmpty());
}

TEST_F(Reregistration, ReachingReadyWithoutParametersOnlyAsksForTheVersion) {
    engine.changeState(CSClient::STATE_READY);
    EXPECT_THAT(engine.fakeTransport().written(), ElementsAre(frame(kVersionRequest)));
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_F(Reregistration, ReachingReadyAnnouncesAndSendsInputsBeforeOutputs) {
    registerTwoInputs(engine);
    registerThreeOutputs(engine);
    engine.changeState(CSClient::STATE_READY);
    EXPECT_THAT(engine.fakeTransport().written(),
                ElementsAre(frame(kVersionRequest), frame(kBothInputs), frame(kThreeOutputs)));
    EXPECT_EQ(streams.out(),
              std::string("Re-registering input/output parameters (2/3)...\n") + kInputsLine + kOutputsLine);
    EXPECT_EQ(streams.outInsertions(), 3);
    EXPECT_EQ(streams.err(), "");
}

TEST_F(Reregistration, ReachingReadyThroughConnectedRegistersOnce) {
    registerTwoInputs(engine);
    engine.changeState(CSClient::STATE_CONNECTED);
    EXPECT_THAT(engine.fakeTransport().written(), ElementsAre(frame(kVersionRequest), frame(kBothInputs)));
}

TEST_F(Reregistration, ReachingReadyWithOutputsOnlySaysNothingOfInputs) {
    registerThreeOutputs(engine);
    engine.changeState(CSClient::STATE_READY);
    EXPECT_THAT(engine.requests(), ElementsAre(frame(kThreeOutputs)));
    EXPECT_EQ(streams.out(), std::string("Re-registering input/output parameters (0/3)...\n") + kOutputsLine);
}

TEST_F(Reregistration, ReachingReadyWithInputsOnlySaysNothingOfOutputs) {
    registerTwoInputs(engine);
    engine.changeState(CSClient::STATE_READY);
    EXPECT_THAT(engine.requests(), ElementsAre(frame(kBothInputs)));
    EXPECT_EQ(streams.out(), std::string("Re-registering input/output parameters (2/0)...\n") + kInputsLine);
}

TEST_F(Reregistration, ParametersAreCountedByNameAndNotByConfirmation) {
    engine.registerInputs({input("A")});
    engine.registerOutputs({output("X")});
    engine.receive(outputsConfirmed({{1, "X"}, {2, "X"}, {3, "X"}}));
    engine.changeState(CSClient::STATE_READY);
    EXPECT_EQ(streams.out(),
              std::string("Re-registering input/output parameters (1/1)...\n") + kInputsLine + kOutputsLine);
}

TEST_F(Reregistration, EveryNewConnectionRegistersEverythingAgain) {
    registerThreeOutputs(engine);
    for (int i = 0; i < 3; ++i) {
        engine.changeState(CSClient::STATE_CONNECTED);
        engine.changeState(CSClient::STATE_RECONNECTING);
        engine.changeState(CSClient::STATE_CONNECTING);
    }
    EXPECT_THAT(engine.requests(), ElementsAre(frame(kThreeOutputs), frame(kThreeOutputs), frame(kThreeOutputs)));
}

TEST_F(Reregistration, AValuePublishedBeforeTheLossIsPublishedAgainOnceConfirmed) {
    engine.registerOutputs({output("X", 2)});
    engine.connect();
    engine.receive(outputsConfirmed({{7, "X"}}));
    engine.publish({record("X", 2, 42)});
    engine.changeState(CSClient::STATE_RECONNECTING);
    engine.changeState(CSClient::STATE_CONNECTING);
    engine.changeState(CSClient::STATE_CONNECTED);
    const std::size_t before = engine.requests().size();
    engine.receive(outputsConfirmed({{9, "X"}}));
    ASSERT_EQ(engine.requests().size(), before + 1);
    EXPECT_EQ(engine.requests().back(), frame("04 02 7F FF 00 00 00 24 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 01"
                                              "00 00 00 09 00 00 00 01 00 00 00 2A"));
}

TEST_F(Reregistration, ANewSimulatorIdRegistersEverythingUnderIt) {
    engine.registerInputs({input("A")});
    engine.registerOutputs({output("X")});
    engine.receive(inputsConfirmed({{7, "A"}}));
    engine.pretendState(CSClient::STATE_READY);
    engine.receive("04 02 7F FF 00 00 00 98 00 7F 01 06 00 05 00 00" + hexField("v", 128) + "00 00 00 03 00 00 00 01");
    EXPECT_THAT(engine.requests(), ElementsAre(frame("04 02 7F FF 00 00 00 40 00 7F 00 01 00 05 00 00 00 00 00 01"
                                                     "00 00 2E E0 00 00 2E E0 00 00 00 00" +
                                                     hexField("A")),
                                               frame("04 02 7F FF 00 00 00 3C 00 7F 00 02 00 05 00 00 00 00 00 01"
                                                     "00 00 04 B0 00 00 00 00" +
                                                     hexField("X"))));
    EXPECT_EQ(engine.inputIds(), "");
}

TEST(SilentReregistration, SendsEverythingAndPrintsNothing) {
    const CapturedStreams streams;
    ParameterEngine engine(1, CSClient::OPTION_SILENT);
    registerTwoInputs(engine);
    registerThreeOutputs(engine);
    engine.changeState(CSClient::STATE_READY);
    EXPECT_THAT(engine.fakeTransport().written(),
                ElementsAre(frame(kVersionRequest), frame(kBothInputs), frame(kThreeOutputs)));
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST(ReregistrationSender, IsCalledInsideTheCriticalSection) {
    SenderEngine engine(1, CSClient::OPTION_SILENT);
    registerTwoInputs(engine);
    registerThreeOutputs(engine);
    engine.calls.clear();
    engine.reregisterAllInputParameters();
    engine.reregisterAllOutputParameters();
    EXPECT_THAT(engine.calls, ElementsAre("register inputs A B", "register outputs X Y Z"));
}

}  // namespace
}  // namespace com_tesk::test
