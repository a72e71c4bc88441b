#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/engine/parameters/ParameterEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const char kALine[] = "Parameter 'A' already registered.\n";
const char kATwice[] = "Parameter 'A' is requested more than once in the same subscription call.\n";

/// What is printed for definitions of which one is refused; the refusal itself is checked here.
std::string refusal(ParameterEngine& engine, const std::vector<CSClient::OutputDef>& outputs) {
    const CapturedStreams streams;
    EXPECT_EQ(engine.registerOutputs(outputs), 3);
    EXPECT_EQ(streams.out(), "");
    EXPECT_EQ(streams.errInsertions(), 1) << "each line is written in one piece";
    return streams.err();
}

class OutputRefusal : public testing::Test {
  protected:
    OutputRefusal() { engine.pretendState(CSClient::STATE_READY); }

    ParameterEngine engine;
};

TEST_F(OutputRefusal, TypeZeroIsRefused) {
    EXPECT_EQ(refusal(engine, {output("A", 0)}), "Invalid parameter type for output id string 'A'!\n");
    EXPECT_THAT(engine.outputTable(), IsEmpty());
    EXPECT_THAT(engine.requests(), IsEmpty());
}

TEST_F(OutputRefusal, ANameOfThirtyOneCharactersIsAccepted) {
    EXPECT_EQ(engine.registerOutputs({output(kName31)}), 0);
    EXPECT_THAT(engine.requests(), ElementsAre(frame("04 02 7F FF 00 00 00 3C 00 7F 00 02 00 01 00 00 00 00 00 01"
                                                     "00 00 04 B0 00 00 00 00" +
                                                     hexField(kName31))));
}

TEST_F(OutputRefusal, ANameOfThirtyTwoCharactersIsRefused) {
    EXPECT_EQ(refusal(engine, {output(kName32)}),
              "Length of parameter id string '" + kName32 + "' exceeds maximum 32\n");
    EXPECT_THAT(engine.outputTable(), IsEmpty());
    EXPECT_THAT(engine.requests(), IsEmpty());
}

TEST_F(OutputRefusal, ANameOfThirtyThreeCharactersIsRefusedInTheSameWords) {
    EXPECT_EQ(refusal(engine, {output(kName33)}),
              "Length of parameter id string '" + kName33 + "' exceeds maximum 32\n");
}

TEST_F(OutputRefusal, AMegabyteOfNameIsPrintedWhole) {
    const std::string name(1'000'000, 'y');
    EXPECT_EQ(refusal(engine, {output(name)}), "Length of parameter id string '" + name + "' exceeds maximum 32\n");
}

TEST_F(OutputRefusal, AWaitingNameIsRefused) {
    engine.registerOutputs({output("A")});
    EXPECT_EQ(refusal(engine, {output("A")}), kALine);
    EXPECT_EQ(engine.requests().size(), 1U);
}

TEST_F(OutputRefusal, AConfirmedNameIsRefusedAndKeepsWhatItHas) {
    engine.registerOutputs({output("A", 1)});
    engine.receive(outputsConfirmed({{7, "A"}}));
    engine.publish({record("A", 1, 0x3F800000)});
    EXPECT_EQ(refusal(engine, {output("A", 2)}), kALine);
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 id 7 published 3F800000"));
    EXPECT_EQ(engine.outputIds(), "7=A");
}

TEST_F(OutputRefusal, OfTwoEqualNamesTheFirstIsReportedAndNothingIsCreated) {
    EXPECT_EQ(refusal(engine, {output("A"), output("B"), output("A")}), kATwice);
    EXPECT_THAT(engine.outputTable(), IsEmpty());
    EXPECT_THAT(engine.requests(), IsEmpty());
}

TEST_F(OutputRefusal, DefinitionsBeforeTheDoubledOneStay) {
    EXPECT_EQ(refusal(engine, {output("B"), output("A"), output("C"), output("A")}), kATwice);
    EXPECT_THAT(engine.outputTable(), ElementsAre("B type 1 waiting 00000000"));
}

TEST_F(OutputRefusal, DefinitionsBeforeARegisteredOneStayWaitingAndAreNotSent) {
    engine.registerOutputs({output("B")});
    EXPECT_EQ(refusal(engine, {output("A"), output("B"), output("C")}), "Parameter 'B' already registered.\n");
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 waiting 00000000", "B type 1 waiting 00000000"));
    EXPECT_EQ(engine.getNumberOfOutputParametersWaitingForConfirmation(), 2);
    EXPECT_EQ(engine.requests().size(), 1U) << "the one of B's own registration";
}

TEST_F(OutputRefusal, DefinitionsBeforeATypelessOneStay) {
    EXPECT_EQ(refusal(engine, {output("C"), output("A"), output("B", 0), output("D")}),
              "Invalid parameter type for output id string 'B'!\n");
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 waiting 00000000", "C type 1 waiting 00000000"));
    EXPECT_THAT(engine.requests(), IsEmpty());
}

