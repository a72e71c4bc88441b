#include "tests/engine/parameters/ParameterTest.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

const char kInputsLine[] = "Registering input parameters with server...\n";
const char kOutputsLine[] = "Registering output parameters with server...\n";

const std::string kUpdateOf7 = update(1, {updated(7, 1, "00 00 00 2A")});

class Reregistration : public testing::Test {
  protected:
    CapturedStreams streams;
    TestEngine engine;
    RecordingCallbacks callbacks;
};

TEST_F(Reregistration, RebuildsTheInputsWithoutIds) {
    engine.registerInputs({input("B", 5, 3), input("A", 2, 1)});
    engine.receive(inputsConfirmed({{7, "A"}, {8, "A"}, {9, "B"}}));
    engine.pretendState(CSClient::STATE_READY);
    engine.reregisterAllInputParameters();
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 2 mode 1 waiting", "B type 5 mode 3 waiting"));
    EXPECT_EQ(engine.inputIds(), "");
    EXPECT_EQ(engine.getNumberOfInputParametersWaitingForConfirmation(), 2);
    EXPECT_EQ(engine.requests(), inputRequest({input("A", 2, 1), input("B", 5, 3)})) << "in name order";
    EXPECT_EQ(streams.out(), kInputsLine);
    EXPECT_EQ(streams.outInsertions(), 1);
    engine.receive(inputsConfirmed({{11, "A"}, {12, "B"}}));
    EXPECT_EQ(engine.inputIds(), "11=A 12=B");
    EXPECT_EQ(streams.err(), "");
}

TEST_F(Reregistration, KeepsTheOutputs) {
    engine.registerOutputs({output("C", 2), output("B", 5), output("A", 1)});
    engine.publish({parameter("A", 1, 0x3F800000)});
    engine.receive(outputsConfirmed({{7, "A"}, {8, "A"}, {9, "B"}}));
    engine.pretendState(CSClient::STATE_READY);
    engine.reregisterAllOutputParameters();
    EXPECT_THAT(engine.outputTable(),
                ElementsAre("A type 1 id 8 published 3F800000", "B type 5 id 9 00000000", "C type 2 waiting 00000000"));
    EXPECT_EQ(engine.outputIds(), "7=A 8=A 9=B");
    EXPECT_EQ(engine.requests(), outputRequest({output("A"), output("B"), output("C", 2)})) << "in name order";
    EXPECT_EQ(streams.out(), kOutputsLine);
    EXPECT_EQ(streams.outInsertions(), 1);
    engine.receive(outputsConfirmed({{11, "A"}, {9, "B"}, {13, "C"}}));
    EXPECT_EQ(engine.outputIds(), "7=A 8=A 9=B 11=A 13=C");
    EXPECT_EQ(engine.getNumberOfOutputParametersWaitingForConfirmation(), -2);
    EXPECT_EQ(streams.err(), "");
}

