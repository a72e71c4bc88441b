#include <gtest/gtest.h>

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
        for (std::size_t length = 0; length < 12; ++length) {
            engine.receive(firstBytes(body, length));
        }
        for (const char* const protocols : {"00 02", "05 02", "04 00", "04 03", "02 04"}) {
            engine.receive(protocols + body.substr(5));
        }
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

}  // namespace
}  // namespace com_tesk::test
