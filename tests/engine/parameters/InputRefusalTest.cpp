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
std::string refusal(ParameterEngine& engine, const std::vector<CSClient::InputDef>& inputs) {
    const CapturedStreams streams;
    EXPECT_EQ(engine.registerInputs(inputs), 3);
    EXPECT_EQ(streams.out(), "");
    EXPECT_EQ(streams.errInsertions(), 1) << "each line is written in one piece";
    return streams.err();
}

class InputRefusal : public testing::Test {
  protected:
    InputRefusal() { engine.pretendState(CSClient::STATE_READY); }

    ParameterEngine engine;
};

TEST_F(InputRefusal, TypeZeroIsRefused) {
    EXPECT_EQ(refusal(engine, {input("A", 0)}), "Subscription type of parameter id string 'A' is invalid!\n");
    EXPECT_THAT(engine.inputTable(), IsEmpty());
    EXPECT_THAT(engine.requests(), IsEmpty());
}

TEST_F(InputRefusal, TypeZeroIsRefusedWithAValidSubscriptionModeToo) {
    for (const std::uint32_t mode : {0U, 1U, 2U, 3U}) {
        EXPECT_EQ(refusal(engine, {input("A", 0, mode)}), "Subscription type of parameter id string 'A' is invalid!\n");
    }
}

TEST_F(InputRefusal, ANameOfThirtyOneCharactersIsAccepted) {
    EXPECT_EQ(engine.registerInputs({input(kName31)}), 0);
    EXPECT_THAT(engine.requests(), ElementsAre(frame("04 02 7F FF 00 00 00 40 00 7F 00 01 00 01 00 00 00 00 00 01"
                                                     "00 00 2E E0 00 00 2E E0 00 00 00 00" +
                                                     hexField(kName31))));
}

TEST_F(InputRefusal, ANameOfThirtyTwoCharactersIsRefused) {
    EXPECT_EQ(refusal(engine, {input(kName32)}),
              "Length of parameter id string '" + kName32 + "' exceeds maximum 32\n");
    EXPECT_THAT(engine.inputTable(), IsEmpty());
    EXPECT_THAT(engine.requests(), IsEmpty());
}

TEST_F(InputRefusal, ANameOfThirtyThreeCharactersIsRefusedInTheSameWords) {
    EXPECT_EQ(refusal(engine, {input(kName33)}),
              "Length of parameter id string '" + kName33 + "' exceeds maximum 32\n");
}

TEST_F(InputRefusal, AMegabyteOfNameIsPrintedWhole) {
    const std::string name(1'000'000, 'y');
    EXPECT_EQ(refusal(engine, {input(name)}), "Length of parameter id string '" + name + "' exceeds maximum 32\n");
}

TEST_F(InputRefusal, AWaitingNameIsRefused) {
    engine.registerInputs({input("A")});
    EXPECT_EQ(refusal(engine, {input("A")}), kALine);
    EXPECT_EQ(engine.requests().size(), 1U);
}

TEST_F(InputRefusal, AConfirmedNameIsRefusedAndKeepsWhatItHas) {
    engine.registerInputs({input("A", 1)});
    engine.receive(inputsConfirmed({{7, "A"}}));
    EXPECT_EQ(refusal(engine, {input("A", 2, 3)}), kALine);
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 id 7"));
    EXPECT_EQ(engine.inputIds(), "7=A");
}

TEST_F(InputRefusal, OfTwoEqualNamesTheFirstIsReportedAndNothingIsCreated) {
    EXPECT_EQ(refusal(engine, {input("A"), input("B"), input("A")}), kATwice);
    EXPECT_THAT(engine.inputTable(), IsEmpty());
    EXPECT_THAT(engine.requests(), IsEmpty());
}

TEST_F(InputRefusal, DefinitionsBeforeTheDoubledOneStay) {
    EXPECT_EQ(refusal(engine, {input("B"), input("A"), input("C"), input("A")}), kATwice);
    EXPECT_THAT(engine.inputTable(), ElementsAre("B type 1 mode 1 waiting"));
}

TEST_F(InputRefusal, DefinitionsBeforeARegisteredOneStayWaitingAndAreNotSent) {
    engine.registerInputs({input("B")});
    EXPECT_EQ(refusal(engine, {input("A"), input("B"), input("C")}), "Parameter 'B' already registered.\n");
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting", "B type 1 mode 1 waiting"));
    EXPECT_EQ(engine.getNumberOfInputParametersWaitingForConfirmation(), 2);
    EXPECT_EQ(engine.requests().size(), 1U) << "the one of B's own registration";
}

TEST_F(InputRefusal, DefinitionsBeforeATypelessOneStay) {
    EXPECT_EQ(refusal(engine, {input("C"), input("A"), input("B", 0), input("D")}),
              "Subscription type of parameter id string 'B' is invalid!\n");
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting", "C type 1 mode 1 waiting"));
    EXPECT_THAT(engine.requests(), IsEmpty());
}