TEST_F(Reregistration, OfNothingDoesNothing) {
    engine.pretendState(CSClient::STATE_READY);
    engine.reregisterAllInputParameters();
    engine.reregisterAllOutputParameters();
    EXPECT_THAT(engine.requests(), IsEmpty());
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_F(Reregistration, WithoutConnectionRebuildsInputsAndSendsNothing) {
    engine.registerInputs({input("A")});
    engine.receive(inputsConfirmed({{7, "A"}}));
    engine.reregisterAllInputParameters();
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting"));
    EXPECT_EQ(engine.inputIds(), "");
    EXPECT_EQ(streams.out(), kInputsLine);
    EXPECT_THAT(engine.requests(), IsEmpty());
}

TEST_F(Reregistration, EndsUpdatesUnderOldIds) {
    for (const bool isUpdatedBefore : {false, true}) {
        TestEngine each(1, kSilent);
        each.registerInputs({input("A")});
        each.receive(inputsConfirmed({{7, "A"}}));
        if (isUpdatedBefore) {
            each.receive(kUpdateOf7);
        }
        each.addCallbackInterface(&callbacks);
        each.reregisterAllInputParameters();
        each.receive(kUpdateOf7);
        EXPECT_THAT(callbacks.lines(), IsEmpty()) << isUpdatedBefore;
    }
}

TEST_F(Reregistration, WithoutInputsKeepsTheEarlierIdsOfUnregisteredInputs) {
    engine.registerInputs({input("A")});
    engine.receive(inputsConfirmed({{7, "A"}, {8, "A"}}));
    engine.unregisterInputParameters({"A"});
    engine.addCallbackInterface(&callbacks);
    engine.reregisterAllInputParameters();
    EXPECT_EQ(engine.getNumberOfInputParameters(true), 1U);
    engine.receive(kUpdateOf7);
    EXPECT_THAT(callbacks.lines(), ElementsAre("updated A=int:42"));
}

struct ReadyRow {
    std::vector<CSClient::InputDef> inputs;
    std::vector<CSClient::OutputDef> outputs;
    std::string out;
};

const ReadyRow kReadyRows[] = {
    {{}, {}, ""},
    {{input("A"), input("B", 2, 3)},
     {},
     std::string("Re-registering input/output parameters (2/0)...\n") + kInputsLine},
    {{},
     {output("X"), output("Y", 2), output("Z")},
     std::string("Re-registering input/output parameters (0/3)...\n") + kOutputsLine},
    {{input("A"), input("B", 2, 3)},
     {output("X"), output("Y", 2), output("Z")},
     std::string("Re-registering input/output parameters (2/3)...\n") + kInputsLine + kOutputsLine},
};

/// True when the engine is silent.
class ReachingReady : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(Silent, ReachingReady, testing::Bool());

TEST_P(ReachingReady, SendsVersionInputsAndOutputsOnEveryConnection) {
    for (const ReadyRow& row : kReadyRows) {
        SCOPED_TRACE(row.out);
        const CapturedStreams streams;
        TestEngine engine(1, GetParam() ? kSilent : 0);
        engine.registerInputs(row.inputs);
        engine.registerOutputs(row.outputs);
        engine.receive(outputsConfirmed({{1, "X"}, {2, "X"}, {3, "X"}}));  // Confirmations do not count.
        const std::string before = streams.err();
        Requests expected;
        std::string out;
        for (int connection = 0; connection < 3; ++connection) {
            expected = expected + versionRequest() + inputRequest(row.inputs) + outputRequest(row.outputs);
            out += GetParam() ? "" : row.out;
            engine.changeState(CSClient::STATE_CONNECTED);
            EXPECT_EQ(engine.getState(), CSClient::STATE_READY);
            EXPECT_EQ(engine.requests(), expected);
            EXPECT_EQ(streams.out(), out);
            engine.changeState(CSClient::STATE_RECONNECTING);
            engine.changeState(CSClient::STATE_CONNECTING);
        }
        EXPECT_EQ(streams.err(), before);
    }
}

TEST_F(Reregistration, IsFollowedByThePublicationOfAnEarlierValue) {
    engine.registerOutputs({output("X", 2)});
    engine.connect();
    engine.receive(outputsConfirmed({{7, "X"}}));
    engine.publish({parameter("X", 2, 42)});
    engine.changeState(CSClient::STATE_RECONNECTING);
    engine.changeState(CSClient::STATE_CONNECTING);
    engine.changeState(CSClient::STATE_CONNECTED);
    engine.ignoreRequestsSoFar();
    engine.receive(outputsConfirmed({{9, "X"}}));
    EXPECT_EQ(engine.requests(), publication({{9, 1, 42}}));
}

TEST_F(Reregistration, FollowsANewSimulatorId) {
    engine.registerInputs({input("A")});
    engine.registerOutputs({output("X")});
    engine.receive(inputsConfirmed({{7, "A"}}));
    engine.pretendState(CSClient::STATE_READY);
    engine.receive(versionResponse(0x00050000, "v", 3, 1));
    EXPECT_EQ(engine.requests(), requestOf("04 02 7F FF 00 00 00 40 00 7F 00 01 00 05 00 00 00 00 00 01"
                                           "00 00 2E E0 00 00 2E E0 00 00 00 00" +
                                           hexField("A")) +
                                     requestOf("04 02 7F FF 00 00 00 3C 00 7F 00 02 00 05 00 00 00 00 00 01"
                                               "00 00 04 B0 00 00 00 00" +
                                               hexField("X")));
    EXPECT_EQ(engine.inputIds(), "");
}

}  // namespace
}  // namespace com_tesk::test
