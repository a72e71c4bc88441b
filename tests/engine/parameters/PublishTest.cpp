#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/engine/parameters/ParameterEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A, a float, and B, an integer, are confirmed as 7 and 8; C, a float, waits.
class Publish : public testing::Test {
  protected:
    Publish() {
        engine.registerOutputs({output("A", 1), output("B", 2), output("C", 1)});
        engine.receive(outputsConfirmed({{7, "A"}, {8, "B"}}));
        engine.pretendState(CSClient::STATE_READY);
    }

    /// Whether nothing was published and nothing is written.
    void expectUntouched() const {
        EXPECT_THAT(engine.outputTable(),
                    ElementsAre("A type 1 id 7 00000000", "B type 2 id 8 00000000", "C type 1 waiting 00000000"));
        EXPECT_THAT(engine.requests(), IsEmpty());
    }

    CapturedStreams streams;
    ParameterEngine engine;
};

TEST_F(Publish, NoRecordsAtAllGiveZeroAndNothingElse) {
    EXPECT_EQ(engine.publishParameters(nullptr, 0, static_cast<CSClientProtocol::PublishMode>(5)), 0);
    expectUntouched();
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_F(Publish, AFloatIsSentUnderItsId) {
    EXPECT_EQ(engine.publish({record("A", 1, 0x3F800000)}), 0);
    EXPECT_THAT(engine.requests(),
                ElementsAre(frame("04 02 7F FF 00 00 00 24 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 01"
                                  "00 00 00 07 00 00 00 00 3F 80 00 00")));
}

TEST_F(Publish, AnIntegerIsSentWithItsFlag) {
    EXPECT_EQ(engine.publish({record("B", 2, 0xFFFFFFFE)}), 0);
    EXPECT_THAT(engine.requests(),
                ElementsAre(frame("04 02 7F FF 00 00 00 24 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 01"
                                  "00 00 00 08 00 00 00 01 FF FF FF FE")));
}

TEST_F(Publish, AWaitingOutputIsSentUnderTheUnassignedId) {
    EXPECT_EQ(engine.publish({record("C", 1, 0x3F800000)}), 0);
    EXPECT_THAT(engine.requests(),
                ElementsAre(frame("04 02 7F FF 00 00 00 24 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 01"
                                  "00 0F FF FF 00 00 00 00 3F 80 00 00")));
}

TEST_F(Publish, OneRequestHoldsAllRecordsInTheirOrder) {
    EXPECT_EQ(engine.publish({record("C", 1, 3), record("A", 1, 1), record("B", 2, 2)}), 0);
    EXPECT_THAT(engine.requests(),
                ElementsAre(frame("04 02 7F FF 00 00 00 3C 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 03"
                                  "00 0F FF FF 00 00 00 00 00 00 00 03"
                                  "00 00 00 07 00 00 00 00 00 00 00 01"
                                  "00 00 00 08 00 00 00 01 00 00 00 02")));
}

TEST_F(Publish, StoresValuesAndFlagsAndNothingElse) {
    engine.publish({record("B", 2, 2), record("C", 1, 3)});
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 id 7 00000000", "B type 2 id 8 published 00000002",
                                                  "C type 1 waiting published 00000003"));
    EXPECT_EQ(engine.outputIds(), "7=A 8=B");
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_F(Publish, ALaterValueReplacesTheEarlierOne) {
    engine.publish({record("A", 1, 1)});
    engine.publish({record("A", 1, 0)});
    EXPECT_EQ(engine.outputTable()[0], "A type 1 id 7 published 00000000");
    EXPECT_EQ(engine.requests().size(), 2U);
}

TEST_F(Publish, TheModeTravelsUnchanged) {
    for (const unsigned int mode : {1U, 0x12345678U, 0xFFFFFFFFU}) {
        EXPECT_EQ(engine.publish({record("A", 1, 0)}, static_cast<CSClientProtocol::PublishMode>(mode)), 0);
    }
    const std::string record = "00 00 00 01 00 00 00 07 00 00 00 00 00 00 00 00";
    EXPECT_THAT(engine.requests(),
                ElementsAre(frame("04 02 7F FF 00 00 00 24 00 7F 00 03 00 01 00 00 00 00 00 01" + record),
                            frame("04 02 7F FF 00 00 00 24 00 7F 00 03 00 01 00 00 12 34 56 78" + record),
                            frame("04 02 7F FF 00 00 00 24 00 7F 00 03 00 01 00 00 FF FF FF FF" + record)));
}