TEST_F(OutputRefusal, DefinitionsBeforeALongNameStay) {
    refusal(engine, {output("A"), output(kName32)});
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 waiting 00000000"));
}

TEST_F(OutputRefusal, WhatStayedCannotBeRegisteredAgain) {
    refusal(engine, {output("A"), output("B", 0)});
    EXPECT_EQ(refusal(engine, {output("A")}), kALine);
}

TEST_F(OutputRefusal, WhatStayedIsSentByTheNextReregistration) {
    const CapturedStreams streams;
    engine.registerOutputs({output("A"), output("B", 0)});
    engine.reregisterAllOutputParameters();
    EXPECT_THAT(engine.requests(), ElementsAre(frame("04 02 7F FF 00 00 00 3C 00 7F 00 02 00 01 00 00 00 00 00 01"
                                                     "00 00 04 B0 00 00 00 00" +
                                                     hexField("A"))));
}

TEST_F(OutputRefusal, TheCallEndsAtTheFirstRefusal) {
    EXPECT_EQ(refusal(engine, {output("A", 0), output("B", 0)}), "Invalid parameter type for output id string 'A'!\n");
}

TEST_F(OutputRefusal, TheTypeIsExaminedBeforeTheLength) {
    EXPECT_EQ(refusal(engine, {output(kName32, 0)}),
              "Invalid parameter type for output id string '" + kName32 + "'!\n");
}

TEST_F(OutputRefusal, TheTypeIsExaminedBeforeTheTable) {
    engine.registerOutputs({output("A")});
    EXPECT_EQ(refusal(engine, {output("A", 0)}), "Invalid parameter type for output id string 'A'!\n");
}

TEST_F(OutputRefusal, TheTypeIsExaminedBeforeTheLaterDefinitions) {
    EXPECT_EQ(refusal(engine, {output("A", 0), output("A", 1)}), "Invalid parameter type for output id string 'A'!\n");
}

TEST_F(OutputRefusal, TheLengthIsExaminedBeforeTheLaterDefinitions) {
    EXPECT_EQ(refusal(engine, {output(kName32), output(kName32)}),
              "Length of parameter id string '" + kName32 + "' exceeds maximum 32\n");
}

TEST_F(OutputRefusal, TheTableIsExaminedBeforeTheLaterDefinitions) {
    engine.registerOutputs({output("A")});
    EXPECT_EQ(refusal(engine, {output("A"), output("A")}), kALine);
}

TEST_F(OutputRefusal, TheTypeIsExaminedBeforeEverythingElseAtOnce) {
    EXPECT_EQ(refusal(engine, {output(kName33, 0), output(kName33, 0)}),
              "Invalid parameter type for output id string '" + kName33 + "'!\n");
}

TEST_F(OutputRefusal, ALaterDefinitionOfTheSameNameCountsEvenIfItIsItselfInvalid) {
    EXPECT_EQ(refusal(engine, {output("A"), output("A", 0)}), kATwice);
}

TEST_F(OutputRefusal, ADoubledNameIsReportedBeforeALaterInvalidDefinitionIsLookedAt) {
    EXPECT_EQ(refusal(engine, {output("A"), output("B", 0), output("A")}), kATwice);
}

TEST_F(OutputRefusal, AnEarlierInvalidDefinitionIsReportedBeforeALaterDoubledName) {
    EXPECT_EQ(refusal(engine, {output("B", 0), output("A"), output("A")}),
              "Invalid parameter type for output id string 'B'!\n");
}

TEST_F(OutputRefusal, AnotherLetterCaseIsNoDouble) {
    EXPECT_EQ(engine.registerOutputs({output("A"), output("a")}), 0);
}

TEST_F(OutputRefusal, ChecksAreTheSameWithoutAConnection) {
    engine.pretendState(CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(refusal(engine, {output("A"), output("A")}), kATwice);
}

TEST_F(OutputRefusal, TheEngineGoesOnAfterARefusal) {
    refusal(engine, {output("A", 0)});
    EXPECT_EQ(engine.registerOutputs({output("A")}), 0);
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 waiting 00000000"));
}

TEST(SilentOutputRefusal, PrintsNothingAndRefusesAllTheSame) {
    const CapturedStreams streams;
    ParameterEngine engine(1, CSClient::OPTION_SILENT);
    engine.pretendState(CSClient::STATE_READY);
    EXPECT_EQ(engine.registerOutputs({output("A", 0)}), 3);
    EXPECT_EQ(engine.registerOutputs({output(kName32)}), 3);
    EXPECT_EQ(engine.registerOutputs({output("A"), output("A")}), 3);
    EXPECT_EQ(engine.registerOutputs({output("A"), output("B", 0)}), 3);
    EXPECT_EQ(engine.registerOutputs({output("A")}), 3);
    EXPECT_EQ(streams.out() + streams.err(), "");
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 waiting 00000000"));
    EXPECT_THAT(engine.requests(), IsEmpty());
}

}  // namespace
}  // namespace com_tesk::test
