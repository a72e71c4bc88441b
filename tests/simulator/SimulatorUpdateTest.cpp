#include <gtest/gtest.h>

#include "tests/support/HostMessages.h"
#include "tests/simulator/ReadyEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

/// Inputs A (float, id 7) and B (integer, id 8), confirmed, and W, which waits.
class SimulatorUpdate : public ::testing::Test {
  protected:
    SimulatorUpdate() {
        engine.registerInput("A", CSClient::TYPE_FLOAT);
        engine.registerInput("B", CSClient::TYPE_INT);
        engine.registerInput("W");
        engine.receive(
            inputConfirmation(2, {confirmedInput(7, 0, "00 00 00 00", "A"), confirmedInput(8, 1, "00 00 00 00", "B")}));
        engine.addCallbackInterface(&callbacks);
        engine.forgetRequests();
    }

    CapturedStreams streams;
    Lines log;
    ActingCallbacks callbacks{log};
    ReadyEngine engine{5, kTalking};
};

TEST_F(SimulatorUpdate, PassesOnAnInteger) {
    engine.receive(update(1, {updated(8, 1, "00 00 00 2A")}));
    EXPECT_EQ(Lines{"updated B(type 2)=00 00 00 2A"}, log);
}

TEST_F(SimulatorUpdate, PassesOnAFloat) {
    engine.receive(update(1, {updated(7, 0, "40 49 0F DB")}));
    EXPECT_EQ(Lines{"updated A(type 1)=40 49 0F DB"}, log);
}

TEST_F(SimulatorUpdate, FloatArrivesAsTheNumberItIs) {
    class Keeper : public CSClient::CallbackIface {
      public:
        void connectionStateChanged(CSClient::State, CSClient::State) override {}
        void inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) override { kept = parameters; }
        void outputParametersConfirmed(const std::vector<CSClient::OutputDef>&) override {}
        void inputParametersConfirmed(const std::vector<CSClient::InputDef>&) override {}
        std::vector<CSClient::Parameter> kept;
    } keeper;
    engine.addCallbackInterface(&keeper);
    engine.receive(update(2, {updated(7, 0, "40 49 0F DB"), updated(8, 1, "FF FF FF FE")}));
    ASSERT_EQ(2U, keeper.kept.size());
    EXPECT_EQ(3.1415927F, keeper.kept[0].value.asFloat);
    EXPECT_EQ(-2, keeper.kept[1].value.asInt);
    EXPECT_EQ(0U, keeper.kept[0].reserved);
    EXPECT_EQ(0U, keeper.kept[1].reserved);
}

TEST_F(SimulatorUpdate, SendsPrintsAndStoresNothing) {
    const auto ids = engine.inputIds();
    engine.receive(
        update(3, {updated(7, 1, "00 00 00 2A"), updated(99, 1, "00 00 00 01"), updated(0, 1, "00 00 00 01")}));
    EXPECT_EQ(Lines{}, engine.requests());
    EXPECT_EQ("", streams.out() + streams.err());
    EXPECT_EQ(ids, engine.inputIds());
    EXPECT_EQ(CSClient::TYPE_FLOAT, engine.input("A").type);
    EXPECT_EQ(7U, engine.input("A").serverId);
}

TEST_F(SimulatorUpdate, TypeIsTheMessagesNotTheInputs) {
    engine.receive(update(2, {updated(7, 1, "00 00 00 01"), updated(8, 0, "3F 80 00 00")}));
    EXPECT_EQ(Lines{"updated A(type 2)=00 00 00 01 B(type 1)=3F 80 00 00"}, log);
}

TEST_F(SimulatorUpdate, KeepsTheOrderOfTheMessageAndRepeatedIds) {
    engine.receive(
        update(3, {updated(8, 1, "00 00 00 01"), updated(7, 1, "00 00 00 02"), updated(8, 1, "00 00 00 03")}));
    EXPECT_EQ(Lines{"updated B(type 2)=00 00 00 01 A(type 2)=00 00 00 02 B(type 2)=00 00 00 03"}, log);
}