TEST_F(Publish, ANameTwiceIsSentTwiceWithTheSecondValue) {
    EXPECT_EQ(engine.publish({record("A", 1, 1), record("B", 2, 2), record("A", 1, 3)}), 0);
    EXPECT_THAT(engine.requests(),
                ElementsAre(frame("04 02 7F FF 00 00 00 3C 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 03"
                                  "00 00 00 07 00 00 00 00 00 00 00 03"
                                  "00 00 00 08 00 00 00 01 00 00 00 02"
                                  "00 00 00 07 00 00 00 00 00 00 00 03")));
    EXPECT_EQ(engine.outputTable()[0], "A type 1 id 7 published 00000003");
}

TEST_F(Publish, AFloatForAnIntegerOutputSendsItsBitsAsAnInteger) {
    EXPECT_EQ(engine.publish({record("B", 1, 0x3FC00000)}), 0);
    EXPECT_THAT(engine.requests(),
                ElementsAre(frame("04 02 7F FF 00 00 00 24 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 01"
                                  "00 00 00 08 00 00 00 01 3F C0 00 00")));
    EXPECT_EQ(engine.outputTable()[1], "B type 2 id 8 published 3FC00000") << "the type stays";
}

TEST_F(Publish, AnIntegerForAFloatOutputSendsItsBitsAsAFloat) {
    EXPECT_EQ(engine.publish({record("A", 2, 42)}), 0);
    EXPECT_THAT(engine.requests(),
                ElementsAre(frame("04 02 7F FF 00 00 00 24 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 01"
                                  "00 00 00 07 00 00 00 00 00 00 00 2A")));
}

TEST_F(Publish, ARecordOfAnyTypeButZeroIsAccepted) {
    EXPECT_EQ(engine.publish({record("A", 5, 1), record("B", 0xFFFFFFFF, 2)}), 0);
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 id 7 published 00000001",
                                                  "B type 2 id 8 published 00000002", "C type 1 waiting 00000000"));
}

TEST_F(Publish, AnOutputOfAnotherTypeIsSentAsItsIdAlone) {
    engine.registerOutputs({output("D", 5)});
    EXPECT_EQ(engine.publish({record("D", 1, 9), record("A", 1, 1)}), 0);
    EXPECT_EQ(engine.requests().back(), frame("04 02 7F FF 00 00 00 28 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 02"
                                              "00 0F FF FF"
                                              "00 00 00 07 00 00 00 00 00 00 00 01"));
}

TEST_F(Publish, TheReservedWordIsNotLookedAt) {
    CSClient::Parameter parameter = record("A", 1, 1);
    parameter.reserved = 0xFFFFFFFF;
    EXPECT_EQ(engine.publish({parameter}), 0);
    EXPECT_EQ(engine.outputTable()[0], "A type 1 id 7 published 00000001");
}

