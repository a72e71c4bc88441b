#include <gtest/gtest.h>

#include "comms/CSLockGuard.h"
#include "tests/simulator/SimulatorFixture.h"

namespace com_tesk::test {
namespace {

/// An engine with a confirmed input A and a published output P, on which each of the host's four messages has effects.
class ReceivedMessage : public SimulatorFixture {
  protected:
    ReceivedMessage() {
        engine.registerInputs({input("A")});
        engine.registerOutputs({output("P")});
        engine.publish({floatParameter("P", 1)});
        engine.receive(inputsConfirmed({{7, "A"}}));
        engine.ignoreRequestsSoFar();
        newCallbacks();
    }

    /// Handles a message without recording it.
    void handle(const RawMessage& message) { engine.SimulatorProtocol::handleReceivedMessage(message); }

    /// True when no message had an effect so far.
    bool isUnchanged() {
        return newCallbacks().empty() && engine.requests().empty() && printed().empty() &&
               engine.getServerVersion() == "UNKNOWN" && engine.getProtocolVersion() == 0 &&
               engine.getSimulatorId() == 5 && engine.outputIds().empty() && engine.inputIds() == "7=A";
    }

    /// The four messages, each of which has an effect.
    const std::vector<std::string> messages = {
        inputConfirmation(1, {confirmedInput(7, 1, "00 00 00 2A", "A")}),
        outputConfirmation(2, {confirmedOutput(8, "P"), confirmedOutput(9, "unknown")}),
        update(1, {updated(7, 1, "00 00 00 2A")}), versionResponse(0x00060000, "HOST")};
};

TEST_F(ReceivedMessage, ReachesTheHandlerOfItsCode) {
    engine.receive(messages[0]);
    EXPECT_EQ(newCallbacks(), (Lines{"inputs confirmed A", "updated A=int:42"}));
    engine.receive(messages[1]);
    EXPECT_EQ(newCallbacks(), Lines{"outputs confirmed P"});
    engine.receive(messages[2]);
    EXPECT_EQ(newCallbacks(), Lines{"updated A=int:42"});
    engine.receive(messages[3]);
    EXPECT_EQ(engine.getServerVersion(), "HOST");
}

TEST_F(ReceivedMessage, WithoutAKnownProtocolAndCodeIsIgnored) {
    for (const std::string& body : messages) {
        engine.receive(firstBytes(body, 11));
        engine.receive("02 04" + body.substr(5));
        RawMessage raw = messageOf(body);
        for (unsigned int code = 0; code <= 0xFFFF; ++code) {
            if (code != 0x0101 && code != 0x0102 && code != 0x0003 && code != 0x0106) {
                raw[10] = static_cast<char>(code >> 8U);
                raw[11] = static_cast<char>(code & 0xFFU);
                handle(raw);
            }
        }
        EXPECT_TRUE(isUnchanged());
    }
}

TEST_F(ReceivedMessage, OfTwelveBytesIsAnEmptyConfirmationOrNothing) {
    engine.receive("04 02 7F FF 00 00 00 0C 00 7F 00 03");
    engine.receive("04 02 7F FF 00 00 00 0C 00 7F 01 06");
    EXPECT_TRUE(isUnchanged());
    engine.receive("04 02 7F FF 00 00 00 0C 00 7F 01 01");
    EXPECT_EQ(newCallbacks(), (Lines{"inputs confirmed", "updated"}));
    engine.receive("04 02 7F FF 00 00 00 0C 00 7F 01 02");
    EXPECT_EQ(newCallbacks(), Lines{"outputs confirmed"});
    EXPECT_TRUE(isUnchanged());
}

TEST_F(ReceivedMessage, TypeAndRestOfTheSubHeaderDoNotMatter) {
    const int types[] = {RawMessage::INVALID, RawMessage::CONTROL, 77};
    for (const int type : types) {
        handle(messageOf(messages[2], static_cast<RawMessage::Type>(type)));
    }
    const std::string record = "00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 07 00 00 00 01 00 00 00 2A";
    engine.receive("04 02 7F FF 00 00 00 24 00 7F 00 03 " + record);
    engine.receive("04 02 00 00 FF FF FF FF FF FF 00 03 " + record);
    EXPECT_EQ(newCallbacks(), Lines(5, "updated A=int:42"));
}

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
