#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/engine/parameters/ParameterEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ParameterTables : public testing::Test {
  protected:
    CapturedStreams streams;
    ParameterEngine engine;
};

TEST_F(ParameterTables, ANewEngineCountsNothing) {
    EXPECT_EQ(engine.getNumberOfInputParameters(false), 0U);
    EXPECT_EQ(engine.getNumberOfInputParameters(true), 0U);
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 0U);
    EXPECT_EQ(engine.getNumberOfOutputParameters(true), 0U);
    EXPECT_EQ(engine.getNumberOfInputParametersWaitingForConfirmation(), 0);
    EXPECT_EQ(engine.getNumberOfOutputParametersWaitingForConfirmation(), 0);
}

TEST_F(ParameterTables, ANewEngineKnowsNoName) {
    for (const std::string& name : {std::string("A"), std::string()}) {
        EXPECT_FALSE(engine.hasInputParameter(name, false));
        EXPECT_FALSE(engine.hasInputParameter(name, true));
        EXPECT_FALSE(engine.hasOutputParameter(name, false));
        EXPECT_FALSE(engine.hasOutputParameter(name, true));
    }
}

TEST_F(ParameterTables, RegisteredOutputsWaitUntilTheHostConfirmsThem) {
    engine.registerOutputs({output("A"), output("B"), output("C")});
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 3U);
    EXPECT_EQ(engine.getNumberOfOutputParameters(true), 0U);
    EXPECT_EQ(engine.getNumberOfOutputParametersWaitingForConfirmation(), 3);
    engine.receive(outputsConfirmed({{7, "B"}}));
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 3U);
    EXPECT_EQ(engine.getNumberOfOutputParameters(true), 1U);
    EXPECT_EQ(engine.getNumberOfOutputParametersWaitingForConfirmation(), 2);
}

TEST_F(ParameterTables, RegisteredInputsWaitUntilTheHostConfirmsThem) {
    engine.registerInputs({input("A"), input("B"), input("C")});
    EXPECT_EQ(engine.getNumberOfInputParameters(false), 3U);
    EXPECT_EQ(engine.getNumberOfInputParameters(true), 0U);
    EXPECT_EQ(engine.getNumberOfInputParametersWaitingForConfirmation(), 3);
    engine.receive(inputsConfirmed({{7, "B"}}));
    EXPECT_EQ(engine.getNumberOfInputParameters(false), 3U);
    EXPECT_EQ(engine.getNumberOfInputParameters(true), 1U);
    EXPECT_EQ(engine.getNumberOfInputParametersWaitingForConfirmation(), 2);
}

TEST_F(ParameterTables, InputsAndOutputsAreCountedApart) {
    engine.registerInputs({input("A")});
    engine.registerOutputs({output("B"), output("C")});
    engine.receive(outputsConfirmed({{7, "B"}}));
    EXPECT_EQ(engine.getNumberOfInputParameters(false), 1U);
    EXPECT_EQ(engine.getNumberOfInputParameters(true), 0U);
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 2U);
    EXPECT_FALSE(engine.hasInputParameter("B", false));
    EXPECT_FALSE(engine.hasOutputParameter("A", false));
}

TEST_F(ParameterTables, AWaitingOutputIsFoundButNotAsConfirmed) {
    engine.registerOutputs({output("A")});
    EXPECT_TRUE(engine.hasOutputParameter("A", false));
    EXPECT_FALSE(engine.hasOutputParameter("A", true));
    engine.receive(outputsConfirmed({{7, "A"}}));
    EXPECT_TRUE(engine.hasOutputParameter("A", false));
    EXPECT_TRUE(engine.hasOutputParameter("A", true));
}

TEST_F(ParameterTables, AWaitingInputIsFoundButNotAsConfirmed) {
    engine.registerInputs({input("A")});
    EXPECT_TRUE(engine.hasInputParameter("A", false));
    EXPECT_FALSE(engine.hasInputParameter("A", true));
    engine.receive(inputsConfirmed({{7, "A"}}));
    EXPECT_TRUE(engine.hasInputParameter("A", false));
    EXPECT_TRUE(engine.hasInputParameter("A", true));
}

TEST_F(ParameterTables, LetterCaseCountsWhenLookingUp) {
    engine.registerOutputs({output("Speed")});
    engine.registerInputs({input("Speed")});
    EXPECT_FALSE(engine.hasOutputParameter("speed", false));
    EXPECT_FALSE(engine.hasInputParameter("SPEED", false));
}

TEST_F(ParameterTables, AnIdLikeTheUnassignedOneCountsButDoesNotShow) {
    engine.registerInputs({input("A")});
    engine.registerOutputs({output("A")});
    engine.receive(inputsConfirmed({{1048575, "A"}}));
    engine.receive(outputsConfirmed({{1048575, "A"}}));
    EXPECT_EQ(engine.getNumberOfInputParameters(true), 1U);
    EXPECT_FALSE(engine.hasInputParameter("A", true));
    EXPECT_EQ(engine.getNumberOfOutputParameters(true), 1U);
    EXPECT_FALSE(engine.hasOutputParameter("A", true));
}