TEST_F(SimulatorUpdate, AnyNonzeroFlagMeansInteger) {
    for (const unsigned int flag : {1U, 2U, 0x100U, 0x01000000U, 0x80000000U, 0xFFFFFFFFU}) {
        log.clear();
        engine.receive(update(1, {updated(7, flag, "3F 80 00 00")}));
        EXPECT_EQ(Lines{"updated A(type 2)=3F 80 00 00"}, log) << flag;
    }
}

TEST_F(SimulatorUpdate, NotANumberKeepsItsBits) {
    for (const char* const bits : {"7F C0 00 01", "FF C1 23 45", "7F 80 00 01", "FF A5 43 21", "80 00 00 00"}) {
        log.clear();
        engine.receive(update(1, {updated(7, 0, bits)}));
        EXPECT_EQ(Lines{std::string("updated A(type 1)=") + bits}, log);
    }
}

TEST_F(SimulatorUpdate, UnknownAndZeroIdsAreLeftOut) {
    engine.receive(update(4, {updated(0, 1, "00 00 00 01"), updated(7, 1, "00 00 00 02"), updated(99, 1, "00 00 00 03"),
                              updated(8, 1, "00 00 00 04")}));
    EXPECT_EQ(Lines{"updated A(type 2)=00 00 00 02 B(type 2)=00 00 00 04"}, log);
}

TEST_F(SimulatorUpdate, WithoutAKnownIdCallsNobody) {
    engine.receive(update(1, {updated(99, 1, "00 00 00 01")}));
    engine.receive(update(2, {updated(0, 1, "00 00 00 01"), updated(0xFFFFFFFF, 1, "00 00 00 01")}));
    EXPECT_EQ(Lines{}, log);
}

TEST_F(SimulatorUpdate, WithoutRecordsCallsNobody) {
    engine.receive(update(0, {}));
    engine.receive(update(0, {updated(7, 1, "00 00 00 01")}));
    EXPECT_EQ(Lines{}, log);
}

TEST_F(SimulatorUpdate, WithoutRecordsTakesNoLock) {
    engine.withParameterMutexHeld([this] { engine.receive(update(0, {})); });
    EXPECT_EQ(Lines{}, log);
}

TEST_F(SimulatorUpdate, RecordsBehindTheCountAreNotRead) {
    engine.receive(update(1, {updated(7, 1, "00 00 00 01"), updated(8, 1, "00 00 00 02")}));
    EXPECT_EQ(Lines{"updated A(type 2)=00 00 00 01"}, log);
}

TEST_F(SimulatorUpdate, ZeroIsSkippedEvenAsAConfirmedId) {
    engine.receive(inputConfirmation(1, {confirmedInput(0, 1, "00 00 00 01", "W")}));
    log.clear();
    engine.receive(update(1, {updated(0, 1, "00 00 00 02")}));
    EXPECT_EQ(Lines{}, log);
}

TEST_F(SimulatorUpdate, WaitingInputsAreNotFoundUnderTheUnassignedId) {
    engine.receive(update(1, {updated(0xFFFFF, 1, "00 00 00 02")}));
    EXPECT_EQ(Lines{}, log);
}

TEST_F(SimulatorUpdate, UnassignedIdIsFoundOnceTheHostHasGivenIt) {
    engine.receive(inputConfirmation(1, {confirmedInput(0xFFFFF, 1, "00 00 00 01", "W")}));
    log.clear();
    engine.receive(update(1, {updated(0xFFFFF, 1, "00 00 00 02")}));
    EXPECT_EQ(Lines{"updated W(type 2)=00 00 00 02"}, log);
}

TEST_F(SimulatorUpdate, OldAndNewIdNameTheSameInput) {
    engine.receive(inputConfirmation(1, {confirmedInput(9, 1, "00 00 00 01", "A")}));
    log.clear();
    engine.receive(update(2, {updated(7, 1, "00 00 00 02"), updated(9, 1, "00 00 00 03")}));
    EXPECT_EQ(Lines{"updated A(type 2)=00 00 00 02 A(type 2)=00 00 00 03"}, log);
}

