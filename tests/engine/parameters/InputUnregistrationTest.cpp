#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/engine/parameters/ParameterEngine.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The frame that unregisters inputs by these ids.
std::string unregistering(const std::vector<unsigned int>& ids) {
    const auto count = static_cast<unsigned int>(ids.size());
    std::string body = "04 02 7F FF" + hexWord(20 + 4 * count) + "00 7F 00 04 00 01 00 00" + hexWord(count);
    for (const unsigned int id : ids) {
        body += hexWord(id);
    }
    return frame(body);
}

/// A host's update of one integer input.
std::string update(unsigned int id) {
    return "04 02 7F FF 00 00 00 00 00 7F 00 03 00 00 00 00 00 00 00 00 00 00 00 01" + hexWord(id) +
           "00 00 00 01 00 00 00 2A";
}

/// A and B are confirmed as 7 and 9, C waits.
class InputUnregistration : public testing::Test {
  protected:
    InputUnregistration() {
        engine.registerInputs({input("A"), input("B"), input("C")});
        engine.receive(inputsConfirmed({{7, "A"}, {9, "B"}}));
        engine.pretendState(CSClient::STATE_READY);
    }

    CapturedStreams streams;
    ParameterEngine engine;
};

TEST_F(InputUnregistration, NoNamesAtAllGiveZeroAndNothingElse) {
    EXPECT_EQ(engine.unregisterInputParameters({}), 0);
    EXPECT_THAT(engine.requests(), IsEmpty());
    EXPECT_EQ(engine.getNumberOfInputParameters(false), 3U);
}

TEST_F(InputUnregistration, AConfirmedInputIsUnregisteredByItsId) {
    EXPECT_EQ(engine.unregisterInputParameters({"A"}), 0);
    EXPECT_THAT(engine.requests(),
                ElementsAre(frame("04 02 7F FF 00 00 00 18 00 7F 00 04 00 01 00 00 00 00 00 01 00 00 00 07")));
}

TEST_F(InputUnregistration, AConfirmedInputLeavesBothTables) {
    engine.unregisterInputParameters({"A"});
    EXPECT_THAT(engine.inputTable(), ElementsAre("B type 1 mode 1 id 9", "C type 1 mode 1 waiting"));
    EXPECT_EQ(engine.inputIds(), "9=B");
    EXPECT_EQ(engine.getNumberOfInputParameters(true), 1U);
}

TEST_F(InputUnregistration, AWaitingInputIsSentUnderTheUnassignedId) {
    EXPECT_EQ(engine.unregisterInputParameters({"C"}), 0);
    EXPECT_THAT(engine.requests(),
                ElementsAre(frame("04 02 7F FF 00 00 00 18 00 7F 00 04 00 01 00 00 00 00 00 01 00 0F FF FF")));
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 id 7", "B type 1 mode 1 id 9"));
    EXPECT_EQ(engine.inputIds(), "7=A 9=B");
}

TEST_F(InputUnregistration, TheRequestFollowsTheOrderOfTheNames) {
    engine.unregisterInputParameters({"C", "B", "A"});
    EXPECT_THAT(engine.requests(), ElementsAre(unregistering({0xFFFFF, 9, 7})));
    EXPECT_THAT(engine.inputTable(), IsEmpty());
    EXPECT_EQ(engine.inputIds(), "");
}

TEST_F(InputUnregistration, UnknownNamesAreSkippedWithoutALine) {
    EXPECT_EQ(engine.unregisterInputParameters({"X", "B", "a", "", "A"}), 0);
    EXPECT_THAT(engine.requests(), ElementsAre(unregistering({9, 7})));
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_F(InputUnregistration, OnlyUnknownNamesSendNothing) {
    EXPECT_EQ(engine.unregisterInputParameters({"X", "Y"}), 0);
    EXPECT_THAT(engine.requests(), IsEmpty());
    EXPECT_EQ(engine.getNumberOfInputParameters(false), 3U);
}

TEST_F(InputUnregistration, ANameListedTwiceIsSentTwiceAndRemovedOnce) {
    EXPECT_EQ(engine.unregisterInputParameters({"A", "C", "A", "C", "A"}), 0);
    EXPECT_THAT(engine.requests(), ElementsAre(unregistering({7, 0xFFFFF, 7, 0xFFFFF, 7})));
    EXPECT_THAT(engine.inputTable(), ElementsAre("B type 1 mode 1 id 9"));
    EXPECT_EQ(engine.inputIds(), "9=B");
}

TEST_F(InputUnregistration, WithoutConnectionItIsForgottenLocally) {
    engine.pretendState(CSClient::STATE_RECONNECTING);
    EXPECT_EQ(engine.unregisterInputParameters({"A", "C"}), 0);
    EXPECT_THAT(engine.requests(), IsEmpty());
    EXPECT_THAT(engine.inputTable(), ElementsAre("B type 1 mode 1 id 9"));
    EXPECT_EQ(engine.inputIds(), "9=B");
}

TEST_F(InputUnregistration, AnOutputOfTheSameNameStays) {
    engine.registerOutputs({output("A")});
    engine.unregisterInputParameters({"A"});
    EXPECT_TRUE(engine.hasOutputParameter("A", false));
}

TEST_F(InputUnregistration, AnUpdateOfAnUnregisteredInputReachesNobody) {
    RecordingCallbacks callbacks;
    engine.addCallbackInterface(&callbacks);
    engine.receive(update(7));
    engine.unregisterInputParameters({"A"});
    engine.receive(update(7));
    EXPECT_THAT(callbacks.lines(), ElementsAre("updated A=int:42"));
}

TEST_F(InputUnregistration, AnIdOfAnEarlierConfirmationStaysCounted) {
    engine.receive(inputsConfirmed({{20, "A"}}));
    engine.unregisterInputParameters({"A"});
    EXPECT_EQ(engine.inputIds(), "7=A 9=B");
    EXPECT_EQ(engine.getNumberOfInputParameters(true), 2U);
    EXPECT_EQ(engine.getNumberOfInputParametersWaitingForConfirmation(), 0);
}

TEST_F(InputUnregistration, OfTwoInputsUnderOneIdTheFirstTakesTheIdAway) {
    engine.receive(inputsConfirmed({{7, "B"}}));
    EXPECT_EQ(engine.inputIds(), "7=B 9=B");
    engine.unregisterInputParameters({"A"});
    EXPECT_EQ(engine.inputIds(), "9=B");
    EXPECT_TRUE(engine.hasInputParameter("B", true));
}

TEST_F(InputUnregistration, AnInputConfirmedUnderTheUnassignedIdLosesItsKeyToAnyWaitingInput) {
    engine.receive(inputsConfirmed({{0xFFFFF, "B"}}));
    EXPECT_EQ(engine.inputIds(), "7=A 9=B 1048575=B");
    engine.unregisterInputParameters({"C"});
    EXPECT_EQ(engine.inputIds(), "7=A 9=B");
}

}  // namespace
}  // namespace com_tesk::test
