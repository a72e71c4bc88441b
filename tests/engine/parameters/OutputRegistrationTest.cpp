#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/engine/parameters/ParameterEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class OutputRegistration : public testing::Test {
  protected:
    OutputRegistration() { engine.pretendState(CSClient::STATE_READY); }

    CapturedStreams streams;
    ParameterEngine engine;
};

TEST_F(OutputRegistration, NoDefinitionsAtAllGiveZeroAndNothingElse) {
    EXPECT_EQ(engine.registerOutputParameters(nullptr, 0), 0);
    EXPECT_THAT(engine.requests(), IsEmpty());
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_F(OutputRegistration, SendsOneRequestWithTheOutput) {
    EXPECT_EQ(engine.registerOutputs({output("A")}), 0);
    EXPECT_THAT(engine.requests(), ElementsAre(frame("04 02 7F FF 00 00 00 3C 00 7F 00 02 00 01 00 00 00 00 00 01"
                                                     "00 00 04 B0 00 00 00 00" +
                                                     hexField("A"))));
}

TEST_F(OutputRegistration, OneRequestListsAllOutputsInTheOrderOfTheDefinitions) {
    EXPECT_EQ(engine.registerOutputs({output("C", 2), output("A", 1), output("B", 2)}), 0);
    EXPECT_THAT(engine.requests(), ElementsAre(frame("04 02 7F FF 00 00 00 8C 00 7F 00 02 00 01 00 00 00 00 00 03"
                                                     "00 00 04 B0 00 00 00 01" +
                                                     hexField("C") + "00 00 04 B0 00 00 00 00" + hexField("A") +
                                                     "00 00 04 B0 00 00 00 01" + hexField("B"))));
}

TEST_F(OutputRegistration, TheTableIsInNameOrder) {
    engine.registerOutputs({output("C", 2), output("A", 1), output("B", 2)});
    EXPECT_THAT(engine.outputTable(),
                ElementsAre("A type 1 waiting 00000000", "B type 2 waiting 00000000", "C type 2 waiting 00000000"));
}

TEST_F(OutputRegistration, ANewOutputWaitsUnpublishedWithAllBitsZero) {
    engine.registerOutputs({output("A", 2)});
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 2 waiting 00000000"));
    EXPECT_EQ(engine.outputIds(), "");
}

TEST_F(OutputRegistration, PrintsNothing) {
    engine.registerOutputs({output("A"), output("B")});
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_F(OutputRegistration, LeavesTheInputsAlone) {
    engine.registerOutputs({output("A")});
    EXPECT_THAT(engine.inputTable(), IsEmpty());
}

TEST_F(OutputRegistration, AnInputOfTheSameNameDoesNotMatter) {
    engine.registerInputs({input("A")});
    EXPECT_EQ(engine.registerOutputs({output("A")}), 0);
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 waiting 00000000"));
}

TEST_F(OutputRegistration, ANameInOtherLetterCaseIsAnotherOutput) {
    EXPECT_EQ(engine.registerOutputs({output("a"), output("A")}), 0);
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 waiting 00000000", "a type 1 waiting 00000000"));
}

TEST_F(OutputRegistration, AnyTypeNumberButZeroIsStored) {
    EXPECT_EQ(engine.registerOutputs({output("A", 3), output("B", 5), output("C", 0xFFFFFFFF)}), 0);
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 3 waiting 00000000", "B type 5 waiting 00000000",
                                                  "C type 4294967295 waiting 00000000"));
}

TEST_F(OutputRegistration, OnlyTheIntegerTypeSetsTheIntegerFlag) {
    engine.registerOutputs({output("A", 5), output("B", 0xFFFFFFFF)});
    EXPECT_THAT(engine.requests(), ElementsAre(frame("04 02 7F FF 00 00 00 64 00 7F 00 02 00 01 00 00 00 00 00 02"
                                                     "00 00 04 B0 00 00 00 00" +
                                                     hexField("A") + "00 00 04 B0 00 00 00 00" + hexField("B"))));
}

TEST_F(OutputRegistration, ADefinitionMayBeReusedAfterTheCall) {
    std::vector<CSClient::OutputDef> definitions = {output("A", 2)};
    engine.registerOutputs(definitions);
    definitions[0].name = "Z";
    definitions[0].type = 1;
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 2 waiting 00000000"));
}

TEST_F(OutputRegistration, AnUnregisteredNameCanBeRegisteredAgainAsSomethingElse) {
    engine.registerOutputs({output("A", 1)});
    engine.receive(outputsConfirmed({{7, "A"}}));
    engine.publish({record("A", 1, 0x3F800000)});
    engine.unregisterOutputParameters({"A"});
    EXPECT_EQ(engine.registerOutputs({output("A", 2)}), 0);
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 2 waiting 00000000"));
}

class OutputRegistrationWithoutConnection : public testing::TestWithParam<CSClient::State> {};

TEST_P(OutputRegistrationWithoutConnection, SucceedsLocallyAndWritesNothing) {
    const CapturedStreams streams;
    ParameterEngine engine;
    engine.pretendState(GetParam());
    EXPECT_EQ(engine.registerOutputs({output("A")}), 0);
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 waiting 00000000"));
    EXPECT_THAT(engine.requests(), IsEmpty());
    EXPECT_EQ(streams.out() + streams.err(), "");
}

INSTANTIATE_TEST_SUITE_P(States, OutputRegistrationWithoutConnection,
                         testing::Values(CSClient::STATE_DISCONNECTED, CSClient::STATE_CONNECTING,
                                         CSClient::STATE_DISCONNECTING, CSClient::STATE_RECONNECTING));

TEST(OutputRegistrationWhileConnected, WritesBeforeTheConnectionIsReadyToo) {
    ParameterEngine engine;
    engine.pretendState(CSClient::STATE_CONNECTED);
    EXPECT_EQ(engine.registerOutputs({output("A")}), 0);
    EXPECT_EQ(engine.requests().size(), 1U);
}

TEST(OutputRegistrationRequest, CarriesTheSimulatorIdInItsUpperHalfWord) {
    ParameterEngine engine(0x7FFF);
    engine.pretendState(CSClient::STATE_READY);
    engine.registerOutputs({output("A")});
    EXPECT_THAT(engine.requests(), ElementsAre(frame("04 02 7F FF 00 00 00 3C 00 7F 00 02 7F FF 00 00 00 00 00 01"
                                                     "00 00 04 B0 00 00 00 00" +
                                                     hexField("A"))));
}

}  // namespace
}  // namespace com_tesk::test