TEST_F(SimulatorUpdate, OfOtherIdsAfterOneOfAsManyNamesTheOthers) {
    engine.receive(update(1, {updated(7, 1, "00 00 00 01")}));
    engine.receive(update(1, {updated(8, 1, "00 00 00 02")}));
    EXPECT_EQ((Lines{"updated A(type 2)=00 00 00 01", "updated B(type 2)=00 00 00 02"}), log);
}

TEST_F(SimulatorUpdate, IdGivenToAnotherInputAfterAnUpdateNamesThatOne) {
    engine.receive(update(1, {updated(7, 1, "00 00 00 01")}));
    engine.receive(inputConfirmation(1, {confirmedInput(7, 1, "00 00 00 02", "W")}));
    log.clear();
    engine.receive(update(1, {updated(7, 1, "00 00 00 03")}));
    EXPECT_EQ(Lines{"updated W(type 2)=00 00 00 03"}, log);
}

TEST_F(SimulatorUpdate, IdOfAnInputUnregisteredAfterItsUpdateIsUnknown) {
    engine.receive(update(1, {updated(7, 1, "00 00 00 01")}));
    engine.unregisterInputParameters({"A"});
    log.clear();
    engine.receive(update(1, {updated(7, 1, "00 00 00 02")}));
    EXPECT_EQ(Lines{}, log);
}

TEST_F(SimulatorUpdate, IdOfAnUnregisteredInputIsUnknown) {
    engine.unregisterInputParameters({"A"});
    engine.receive(update(2, {updated(7, 1, "00 00 00 01"), updated(8, 1, "00 00 00 02")}));
    EXPECT_EQ(Lines{"updated B(type 2)=00 00 00 02"}, log);
}

TEST_F(SimulatorUpdate, OlderIdOfAnUnregisteredInputStillNamesIt) {
    // Unregistering removes the current id alone.
    engine.receive(inputConfirmation(1, {confirmedInput(9, 1, "00 00 00 01", "A")}));
    engine.unregisterInputParameters({"A"});
    log.clear();
    engine.receive(update(2, {updated(7, 1, "00 00 00 02"), updated(9, 1, "00 00 00 03")}));
    EXPECT_EQ(Lines{"updated A(type 2)=00 00 00 02"}, log);
}

TEST_F(SimulatorUpdate, IdsAreForgottenWhenInputsAreRegisteredAgain) {
    engine.receive(versionResponse(0x00060000, "HOST"));
    engine.receive(update(2, {updated(7, 1, "00 00 00 01"), updated(8, 1, "00 00 00 02")}));
    EXPECT_EQ(Lines{}, log);
    engine.receive(inputConfirmation(1, {confirmedInput(8, 1, "00 00 00 03", "A")}));
    log.clear();
    engine.receive(update(2, {updated(7, 1, "00 00 00 04"), updated(8, 1, "00 00 00 05")}));
    EXPECT_EQ(Lines{"updated A(type 2)=00 00 00 05"}, log);
}

TEST_F(SimulatorUpdate, OutputIdsAreNotInputIds) {
    engine.registerOutput("P");
    engine.receive(outputConfirmation(1, {confirmedOutput(33, "P")}));
    log.clear();
    engine.receive(update(1, {updated(33, 1, "00 00 00 01")}));
    EXPECT_EQ(Lines{}, log);
}

TEST_F(SimulatorUpdate, InterfacesHearInAscendingOrder) {
    engine.removeCallbackInterface(&callbacks);
    ActingCallbacks two[2] = {ActingCallbacks(log, "first: "), ActingCallbacks(log, "second: ")};
    engine.addCallbackInterface(&two[1]);
    engine.addCallbackInterface(&two[0]);
    engine.receive(update(1, {updated(7, 1, "00 00 00 01")}));
    EXPECT_EQ((Lines{"first: updated A(type 2)=00 00 00 01", "second: updated A(type 2)=00 00 00 01"}), log);
}

TEST_F(SimulatorUpdate, WithoutInterfacesIsDropped) {
    engine.removeCallbackInterface(&callbacks);
    engine.receive(update(1, {updated(7, 1, "00 00 00 01")}));
    EXPECT_EQ(Lines{}, log);
}

}  // namespace
}  // namespace com_tesk::test