TEST_F(Publish, WithoutConnectionTheValueIsStoredAndNothingWritten) {
    for (const CSClient::State state : {CSClient::STATE_DISCONNECTED, CSClient::STATE_CONNECTING,
                                        CSClient::STATE_DISCONNECTING, CSClient::STATE_RECONNECTING}) {
        engine.pretendState(state);
        EXPECT_EQ(engine.publish({record("A", 1, 1U + state)}), 0);
        EXPECT_EQ(engine.outputTable()[0], "A type 1 id 7 published 0000000" + std::to_string(1U + state));
    }
    EXPECT_THAT(engine.requests(), IsEmpty());
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_F(Publish, AValueOfAWaitingOutputIsPublishedAgainWhenTheHostConfirmsIt) {
    engine.pretendState(CSClient::STATE_RECONNECTING);
    engine.publish({record("C", 1, 0x40000000)});
    engine.pretendState(CSClient::STATE_READY);
    engine.receive(outputsConfirmed({{17, "A"}, {19, "C"}}));
    EXPECT_THAT(engine.requests(),
                ElementsAre(frame("04 02 7F FF 00 00 00 24 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 01"
                                  "00 00 00 13 00 00 00 00 40 00 00 00")));
}

TEST_F(Publish, TypeZeroIsRefusedInTheWordsOfASubscription) {
    EXPECT_EQ(engine.publish({record("A", 0, 1)}), 3);
    EXPECT_EQ(streams.err(), "Subscription type of parameter id string 'A' is invalid!\n");
    EXPECT_EQ(streams.errInsertions(), 1);
    EXPECT_EQ(streams.out(), "");
    expectUntouched();
}

TEST_F(Publish, ANameOfThirtyTwoCharactersIsRefused) {
    EXPECT_EQ(engine.publish({record(kName32, 1, 1)}), 3);
    EXPECT_EQ(streams.err(), "Length of parameter id string '" + kName32 + "' exceeds maximum 32\n");
    EXPECT_EQ(streams.errInsertions(), 1);
}

TEST_F(Publish, AnUnknownNameOfThirtyOneCharactersIsJustUnknown) {
    const std::string name(31, 'x');
    EXPECT_EQ(engine.publish({record(name, 1, 1)}), 3);
    EXPECT_EQ(streams.err(), "Unknown parameter ID: " + name + "\n");
    EXPECT_EQ(streams.errInsertions(), 1);
}

TEST_F(Publish, AnInputIsNoOutput) {
    engine.registerInputs({input("I")});
    EXPECT_EQ(engine.publish({record("I", 1, 1)}), 3);
    EXPECT_EQ(streams.err(), "Unknown parameter ID: I\n");
}

TEST_F(Publish, AnotherLetterCaseIsUnknown) {
    EXPECT_EQ(engine.publish({record("a", 1, 1)}), 3);
    EXPECT_EQ(streams.err(), "Unknown parameter ID: a\n");
}

TEST_F(Publish, AnUnknownLastNameKeepsAllEarlierValuesOut) {
    EXPECT_EQ(engine.publish({record("A", 1, 1), record("B", 2, 2), record("X", 1, 3)}), 3);
    EXPECT_EQ(streams.err(), "Unknown parameter ID: X\n");
    expectUntouched();
}

TEST_F(Publish, ATypelessLastRecordKeepsAllEarlierValuesOut) {
    EXPECT_EQ(engine.publish({record("A", 1, 1), record("B", 0, 2)}), 3);
    expectUntouched();
}

TEST_F(Publish, ALongLastNameKeepsAllEarlierValuesOut) {
    EXPECT_EQ(engine.publish({record("A", 1, 1), record(kName32, 1, 2)}), 3);
    expectUntouched();
}

TEST_F(Publish, TheTypeIsExaminedBeforeTheLength) {
    EXPECT_EQ(engine.publish({record(kName32, 0, 1)}), 3);
    EXPECT_EQ(streams.err(), "Subscription type of parameter id string '" + kName32 + "' is invalid!\n");
}

TEST_F(Publish, TheTypeIsExaminedBeforeTheTable) {
    EXPECT_EQ(engine.publish({record("X", 0, 1)}), 3);
    EXPECT_EQ(streams.err(), "Subscription type of parameter id string 'X' is invalid!\n");
}

TEST_F(Publish, TheRecordsAreExaminedInTheirOrder) {
    EXPECT_EQ(engine.publish({record("A", 1, 1), record("X", 1, 1), record("B", 0, 1)}), 3);
    EXPECT_EQ(streams.err(), "Unknown parameter ID: X\n");
}

TEST_F(Publish, AValueThatWasStoredBeforeSurvivesARefusal) {
    engine.publish({record("A", 1, 1)});
    EXPECT_EQ(engine.publish({record("A", 1, 2), record("X", 1, 2)}), 3);
    EXPECT_EQ(engine.outputTable()[0], "A type 1 id 7 published 00000001");
}

TEST_F(Publish, AnOutputThatThePreviousCallDidNotNameIsFound) {
    engine.publish({record("A", 1, 1)});
    EXPECT_EQ(engine.publish({record("B", 2, 2)}), 0);
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 id 7 published 00000001",
                                                  "B type 2 id 8 published 00000002", "C type 1 waiting 00000000"));
}

TEST_F(Publish, AnOutputUnregisteredAfterItsPublicationIsUnknown) {
    engine.publish({record("A", 1, 1)});
    engine.unregisterOutputParameters({"A"});
    EXPECT_EQ(engine.publish({record("A", 1, 2)}), 3);
    EXPECT_EQ(streams.err(), "Unknown parameter ID: A\n");
}

TEST(SilentPublish, PrintsNothingAndRefusesAllTheSame) {
    const CapturedStreams streams;
    ParameterEngine engine(1, CSClient::OPTION_SILENT);
    engine.registerOutputs({output("A")});
    EXPECT_EQ(engine.publish({record("A", 0, 1)}), 3);
    EXPECT_EQ(engine.publish({record(kName32, 1, 1)}), 3);
    EXPECT_EQ(engine.publish({record("A", 1, 1), record("X", 1, 1)}), 3);
    EXPECT_EQ(streams.out() + streams.err(), "");
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 waiting 00000000"));
}

}  // namespace
}  // namespace com_tesk::test
