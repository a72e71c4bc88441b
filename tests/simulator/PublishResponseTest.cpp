#include <gtest/gtest.h>

#include <iostream>
#include <streambuf>

#include "tests/support/HostMessages.h"
#include "tests/simulator/ReadyEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

using Ids = std::map<std::uint32_t, std::string>;

class PublishResponse : public ::testing::Test {
  protected:
    PublishResponse() { engine.addCallbackInterface(&callbacks); }

    CapturedStreams streams;
    Lines log;
    ActingCallbacks callbacks{log};
    ReadyEngine engine{5, kTalking};
};

TEST_F(PublishResponse, ConfirmsTheOutput) {
    engine.registerOutput("P", CSClient::TYPE_INT);
    engine.forgetRequests();
    engine.receive(outputConfirmation(1, {confirmedOutput(7, "P")}));
    EXPECT_EQ(Lines{"outputs confirmed P(type 2)"}, log);
    EXPECT_EQ(7U, engine.output("P").serverId);
    EXPECT_EQ((Ids{{7, "P"}}), engine.outputIds());
    EXPECT_TRUE(engine.hasOutputParameter("P", true));
    EXPECT_EQ(0, engine.getNumberOfOutputParametersWaitingForConfirmation());
    EXPECT_EQ(Lines{}, engine.requests());
    EXPECT_EQ("", streams.out() + streams.err());
}

TEST_F(PublishResponse, LaterPublicationsCarryTheId) {
    engine.registerOutput("P", CSClient::TYPE_INT);
    engine.receive(outputConfirmation(1, {confirmedOutput(0x01020304, "P")}));
    engine.forgetRequests();
    engine.publish("P", 42);
    EXPECT_EQ(Lines{"04 02 7F FF 00 00 00 24 00 7F 00 03 00 05 00 00 00 00 00 00 00 00 00 01 "
                    "01 02 03 04 00 00 00 01 00 00 00 2A"},
              engine.requests());
}

TEST_F(PublishResponse, KeepsTheOrderOfTheMessage) {
    engine.registerOutput("P", CSClient::TYPE_FLOAT);
    engine.registerOutput("Q", CSClient::TYPE_INT);
    engine.registerOutput("R", 5);
    engine.receive(outputConfirmation(3, {confirmedOutput(9, "Q"), confirmedOutput(8, "R"), confirmedOutput(7, "P")}));
    EXPECT_EQ(Lines{"outputs confirmed Q(type 2) R(type 5) P(type 1)"}, log);
}

TEST_F(PublishResponse, WithoutRecordsStillCallsAndSendsNothing) {
    engine.registerOutput("P");
    engine.publish("P", 1);
    engine.forgetRequests();
    engine.receive(outputConfirmation(0, {}));
    EXPECT_EQ(Lines{"outputs confirmed"}, log);
    EXPECT_EQ(Lines{}, engine.requests());
}

TEST_F(PublishResponse, RecordsBehindTheCountAreNotRead) {
    engine.registerOutput("P");
    engine.registerOutput("Q");
    engine.receive(outputConfirmation(1, {confirmedOutput(7, "P"), confirmedOutput(8, "Q")}));
    EXPECT_EQ(Lines{"outputs confirmed P(type 1)"}, log);
    EXPECT_FALSE(engine.hasOutputParameter("Q", true));
}

TEST_F(PublishResponse, UnknownNameIsReportedOnStandardError) {
    engine.receive(outputConfirmation(1, {confirmedOutput(7, "stranger")}));
    EXPECT_EQ("Parameter not found: stranger(7)\n", streams.err());
    EXPECT_EQ("", streams.out());
    EXPECT_EQ(1, streams.errInsertions());
    EXPECT_EQ(Lines{"outputs confirmed"}, log);
    EXPECT_TRUE(engine.outputIds().empty());
}

TEST_F(PublishResponse, UnknownNamesIdIsUnsigned) {
    engine.receive(outputConfirmation(2, {confirmedOutput(0xFFFFFFFF, "X"), confirmedOutput(0, "")}));
    EXPECT_EQ("Parameter not found: X(4294967295)\nParameter not found: (0)\n", streams.err());
    EXPECT_EQ(2, streams.errInsertions());
}

TEST_F(PublishResponse, SilentUnknownNameIsNotReported) {
    ReadyEngine silent(5, kSilent);
    silent.addCallbackInterface(&callbacks);
    silent.registerOutput("P");
    silent.receive(outputConfirmation(2, {confirmedOutput(7, "stranger"), confirmedOutput(8, "P")}));
    EXPECT_EQ("", streams.out() + streams.err());
    EXPECT_EQ(Lines{"outputs confirmed P(type 1)"}, log);
}

