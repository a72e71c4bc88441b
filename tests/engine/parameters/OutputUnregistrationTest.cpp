#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/engine/parameters/ParameterEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The frame that unregisters outputs by these ids.
std::string unregistering(const std::vector<unsigned int>& ids) {
    const auto count = static_cast<unsigned int>(ids.size());
    std::string body = "04 02 7F FF" + hexWord(20 + 4 * count) + "00 7F 00 05 00 01 00 00" + hexWord(count);
    for (const unsigned int id : ids) {
        body += hexWord(id);
    }
    return frame(body);
}

/// A and B are confirmed as 7 and 9, C waits.
class OutputUnregistration : public testing::Test {
  protected:
    OutputUnregistration() {
        engine.registerOutputs({output("A"), output("B"), output("C")});
        engine.receive(outputsConfirmed({{7, "A"}, {9, "B"}}));
        engine.pretendState(CSClient::STATE_READY);
    }

    CapturedStreams streams;
    ParameterEngine engine;
};

TEST_F(OutputUnregistration, NoNamesAtAllGiveZeroAndNothingElse) {
    EXPECT_EQ(engine.unregisterOutputParameters({}), 0);
    EXPECT_THAT(engine.requests(), IsEmpty());
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 3U);
}

TEST_F(OutputUnregistration, AConfirmedOutputIsUnregisteredByItsId) {
    EXPECT_EQ(engine.unregisterOutputParameters({"A"}), 0);
    EXPECT_THAT(engine.requests(),
                ElementsAre(frame("04 02 7F FF 00 00 00 18 00 7F 00 05 00 01 00 00 00 00 00 01 00 00 00 07")));
}

TEST_F(OutputUnregistration, AConfirmedOutputLeavesBothTables) {
    engine.unregisterOutputParameters({"A"});
    EXPECT_THAT(engine.outputTable(), ElementsAre("B type 1 id 9 00000000", "C type 1 waiting 00000000"));
    EXPECT_EQ(engine.outputIds(), "9=B");
    EXPECT_EQ(engine.getNumberOfOutputParameters(true), 1U);
}

TEST_F(OutputUnregistration, AWaitingOutputIsSentUnderTheUnassignedId) {
    EXPECT_EQ(engine.unregisterOutputParameters({"C"}), 0);
    EXPECT_THAT(engine.requests(),
                ElementsAre(frame("04 02 7F FF 00 00 00 18 00 7F 00 05 00 01 00 00 00 00 00 01 00 0F FF FF")));
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 id 7 00000000", "B type 1 id 9 00000000"));
    EXPECT_EQ(engine.outputIds(), "7=A 9=B");
}

TEST_F(OutputUnregistration, TheRequestFollowsTheOrderOfTheNames) {
    engine.unregisterOutputParameters({"C", "B", "A"});
    EXPECT_THAT(engine.requests(), ElementsAre(unregistering({0xFFFFF, 9, 7})));
    EXPECT_THAT(engine.outputTable(), IsEmpty());
    EXPECT_EQ(engine.outputIds(), "");
}

TEST_F(OutputUnregistration, UnknownNamesAreSkippedWithoutALine) {
    EXPECT_EQ(engine.unregisterOutputParameters({"X", "B", "a", "", "A"}), 0);
    EXPECT_THAT(engine.requests(), ElementsAre(unregistering({9, 7})));
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_F(OutputUnregistration, OnlyUnknownNamesSendNothing) {
    EXPECT_EQ(engine.unregisterOutputParameters({"X", "Y"}), 0);
    EXPECT_THAT(engine.requests(), IsEmpty());
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 3U);
}

TEST_F(OutputUnregistration, ANameListedTwiceIsSentTwiceAndRemovedOnce) {
    EXPECT_EQ(engine.unregisterOutputParameters({"A", "C", "A", "C", "A"}), 0);
    EXPECT_THAT(engine.requests(), ElementsAre(unregistering({7, 0xFFFFF, 7, 0xFFFFF, 7})));
    EXPECT_THAT(engine.outputTable(), ElementsAre("B type 1 id 9 00000000"));
    EXPECT_EQ(engine.outputIds(), "9=B");
}