TEST_F(InputRefusal, DefinitionsBeforeALongNameStay) {
    refusal(engine, {input("A"), input(kName32)});
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting"));
}

TEST_F(InputRefusal, WhatStayedCannotBeRegisteredAgain) {
    refusal(engine, {input("A"), input("B", 0)});
    EXPECT_EQ(refusal(engine, {input("A")}), kALine);
}

TEST_F(InputRefusal, WhatStayedIsSentByTheNextReregistration) {
    const CapturedStreams streams;
    engine.registerInputs({input("A"), input("B", 0)});
    engine.reregisterAllInputParameters();
    EXPECT_THAT(engine.requests(), ElementsAre(frame("04 02 7F FF 00 00 00 40 00 7F 00 01 00 01 00 00 00 00 00 01"
                                                     "00 00 2E E0 00 00 2E E0 00 00 00 00" +
                                                     hexField("A"))));
}

TEST_F(InputRefusal, TheCallEndsAtTheFirstRefusal) {
    EXPECT_EQ(refusal(engine, {input("A", 0), input("B", 0)}),
              "Subscription type of parameter id string 'A' is invalid!\n");
}

TEST_F(InputRefusal, TheTypeIsExaminedBeforeTheLength) {
    EXPECT_EQ(refusal(engine, {input(kName32, 0)}),
              "Subscription type of parameter id string '" + kName32 + "' is invalid!\n");
}

TEST_F(InputRefusal, TheTypeIsExaminedBeforeTheTable) {
    engine.registerInputs({input("A")});
    EXPECT_EQ(refusal(engine, {input("A", 0)}), "Subscription type of parameter id string 'A' is invalid!\n");
}

TEST_F(InputRefusal, TheTypeIsExaminedBeforeTheLaterDefinitions) {
    EXPECT_EQ(refusal(engine, {input("A", 0), input("A", 1)}),
              "Subscription type of parameter id string 'A' is invalid!\n");
}

TEST_F(InputRefusal, TheLengthIsExaminedBeforeTheLaterDefinitions) {
    EXPECT_EQ(refusal(engine, {input(kName32), input(kName32)}),
              "Length of parameter id string '" + kName32 + "' exceeds maximum 32\n");
}

TEST_F(InputRefusal, TheTableIsExaminedBeforeTheLaterDefinitions) {
    engine.registerInputs({input("A")});
    EXPECT_EQ(refusal(engine, {input("A"), input("A")}), kALine);
}

TEST_F(InputRefusal, TheTypeIsExaminedBeforeEverythingElseAtOnce) {
    EXPECT_EQ(refusal(engine, {input(kName33, 0), input(kName33, 0)}),
              "Subscription type of parameter id string '" + kName33 + "' is invalid!\n");
}

TEST_F(InputRefusal, ALaterDefinitionOfTheSameNameCountsEvenIfItIsItselfInvalid) {
    EXPECT_EQ(refusal(engine, {input("A"), input("A", 0)}), kATwice);
}

TEST_F(InputRefusal, ADoubledNameIsReportedBeforeALaterInvalidDefinitionIsLookedAt) {
    EXPECT_EQ(refusal(engine, {input("A"), input("B", 0), input("A")}), kATwice);
}

TEST_F(InputRefusal, AnEarlierInvalidDefinitionIsReportedBeforeALaterDoubledName) {
    EXPECT_EQ(refusal(engine, {input("B", 0), input("A"), input("A")}),
              "Subscription type of parameter id string 'B' is invalid!\n");
}

TEST_F(InputRefusal, AnotherLetterCaseIsNoDouble) {
    EXPECT_EQ(engine.registerInputs({input("A"), input("a")}), 0);
}

TEST_F(InputRefusal, ChecksAreTheSameWithoutAConnection) {
    engine.pretendState(CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(refusal(engine, {input("A"), input("A")}), kATwice);
}

TEST_F(InputRefusal, TheEngineGoesOnAfterARefusal) {
    refusal(engine, {input("A", 0)});
    EXPECT_EQ(engine.registerInputs({input("A")}), 0);
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting"));
}

TEST(SilentInputRefusal, PrintsNothingAndRefusesAllTheSame) {
    const CapturedStreams streams;
    ParameterEngine engine(1, CSClient::OPTION_SILENT);
    engine.pretendState(CSClient::STATE_READY);
    EXPECT_EQ(engine.registerInputs({input("A", 0)}), 3);
    EXPECT_EQ(engine.registerInputs({input(kName32)}), 3);
    EXPECT_EQ(engine.registerInputs({input("A"), input("A")}), 3);
    EXPECT_EQ(engine.registerInputs({input("A"), input("B", 0)}), 3);
    EXPECT_EQ(engine.registerInputs({input("A")}), 3);
    EXPECT_EQ(streams.out() + streams.err(), "");
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting"));
    EXPECT_THAT(engine.requests(), IsEmpty());
}

}  // namespace
}  // namespace com_tesk::test