TEST_F(PublishResponse, UnknownNamesDoNotDisturbTheOthers) {
    engine.registerOutput("P");
    engine.registerOutput("Q");
    engine.receive(outputConfirmation(
        4, {confirmedOutput(6, "X"), confirmedOutput(7, "P"), confirmedOutput(8, "p"), confirmedOutput(9, "Q")}));
    EXPECT_EQ("Parameter not found: X(6)\nParameter not found: p(8)\n", streams.err());
    EXPECT_EQ(Lines{"outputs confirmed P(type 1) Q(type 1)"}, log);
    EXPECT_EQ((Ids{{7, "P"}, {9, "Q"}}), engine.outputIds());
}

TEST_F(PublishResponse, NameUnregisteredMeanwhileIsUnknown) {
    engine.registerOutput("P");
    engine.publish("P", 1);
    engine.unregisterOutputParameters({"P"});
    engine.forgetRequests();
    engine.receive(outputConfirmation(1, {confirmedOutput(7, "P")}));
    EXPECT_EQ("Parameter not found: P(7)\n", streams.err());
    EXPECT_EQ(Lines{"outputs confirmed"}, log);
    EXPECT_EQ(Lines{}, engine.requests());
}

TEST_F(PublishResponse, InputOfTheNameIsNotAnOutput) {
    engine.registerInput("A");
    engine.receive(outputConfirmation(1, {confirmedOutput(7, "A")}));
    EXPECT_EQ("Parameter not found: A(7)\n", streams.err());
    EXPECT_FALSE(engine.hasInputParameter("A", true));
}

TEST_F(PublishResponse, ReportComesBeforeTheCallbacks) {
    std::string printed;
    callbacks.onOutputsConfirmed = [&] { printed = streams.err(); };
    engine.receive(outputConfirmation(1, {confirmedOutput(7, "X")}));
    EXPECT_EQ("Parameter not found: X(7)\n", printed);
}

/// Whether the engine's parameter mutex was held by the writing thread at every write.
class LockWatch : public std::streambuf {
  public:
    explicit LockWatch(const ReadyEngine& watchedEngine) : engine(watchedEngine) {}
    int held = 0;
    int free = 0;

  protected:
    std::streamsize xsputn(const char* /*characters*/, std::streamsize count) override {
        ++(engine.isParameterMutexHeldHere() ? held : free);
        return count;
    }

  private:
    const ReadyEngine& engine;
};

TEST_F(PublishResponse, ReportIsPrintedUnderTheParameterMutex) {
    LockWatch watch(engine);
    std::streambuf* const captured = std::cerr.rdbuf(&watch);
    engine.receive(outputConfirmation(1, {confirmedOutput(7, "X")}));
    std::cerr.rdbuf(captured);
    EXPECT_EQ(1, watch.held);
    EXPECT_EQ(0, watch.free);
}

TEST_F(PublishResponse, RepeatedNameIsReportedTwiceAndTakesTheLastId) {
    engine.registerOutput("P");
    engine.receive(outputConfirmation(2, {confirmedOutput(7, "P"), confirmedOutput(8, "P")}));
    EXPECT_EQ(Lines{"outputs confirmed P(type 1) P(type 1)"}, log);
    EXPECT_EQ(8U, engine.output("P").serverId);
    EXPECT_EQ((Ids{{7, "P"}, {8, "P"}}), engine.outputIds());
}

TEST_F(PublishResponse, RepeatedIdBelongsToTheLastOutput) {
    engine.registerOutput("P");
    engine.registerOutput("Q");
    engine.receive(outputConfirmation(2, {confirmedOutput(7, "P"), confirmedOutput(7, "Q")}));
    EXPECT_EQ(7U, engine.output("P").serverId);
    EXPECT_EQ(7U, engine.output("Q").serverId);
    EXPECT_EQ((Ids{{7, "Q"}}), engine.outputIds());
    EXPECT_EQ(1, engine.getNumberOfOutputParametersWaitingForConfirmation());
}

TEST_F(PublishResponse, ChangedIdReplacesTheEntrysAndTheOldOneStays) {
    engine.registerOutput("P");
    engine.receive(outputConfirmation(1, {confirmedOutput(7, "P")}));
    engine.receive(outputConfirmation(1, {confirmedOutput(9, "P")}));
    EXPECT_EQ(9U, engine.output("P").serverId);
    EXPECT_EQ((Ids{{7, "P"}, {9, "P"}}), engine.outputIds());
    EXPECT_EQ(-1, engine.getNumberOfOutputParametersWaitingForConfirmation());
}