TEST_F(OutputUnregistration, PrintsNothing) {
    engine.unregisterOutputParameters({"A", "X"});
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_F(OutputUnregistration, AnUnregisteredNameIsUnknownAfterwards) {
    engine.unregisterOutputParameters({"A"});
    EXPECT_EQ(engine.unregisterOutputParameters({"A"}), 0);
    EXPECT_EQ(engine.requests().size(), 1U);
}

TEST_F(OutputUnregistration, WithoutConnectionItIsForgottenLocally) {
    engine.pretendState(CSClient::STATE_RECONNECTING);
    EXPECT_EQ(engine.unregisterOutputParameters({"A", "C"}), 0);
    EXPECT_THAT(engine.requests(), IsEmpty());
    EXPECT_THAT(engine.outputTable(), ElementsAre("B type 1 id 9 00000000"));
    EXPECT_EQ(engine.outputIds(), "9=B");
}

TEST_F(OutputUnregistration, AnInputOfTheSameNameStays) {
    engine.registerInputs({input("A")});
    engine.unregisterOutputParameters({"A"});
    EXPECT_TRUE(engine.hasInputParameter("A", false));
}

TEST_F(OutputUnregistration, AConfirmationAfterwardsIsReportedAsNotFound) {
    engine.unregisterOutputParameters({"C"});
    engine.receive(outputsConfirmed({{11, "C"}}));
    EXPECT_EQ(streams.err(), "Parameter not found: C(11)\n");
    EXPECT_EQ(engine.outputIds(), "7=A 9=B");
}

TEST_F(OutputUnregistration, AnIdOfAnEarlierConfirmationStaysCounted) {
    engine.receive(outputsConfirmed({{20, "A"}}));
    EXPECT_EQ(engine.outputIds(), "7=A 9=B 20=A");
    engine.unregisterOutputParameters({"A"});
    EXPECT_EQ(engine.outputIds(), "7=gone 9=B");
    EXPECT_EQ(engine.getNumberOfOutputParameters(true), 2U);
    EXPECT_EQ(engine.getNumberOfOutputParametersWaitingForConfirmation(), 0);
}

TEST_F(OutputUnregistration, AStaleIdIsTakenOverByTheOutputThatIsConfirmedUnderIt) {
    engine.receive(outputsConfirmed({{20, "A"}}));
    engine.unregisterOutputParameters({"A"});
    engine.receive(outputsConfirmed({{7, "C"}}));
    EXPECT_EQ(engine.outputIds(), "7=C 9=B");
    engine.unregisterOutputParameters({"C"});
    EXPECT_EQ(engine.outputIds(), "9=B");
}

TEST_F(OutputUnregistration, OfTwoOutputsUnderOneIdTheFirstTakesTheIdAway) {
    engine.receive(outputsConfirmed({{7, "B"}}));
    EXPECT_EQ(engine.outputIds(), "7=B 9=B");
    engine.unregisterOutputParameters({"A"});
    EXPECT_THAT(engine.outputTable(), ElementsAre("B type 1 id 7 00000000", "C type 1 waiting 00000000"));
    EXPECT_EQ(engine.outputIds(), "9=B");
    EXPECT_TRUE(engine.hasOutputParameter("B", true));
}

TEST_F(OutputUnregistration, TwoOutputsUnderOneIdCanBeUnregisteredTogether) {
    engine.receive(outputsConfirmed({{7, "B"}}));
    EXPECT_EQ(engine.unregisterOutputParameters({"B", "A"}), 0);
    EXPECT_THAT(engine.requests(), ElementsAre(unregistering({7, 7})));
    EXPECT_THAT(engine.outputTable(), ElementsAre("C type 1 waiting 00000000"));
    EXPECT_EQ(engine.outputIds(), "9=gone");
}

TEST_F(OutputUnregistration, WhatIsLeftOfTwoOutputsUnderOneIdCanStillBePublished) {
    engine.receive(outputsConfirmed({{7, "B"}}));
    engine.unregisterOutputParameters({"A"});
    EXPECT_EQ(engine.publish({record("B", 1, 0x3F800000)}), 0);
    EXPECT_EQ(engine.requests().back(), frame("04 02 7F FF 00 00 00 24 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 01"
                                              "00 00 00 07 00 00 00 00 3F 80 00 00"));
}

TEST_F(OutputUnregistration, AnOutputConfirmedUnderTheUnassignedIdLosesItsKeyToAnyWaitingOutput) {
    engine.receive(outputsConfirmed({{0xFFFFF, "B"}}));
    EXPECT_EQ(engine.outputIds(), "7=A 9=B 1048575=B");
    EXPECT_FALSE(engine.hasOutputParameter("B", true));
    engine.unregisterOutputParameters({"C"});
    EXPECT_EQ(engine.outputIds(), "7=A 9=B");
}

TEST_F(OutputUnregistration, IdZeroIsAnIdLikeAnyOther) {
    engine.receive(outputsConfirmed({{0, "C"}}));
    EXPECT_TRUE(engine.hasOutputParameter("C", true));
    EXPECT_EQ(engine.unregisterOutputParameters({"C"}), 0);
    EXPECT_THAT(engine.requests(), ElementsAre(unregistering({0})));
    EXPECT_EQ(engine.outputIds(), "7=A 9=B");
}

}  // namespace
}  // namespace com_tesk::test
