#include <gtest/gtest.h>

#include "tests/support/HostMessages.h"
#include "tests/simulator/ReadyEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

using Ids = std::map<std::uint32_t, std::string>;

class SubscribeResponse : public ::testing::Test {
  protected:
    SubscribeResponse() { engine.addCallbackInterface(&callbacks); }

    CapturedStreams streams;
    Lines log;
    ActingCallbacks callbacks{log};
    ReadyEngine engine{5, kTalking};
};

TEST_F(SubscribeResponse, ConfirmsTheInputAndPassesOnItsValue) {
    engine.registerInput("A", CSClient::TYPE_INT, 3);
    engine.receive(inputConfirmation(1, {confirmedInput(7, 1, "FF FF FF FE", "A")}));
    EXPECT_EQ((Lines{"inputs confirmed A(type 2 mode 3)", "updated A(type 2)=FF FF FF FE"}), log);
    EXPECT_EQ(7U, engine.input("A").serverId);
    EXPECT_EQ((Ids{{7, "A"}}), engine.inputIds());
    EXPECT_TRUE(engine.hasInputParameter("A", true));
    EXPECT_EQ(1U, engine.getNumberOfInputParameters(true));
    EXPECT_EQ(0, engine.getNumberOfInputParametersWaitingForConfirmation());
}

TEST_F(SubscribeResponse, SendsAndPrintsNothing) {
    engine.registerInput("A");
    engine.forgetRequests();
    engine.receive(
        inputConfirmation(2, {confirmedInput(7, 1, "00 00 00 01", "A"), confirmedInput(8, 0, "00 00 00 01", "X")}));
    EXPECT_EQ(Lines{}, engine.requests());
    EXPECT_EQ("", streams.out() + streams.err());
}

TEST_F(SubscribeResponse, KeepsTheOrderOfTheMessage) {
    engine.registerInput("A", CSClient::TYPE_FLOAT, 1);
    engine.registerInput("B", CSClient::TYPE_INT, 2);
    engine.registerInput("C", 5, 0xFFFFFFFF);
    engine.receive(
        inputConfirmation(3, {confirmedInput(9, 1, "00 00 00 01", "B"), confirmedInput(8, 0, "3F 80 00 00", "C"),
                              confirmedInput(7, 0, "40 00 00 00", "A")}));
    EXPECT_EQ((Lines{"inputs confirmed B(type 2 mode 2) C(type 5 mode 4294967295) A(type 1 mode 1)",
                     "updated B(type 2)=00 00 00 01 C(type 1)=3F 80 00 00 A(type 1)=40 00 00 00"}),
              log);
    EXPECT_EQ((Ids{{7, "A"}, {8, "C"}, {9, "B"}}), engine.inputIds());
}

TEST_F(SubscribeResponse, WithoutRecordsStillMakesBothCalls) {
    engine.receive(inputConfirmation(0, {}));
    EXPECT_EQ((Lines{"inputs confirmed", "updated"}), log);
}

TEST_F(SubscribeResponse, RecordsBehindTheCountAreNotRead) {
    engine.registerInput("A");
    engine.registerInput("B");
    engine.receive(
        inputConfirmation(1, {confirmedInput(7, 1, "00 00 00 01", "A"), confirmedInput(8, 1, "00 00 00 02", "B")}));
    EXPECT_EQ((Lines{"inputs confirmed A(type 1 mode 1)", "updated A(type 2)=00 00 00 01"}), log);
    EXPECT_FALSE(engine.hasInputParameter("B", true));
}

TEST_F(SubscribeResponse, UnknownNamesAreLeftOut) {
    engine.registerInput("A");
    engine.receive(
        inputConfirmation(3, {confirmedInput(6, 1, "00 00 00 01", "X"), confirmedInput(7, 1, "00 00 00 02", "A"),
                              confirmedInput(8, 1, "00 00 00 03", "a")}));
    EXPECT_EQ((Lines{"inputs confirmed A(type 1 mode 1)", "updated A(type 2)=00 00 00 02"}), log);
    EXPECT_EQ((Ids{{7, "A"}}), engine.inputIds());
    EXPECT_EQ(1U, engine.getNumberOfInputParameters(false));
}

TEST_F(SubscribeResponse, OnlyUnknownNamesStillMakeBothCalls) {
    engine.receive(inputConfirmation(1, {confirmedInput(6, 1, "00 00 00 01", "X")}));
    EXPECT_EQ((Lines{"inputs confirmed", "updated"}), log);
}

