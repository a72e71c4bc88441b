#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/engine/parameters/ParameterEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class InputRegistration : public testing::Test {
  protected:
    InputRegistration() { engine.pretendState(CSClient::STATE_READY); }

    CapturedStreams streams;
    ParameterEngine engine;
};

TEST_F(InputRegistration, NoDefinitionsAtAllGiveZeroAndNothingElse) {
    EXPECT_EQ(engine.registerInputParameters(nullptr, 0), 0);
    EXPECT_THAT(engine.requests(), IsEmpty());
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_F(InputRegistration, SendsOneRequestWithTheInput) {
    EXPECT_EQ(engine.registerInputs({input("A", 1, 1)}), 0);
    EXPECT_THAT(engine.requests(), ElementsAre(frame("04 02 7F FF 00 00 00 40 00 7F 00 01 00 01 00 00 00 00 00 01"
                                                     "00 00 2E E0 00 00 2E E0 00 00 00 00" +
                                                     hexField("A"))));
}

TEST_F(InputRegistration, OneRequestListsAllInputsInTheOrderOfTheDefinitions) {
    EXPECT_EQ(engine.registerInputs({input("C", 2, 3), input("A", 1, 2), input("B", 2, 1)}), 0);
    EXPECT_THAT(engine.requests(),
                ElementsAre(frame("04 02 7F FF 00 00 00 98 00 7F 00 01 00 01 00 00 00 00 00 03"
                                  "00 01 D4 C0 00 01 D4 C0 00 00 00 01" +
                                  hexField("C") + "00 00 00 00 00 00 00 00 00 00 00 00" + hexField("A") +
                                  "00 00 2E E0 00 00 2E E0 00 00 00 01" + hexField("B"))));
}

TEST_F(InputRegistration, TheTableIsInNameOrder) {
    engine.registerInputs({input("C", 2, 3), input("A", 1, 2), input("B", 2, 1)});
    EXPECT_THAT(engine.inputTable(),
                ElementsAre("A type 1 mode 2 waiting", "B type 2 mode 1 waiting", "C type 2 mode 3 waiting"));
    EXPECT_EQ(engine.inputIds(), "");
}

TEST_F(InputRegistration, AnySubscriptionModeIsAcceptedAndStored) {
    EXPECT_EQ(engine.registerInputs({input("A", 1, 0), input("B", 1, 4), input("C", 1, 7), input("D", 1, 0xFFFFFFFF)}),
              0);
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 0 waiting", "B type 1 mode 4 waiting",
                                                 "C type 1 mode 7 waiting", "D type 1 mode 4294967295 waiting"));
}

TEST_F(InputRegistration, AnUnknownSubscriptionModeAsksForRateZero) {
    engine.registerInputs({input("A", 1, 0), input("B", 2, 4), input("C", 1, 0xFFFFFFFF)});
    EXPECT_THAT(engine.requests(),
                ElementsAre(frame("04 02 7F FF 00 00 00 98 00 7F 00 01 00 01 00 00 00 00 00 03"
                                  "00 00 00 00 00 00 00 00 00 00 00 00" +
                                  hexField("A") + "00 00 00 00 00 00 00 00 00 00 00 01" + hexField("B") +
                                  "00 00 00 00 00 00 00 00 00 00 00 00" + hexField("C"))));
}

TEST_F(InputRegistration, AnyTypeNumberButZeroIsStored) {
    EXPECT_EQ(engine.registerInputs({input("A", 3), input("B", 5), input("C", 0xFFFFFFFF)}), 0);
    EXPECT_THAT(engine.inputTable(),
                ElementsAre("A type 3 mode 1 waiting", "B type 5 mode 1 waiting", "C type 4294967295 mode 1 waiting"));
}

TEST_F(InputRegistration, PrintsNothing) {
    engine.registerInputs({input("A"), input("B")});
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_F(InputRegistration, LeavesTheOutputsAlone) {
    engine.registerInputs({input("A")});
    EXPECT_THAT(engine.outputTable(), IsEmpty());
}

TEST_F(InputRegistration, AnOutputOfTheSameNameDoesNotMatter) {
    engine.registerOutputs({output("A")});
    EXPECT_EQ(engine.registerInputs({input("A")}), 0);
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting"));
}

TEST_F(InputRegistration, ANameInOtherLetterCaseIsAnotherInput) {
    EXPECT_EQ(engine.registerInputs({input("a"), input("A")}), 0);
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting", "a type 1 mode 1 waiting"));
}

TEST_F(InputRegistration, AnUnregisteredNameCanBeRegisteredAgainAsSomethingElse) {
    engine.registerInputs({input("A", 1, 1)});
    engine.receive(inputsConfirmed({{7, "A"}}));
    engine.unregisterInputParameters({"A"});
    EXPECT_EQ(engine.registerInputs({input("A", 2, 3)}), 0);
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 2 mode 3 waiting"));
    EXPECT_EQ(engine.inputIds(), "");
}

class InputRegistrationWithoutConnection : public testing::TestWithParam<CSClient::State> {};

TEST_P(InputRegistrationWithoutConnection, SucceedsLocallyAndWritesNothing) {
    const CapturedStreams streams;
    ParameterEngine engine;
    engine.pretendState(GetParam());
    EXPECT_EQ(engine.registerInputs({input("A")}), 0);
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting"));
    EXPECT_THAT(engine.requests(), IsEmpty());
    EXPECT_EQ(streams.out() + streams.err(), "");
}

INSTANTIATE_TEST_SUITE_P(States, InputRegistrationWithoutConnection,
                         testing::Values(CSClient::STATE_DISCONNECTED, CSClient::STATE_CONNECTING,
                                         CSClient::STATE_DISCONNECTING, CSClient::STATE_RECONNECTING));

TEST(InputRegistrationWhileConnected, WritesBeforeTheConnectionIsReadyToo) {
    ParameterEngine engine;
    engine.pretendState(CSClient::STATE_CONNECTED);
    EXPECT_EQ(engine.registerInputs({input("A")}), 0);
    EXPECT_EQ(engine.requests().size(), 1U);
}

}  // namespace
}  // namespace com_tesk::test