TEST_F(PublishResponse, OldIdStaysCountedAfterItsOutputIsGone) {
    engine.registerOutput("P");
    engine.receive(outputConfirmation(1, {confirmedOutput(7, "P")}));
    engine.receive(outputConfirmation(1, {confirmedOutput(9, "P")}));
    engine.unregisterOutputParameters({"P"});
    EXPECT_EQ(1U, engine.getNumberOfOutputParameters(true));
    EXPECT_EQ(0U, engine.getNumberOfOutputParameters(false));
    // The host gives the id away again.
    engine.registerOutput("Q");
    engine.receive(outputConfirmation(1, {confirmedOutput(7, "Q")}));
    EXPECT_EQ((Ids{{7, "Q"}}), engine.outputIds());
}

TEST_F(PublishResponse, IdsAreTakenAsTheyAre) {
    engine.registerOutput("P");
    engine.registerOutput("Q");
    engine.registerOutput("R");
    engine.receive(outputConfirmation(
        3, {confirmedOutput(0, "P"), confirmedOutput(0xFFFFF, "Q"), confirmedOutput(0xFFFFFFFF, "R")}));
    EXPECT_EQ((Ids{{0, "P"}, {0xFFFFF, "Q"}, {0xFFFFFFFF, "R"}}), engine.outputIds());
    EXPECT_TRUE(engine.hasOutputParameter("P", true));
    // This id is the mark of an output that waits, and the two notions of "confirmed" differ.
    EXPECT_FALSE(engine.hasOutputParameter("Q", true));
    EXPECT_EQ(3U, engine.getNumberOfOutputParameters(true));
}

TEST_F(PublishResponse, NameWithoutAZeroIsTheWholeFieldAndNoMore) {
    const std::string name(32, 'n');
    engine.adoptOutput(name);
    engine.registerOutput("Q");
    // The id of the record behind it is four more of the same letter.
    engine.receive(outputConfirmation(2, {confirmedOutput(7, name), confirmedOutput(0x6E6E6E6E, "Q")}));
    EXPECT_EQ((Ids{{7, name}, {0x6E6E6E6E, "Q"}}), engine.outputIds());
    EXPECT_EQ("", streams.err());
}

TEST_F(PublishResponse, UnknownNameWithoutAZeroIsReportedWhole) {
    engine.receive(outputConfirmation(1, {confirmedOutput(7, std::string(32, 'n'))}));
    EXPECT_EQ("Parameter not found: " + std::string(32, 'n') + "(7)\n", streams.err());
}

TEST_F(PublishResponse, NameEndsAtItsFirstZero) {
    engine.registerOutput("P");
    engine.registerOutput(std::string("Q\0R", 3));
    engine.receive(outputConfirmation(
        2, {confirmedOutput(7, std::string("P\0Z", 3)), confirmedOutput(8, std::string("Q\0R", 3))}));
    EXPECT_EQ("Parameter not found: Q(8)\n", streams.err());
    EXPECT_EQ(Lines{"outputs confirmed P(type 1)"}, log);
}

TEST_F(PublishResponse, EmptyNameIsANameLikeAnyOther) {
    engine.registerOutput("");
    engine.receive(outputConfirmation(1, {confirmedOutput(7, "")}));
    EXPECT_EQ((Ids{{7, ""}}), engine.outputIds());
}

TEST_F(PublishResponse, InterfacesHearInAscendingOrder) {
    ReadyEngine other;
    Lines both;
    ActingCallbacks two[2] = {ActingCallbacks(both, "first: "), ActingCallbacks(both, "second: ")};
    other.addCallbackInterface(&two[1]);
    other.addCallbackInterface(&two[0]);
    other.registerOutput("P");
    other.receive(outputConfirmation(1, {confirmedOutput(7, "P")}));
    EXPECT_EQ((Lines{"first: outputs confirmed P(type 1)", "second: outputs confirmed P(type 1)"}), both);
}

TEST_F(PublishResponse, KeepsValueAndPublishedMark) {
    engine.registerOutput("P", CSClient::TYPE_INT);
    engine.registerOutput("Q", CSClient::TYPE_INT);
    engine.publish("P", 42);
    engine.receive(outputConfirmation(2, {confirmedOutput(7, "P"), confirmedOutput(8, "Q")}));
    EXPECT_TRUE(engine.output("P").published);
    EXPECT_EQ(42, engine.output("P").value.asInt);
    EXPECT_FALSE(engine.output("Q").published);
}

}  // namespace
}  // namespace com_tesk::test