TEST_F(SubscribeResponse, NameUnregisteredMeanwhileIsLeftOut) {
    engine.registerInput("A");
    engine.registerInput("B");
    engine.unregisterInputParameters({"A"});
    engine.receive(
        inputConfirmation(2, {confirmedInput(7, 1, "00 00 00 01", "A"), confirmedInput(8, 1, "00 00 00 02", "B")}));
    EXPECT_EQ((Lines{"inputs confirmed B(type 1 mode 1)", "updated B(type 2)=00 00 00 02"}), log);
    EXPECT_EQ((Ids{{8, "B"}}), engine.inputIds());
}

TEST_F(SubscribeResponse, OutputOfTheNameIsNotAnInput) {
    engine.registerOutput("A");
    engine.receive(inputConfirmation(1, {confirmedInput(7, 1, "00 00 00 01", "A")}));
    EXPECT_EQ((Lines{"inputs confirmed", "updated"}), log);
    EXPECT_FALSE(engine.hasOutputParameter("A", true));
}

TEST_F(SubscribeResponse, AnyNonzeroFlagMeansInteger) {
    engine.registerInput("A", CSClient::TYPE_FLOAT);
    for (const unsigned int flag : {1U, 2U, 0x100U, 0x01000000U, 0x80000000U, 0xFFFFFFFFU}) {
        log.clear();
        engine.receive(inputConfirmation(1, {confirmedInput(7, flag, "3F 80 00 00", "A")}));
        EXPECT_EQ((Lines{"inputs confirmed A(type 1 mode 1)", "updated A(type 2)=3F 80 00 00"}), log) << flag;
    }
}

TEST_F(SubscribeResponse, FlagZeroMeansFloatWhateverTheInputsType) {
    engine.registerInput("A", CSClient::TYPE_INT);
    engine.receive(inputConfirmation(1, {confirmedInput(7, 0, "3F 80 00 00", "A")}));
    EXPECT_EQ((Lines{"inputs confirmed A(type 2 mode 1)", "updated A(type 1)=3F 80 00 00"}), log);
}

TEST_F(SubscribeResponse, NotANumberKeepsItsBits) {
    engine.registerInput("A");
    for (const char* const bits : {"7F C0 00 01", "FF C1 23 45", "7F 80 00 01", "FF A5 43 21"}) {
        log.clear();
        engine.receive(inputConfirmation(1, {confirmedInput(7, 0, bits, "A")}));
        EXPECT_EQ((Lines{"inputs confirmed A(type 1 mode 1)", std::string("updated A(type 1)=") + bits}), log);
    }
}

TEST_F(SubscribeResponse, RepeatedNameIsReportedTwiceAndTakesTheLastId) {
    engine.registerInput("A");
    engine.receive(
        inputConfirmation(2, {confirmedInput(7, 1, "00 00 00 01", "A"), confirmedInput(8, 1, "00 00 00 02", "A")}));
    EXPECT_EQ((Lines{"inputs confirmed A(type 1 mode 1) A(type 1 mode 1)",
                     "updated A(type 2)=00 00 00 01 A(type 2)=00 00 00 02"}),
              log);
    EXPECT_EQ(8U, engine.input("A").serverId);
    EXPECT_EQ((Ids{{7, "A"}, {8, "A"}}), engine.inputIds());
}

TEST_F(SubscribeResponse, RepeatedIdNamesTheLastInput) {
    engine.registerInput("A");
    engine.registerInput("B");
    engine.receive(
        inputConfirmation(2, {confirmedInput(7, 1, "00 00 00 01", "A"), confirmedInput(7, 1, "00 00 00 02", "B")}));
    EXPECT_EQ(7U, engine.input("A").serverId);
    EXPECT_EQ(7U, engine.input("B").serverId);
    EXPECT_EQ((Ids{{7, "B"}}), engine.inputIds());
}

TEST_F(SubscribeResponse, ChangedIdReplacesTheEntrysAndTheOldOneStays) {
    engine.registerInput("A");
    engine.receive(inputConfirmation(1, {confirmedInput(7, 1, "00 00 00 01", "A")}));
    engine.receive(inputConfirmation(1, {confirmedInput(9, 1, "00 00 00 02", "A")}));
    EXPECT_EQ(9U, engine.input("A").serverId);
    EXPECT_EQ((Ids{{7, "A"}, {9, "A"}}), engine.inputIds());
    EXPECT_EQ(-1, engine.getNumberOfInputParametersWaitingForConfirmation());
}