TEST_F(ParameterTables, IdsOnBothSidesOfTheUnassignedOneShow) {
    engine.registerOutputs({output("A"), output("B")});
    engine.receive(outputsConfirmed({{1048574, "A"}, {1048576, "B"}}));
    EXPECT_TRUE(engine.hasOutputParameter("A", true));
    EXPECT_TRUE(engine.hasOutputParameter("B", true));
}

TEST_F(ParameterTables, FreshIdsOfTheSameOutputsMakeTheWaitingCountNegative) {
    engine.registerOutputs({output("A"), output("B"), output("C")});
    engine.receive(outputsConfirmed({{1, "A"}, {2, "B"}, {3, "C"}}));
    engine.receive(outputsConfirmed({{11, "A"}, {12, "B"}}));
    EXPECT_EQ(engine.outputIds(), "1=A 2=B 3=C 11=A 12=B");
    EXPECT_EQ(engine.getNumberOfOutputParameters(true), 5U);
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 3U);
    EXPECT_EQ(engine.getNumberOfOutputParametersWaitingForConfirmation(), -2);
}

TEST_F(ParameterTables, FreshIdsOfTheSameInputsMakeTheWaitingCountNegative) {
    engine.registerInputs({input("A")});
    engine.receive(inputsConfirmed({{1, "A"}}));
    engine.receive(inputsConfirmed({{2, "A"}}));
    engine.receive(inputsConfirmed({{3, "A"}}));
    EXPECT_EQ(engine.getNumberOfInputParametersWaitingForConfirmation(), -2);
}

TEST_F(ParameterTables, ForgettingAllEmptiesEverythingSilently) {
    engine.registerInputs({input("A"), input("B")});
    engine.registerOutputs({output("C"), output("D")});
    engine.receive(inputsConfirmed({{1, "A"}}));
    engine.receive(outputsConfirmed({{2, "C"}, {3, "C"}}));
    engine.pretendState(CSClient::STATE_READY);
    engine.unregisterAllLocalParameters();
    EXPECT_THAT(engine.inputTable(), IsEmpty());
    EXPECT_EQ(engine.inputIds(), "");
    EXPECT_THAT(engine.outputTable(), IsEmpty());
    EXPECT_EQ(engine.outputIds(), "");
    EXPECT_THAT(engine.requests(), IsEmpty());
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_F(ParameterTables, ForgettingAllRemovesIdsOfUnregisteredOutputsToo) {
    engine.registerOutputs({output("A")});
    engine.receive(outputsConfirmed({{1, "A"}, {2, "A"}}));
    engine.unregisterOutputParameters({"A"});
    EXPECT_EQ(engine.outputIds(), "1=gone");
    engine.unregisterAllLocalParameters();
    EXPECT_EQ(engine.outputIds(), "");
    EXPECT_EQ(engine.getNumberOfOutputParametersWaitingForConfirmation(), 0);
}

TEST_F(ParameterTables, ForgettingAllTwiceIsHarmless) {
    engine.registerOutputs({output("A")});
    engine.unregisterAllLocalParameters();
    engine.unregisterAllLocalParameters();
    EXPECT_EQ(engine.registerOutputs({output("A")}), 0);
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 waiting 00000000"));
}

TEST_F(ParameterTables, TheEndOfTheConnectionForgetsEverything) {
    engine.connect();
    engine.registerInputs({input("A")});
    engine.registerOutputs({output("B")});
    engine.receive(inputsConfirmed({{1, "A"}}));
    engine.receive(outputsConfirmed({{2, "B"}}));
    engine.forceCloseConnection();
    EXPECT_EQ(engine.getNumberOfInputParameters(false), 1U) << "not before the state is 0";
    engine.changeState(CSClient::STATE_DISCONNECTED);
    EXPECT_THAT(engine.inputTable(), IsEmpty());
    EXPECT_EQ(engine.inputIds(), "");
    EXPECT_THAT(engine.outputTable(), IsEmpty());
    EXPECT_EQ(engine.outputIds(), "");
    EXPECT_EQ(engine.requests().size(), 2U) << "the two registrations";
}

TEST_F(ParameterTables, EveryOtherStateKeepsTheTables) {
    engine.registerInputs({input("A")});
    engine.registerOutputs({output("B")});
    for (const CSClient::State state :
         {CSClient::STATE_CONNECTING, CSClient::STATE_CONNECTED, CSClient::STATE_RECONNECTING,
          CSClient::STATE_CONNECTING, CSClient::STATE_DISCONNECTING}) {
        engine.changeState(state);
        EXPECT_EQ(engine.getNumberOfInputParameters(false), 1U) << state;
        EXPECT_EQ(engine.getNumberOfOutputParameters(false), 1U) << state;
    }
}

}  // namespace
}  // namespace com_tesk::test
