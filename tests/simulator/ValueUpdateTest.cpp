#include <gtest/gtest.h>

#include "comms/CSLockGuard.h"
#include "tests/simulator/SimulatorFixture.h"

namespace com_tesk::test {
namespace {

/// Inputs A (float, id 7) and B (integer, id 8), confirmed, and W, which waits.
class ValueUpdate : public SimulatorFixture {
  protected:
    ValueUpdate() {
        engine.registerInputs({input("A"), input("B", CSClient::TYPE_INT), input("W")});
        confirm({{7, "A"}, {8, "B"}});
        engine.ignoreRequestsSoFar();
    }

    void confirm(const std::vector<IdAndName>& inputs) {
        engine.receive(inputsConfirmed(inputs));
        newCallbacks();
    }

    /// Returns the callbacks for an update of the integers 1, 2, ... under these ids.
    Lines callbacksOfUpdate(const std::vector<unsigned int>& ids) {
        std::vector<std::string> records;
        for (const unsigned int id : ids) {
            records.push_back(updated(id, 1, hexWord(static_cast<unsigned int>(records.size()) + 1)));
        }
        engine.receive(update(static_cast<unsigned int>(ids.size()), records));
        return newCallbacks();
    }
};

TEST_F(ValueUpdate, PassesOnValuesInTheOrderOfTheMessage) {
    // The types are those of the message, not those of the inputs.
    engine.receive(update(4, {updated(8, 1, "FF FF FF FE"), updated(7, 0, "3F C0 00 00"), updated(8, 0, "40 49 0F DB"),
                              updated(7, 1, "00 00 00 2A")}));
    EXPECT_EQ(newCallbacks(), Lines{"updated B=int:-2 A=float:1.5 B=float:3.14159 A=int:42"});
}

TEST_F(ValueUpdate, UnknownIdsAndZeroAreLeftOutSilently) {
    engine.registerOutputs({output("P")});
    engine.receive(outputsConfirmed({{33, "P"}}));
    engine.ignoreRequestsSoFar();
    newCallbacks();
    const Lines table = engine.inputTable();
    EXPECT_EQ(callbacksOfUpdate({0, 7, 33, 8}), Lines{"updated A=int:2 B=int:4"});
    EXPECT_EQ(callbacksOfUpdate({99}), Lines{});
    EXPECT_EQ(callbacksOfUpdate({0, 0xFFFFFFFF}), Lines{});
    engine.removeCallbackInterface(&callbacks);
    EXPECT_EQ(callbacksOfUpdate({7}), Lines{});
    EXPECT_EQ(engine.requests(), Lines{});
    EXPECT_EQ(printed(), "");
    EXPECT_EQ(engine.inputIds(), "7=A 8=B");
    EXPECT_EQ(engine.inputTable(), table);
}

TEST_F(ValueUpdate, WithoutRecordsCallsNoInterfaceAndTakesNoLock) {
    const CSLockGuard lock(engine.parameterMutex());
    engine.receive(update(0, {}));
    engine.receive(update(0, {updated(7, 1, "00 00 00 01")}));
    EXPECT_EQ(newCallbacks(), Lines{});
}

TEST_F(ValueUpdate, UnassignedIdIsKnownOnceConfirmedAndZeroNever) {
    EXPECT_EQ(callbacksOfUpdate({0xFFFFF}), Lines{}) << "W waits under this id.";
    confirm({{0xFFFFF, "W"}});
    EXPECT_EQ(callbacksOfUpdate({0xFFFFF}), Lines{"updated W=int:1"});
    confirm({{0, "W"}});
    EXPECT_EQ(callbacksOfUpdate({0}), Lines{});
}

TEST_F(ValueUpdate, OldAndNewIdNameTheSameInput) {
    confirm({{9, "A"}});
    EXPECT_EQ(callbacksOfUpdate({7, 9}), Lines{"updated A=int:1 A=int:2"});
    // Unregistering removes only the current id.
    engine.unregisterInputParameters({"A"});
    EXPECT_EQ(callbacksOfUpdate({7, 9}), Lines{"updated A=int:1"});
}

TEST_F(ValueUpdate, NamesFollowTheIdsAfterAnUpdateOfAsMany) {
    EXPECT_EQ(callbacksOfUpdate({7}), Lines{"updated A=int:1"});
    EXPECT_EQ(callbacksOfUpdate({8}), Lines{"updated B=int:1"});
    confirm({{8, "W"}});
    EXPECT_EQ(callbacksOfUpdate({8}), Lines{"updated W=int:1"});
    engine.unregisterInputParameters({"W"});
    EXPECT_EQ(callbacksOfUpdate({8}), Lines{});
    EXPECT_EQ(callbacksOfUpdate({8, 7}), Lines{"updated A=int:2"});
}

TEST_F(ValueUpdate, IdsAreErasedWhenInputsAreRegisteredAgain) {
    engine.receive(versionResponse(0x00060000, "HOST"));
    EXPECT_EQ(callbacksOfUpdate({7, 8}), Lines{});
    confirm({{8, "A"}});
    EXPECT_EQ(callbacksOfUpdate({7, 8}), Lines{"updated A=int:2"});
}

TEST_F(ValueUpdate, HasTheWholeRecordsUpToItsCount) {
    const std::vector<std::string> records = {updated(7, 1, "00 00 00 0B"), updated(8, 1, "00 00 00 16")};
    engine.receive(update(0xFFFFFFFF, {}));
    EXPECT_EQ(newCallbacks(), Lines{});
    engine.receive(update(1, records));
    EXPECT_EQ(newCallbacks(), Lines{"updated A=int:11"});
    engine.receive(firstBytes(update(2, records), 47));
    EXPECT_EQ(newCallbacks(), Lines{"updated A=int:11"});
    engine.receive(update(0xFFFFFFFF, records));
    EXPECT_EQ(newCallbacks(), Lines{"updated A=int:11 B=int:22"});
}

TEST_F(ValueUpdate, OfFiveThousandRecordsIsReadWholeEachTime) {
    std::vector<unsigned int> ids(5000, 7);
    std::string expected = "updated";
    for (int i = 1; i <= 5000; ++i) {
        expected += " A=int:" + std::to_string(i);
    }
    EXPECT_EQ(callbacksOfUpdate(ids), Lines{expected});
    EXPECT_EQ(callbacksOfUpdate(ids), Lines{expected});
}

TEST_F(ValueUpdate, ValueHasTheTypeOfItsFlagAndKeepsItsBits) {
    // The floats are one, negative zero, and quiet and signalling not-a-numbers with payloads.
    for (const CSClient::ParameterType registered : {CSClient::TYPE_FLOAT, CSClient::TYPE_INT}) {
        engine.unregisterAllLocalParameters();
        engine.registerInputs({input("A", registered)});
        for (const unsigned int flag : {0U, 1U, 2U, 0x100U, 0x01000000U, 0x80000000U, 0xFFFFFFFFU}) {
            for (const unsigned int bits :
                 {0x3F800000U, 0x80000000U, 0x7FC00001U, 0xFFC12345U, 0x7F800001U, 0xFFA54321U}) {
                const Lines expected{text(parameter("A", flag == 0 ? CSClient::TYPE_FLOAT : CSClient::TYPE_INT, bits))};
                engine.receive(inputConfirmation(1, {confirmedInput(7, flag, hexWord(bits), "A")}));
                EXPECT_EQ(callbacks.values, expected) << "confirmation, flag " << flag;
                callbacks.values.clear();
                engine.receive(update(1, {updated(7, flag, hexWord(bits))}));
                EXPECT_EQ(callbacks.values, expected) << "update, flag " << flag;
            }
        }
    }
}

}  // namespace
}  // namespace com_tesk::test