TEST_F(SubscribeResponse, IdsAreTakenAsTheyAre) {
    engine.registerInput("A");
    engine.registerInput("B");
    engine.registerInput("C");
    engine.receive(
        inputConfirmation(3, {confirmedInput(0, 1, "00 00 00 01", "A"), confirmedInput(0xFFFFF, 1, "00 00 00 02", "B"),
                              confirmedInput(0xFFFFFFFF, 1, "00 00 00 03", "C")}));
    EXPECT_EQ((Ids{{0, "A"}, {0xFFFFF, "B"}, {0xFFFFFFFF, "C"}}), engine.inputIds());
    EXPECT_EQ(0U, engine.input("A").serverId);
    EXPECT_TRUE(engine.hasInputParameter("A", true));
    // This id is the mark of an input that waits, and the two notions of "confirmed" differ.
    EXPECT_FALSE(engine.hasInputParameter("B", true));
    EXPECT_EQ(3U, engine.getNumberOfInputParameters(true));
}

TEST_F(SubscribeResponse, EmptyNameIsANameLikeAnyOther) {
    engine.registerInput("");
    engine.receive(inputConfirmation(1, {confirmedInput(7, 1, "00 00 00 01", "")}));
    EXPECT_EQ((Lines{"inputs confirmed (type 1 mode 1)", "updated (type 2)=00 00 00 01"}), log);
}

TEST_F(SubscribeResponse, NameOfThirtyOneCharactersMatches) {
    const std::string name(31, 'n');
    engine.registerInput(name);
    engine.receive(inputConfirmation(1, {confirmedInput(7, 1, "00 00 00 01", name)}));
    EXPECT_EQ((Ids{{7, name}}), engine.inputIds());
}

TEST_F(SubscribeResponse, NameWithoutAZeroIsTheWholeFieldAndNoMore) {
    const std::string name(32, 'n');
    engine.adoptInput(name);
    engine.registerInput("B");
    // The id of the record behind it is four more of the same letter.
    engine.receive(inputConfirmation(
        2, {confirmedInput(7, 1, "00 00 00 01", name), confirmedInput(0x6E6E6E6E, 1, "00 00 00 02", "B")}));
    EXPECT_EQ((Ids{{7, name}, {0x6E6E6E6E, "B"}}), engine.inputIds());
    EXPECT_EQ("updated " + name + "(type 2)=00 00 00 01 B(type 2)=00 00 00 02", log.back());
}

TEST_F(SubscribeResponse, NameWithoutAZeroMayEndTheMessage) {
    const std::string name(32, 'n');
    engine.adoptInput(name);
    engine.receive(inputConfirmation(1, {confirmedInput(7, 1, "00 00 00 01", name)}));
    EXPECT_EQ((Ids{{7, name}}), engine.inputIds());
}

TEST_F(SubscribeResponse, NameEndsAtItsFirstZero) {
    engine.registerInput("A");
    engine.registerInput(std::string("B\0C", 3));
    engine.receive(inputConfirmation(2, {confirmedInput(7, 1, "00 00 00 01", std::string("A\0Z", 3)),
                                         confirmedInput(8, 1, "00 00 00 02", std::string("B\0C", 3))}));
    EXPECT_EQ((Ids{{7, "A"}}), engine.inputIds());
    EXPECT_EQ("updated A(type 2)=00 00 00 01", log.back());
}

TEST_F(SubscribeResponse, EachInterfaceHearsBothBeforeTheNext) {
    ReadyEngine other;
    Lines both;
    // In an array, so that their addresses ascend; added in the other order.
    ActingCallbacks two[2] = {ActingCallbacks(both, "first: "), ActingCallbacks(both, "second: ")};
    other.addCallbackInterface(&two[1]);
    other.addCallbackInterface(&two[0]);
    other.registerInput("A");
    other.receive(inputConfirmation(1, {confirmedInput(7, 1, "00 00 00 01", "A")}));
    EXPECT_EQ((Lines{"first: inputs confirmed A(type 1 mode 1)", "first: updated A(type 2)=00 00 00 01",
                     "second: inputs confirmed A(type 1 mode 1)", "second: updated A(type 2)=00 00 00 01"}),
              both);
}

TEST_F(SubscribeResponse, WithoutInterfacesConfirmsAllTheSame) {
    engine.removeCallbackInterface(&callbacks);
    engine.registerInput("A");
    engine.receive(inputConfirmation(1, {confirmedInput(7, 1, "00 00 00 01", "A")}));
    EXPECT_TRUE(engine.hasInputParameter("A", true));
    EXPECT_EQ(Lines{}, log);
}

}  // namespace
}  // namespace com_tesk::test
