#include <gtest/gtest.h>

#include "tests/support/HostMessages.h"
#include "tests/simulator/ReadyEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

/// An engine with an input and an output on which each of the host's four messages leaves its mark.
class Dispatch : public ::testing::Test {
  protected:
    Dispatch() {
        engine.registerInput("A");
        engine.registerOutput("P");
        engine.publish("P", 1);
        engine.receive(inputConfirmation(1, {confirmedInput(7, 1, "00 00 00 01", "A")}));
        engine.addCallbackInterface(&callbacks);
        engine.forgetRequests();
    }

    /// The four messages, each of which is acted on.
    static std::vector<std::string> goodMessages() {
        return {inputConfirmation(1, {confirmedInput(7, 1, "00 00 00 2A", "A")}),
                outputConfirmation(2, {confirmedOutput(8, "P"), confirmedOutput(9, "stranger")}),
                update(1, {updated(7, 1, "00 00 00 2A")}), versionResponse(0x00060000, "HOST")};
    }

    static RawMessage message(const std::string& bodyHex, RawMessage::Type type = RawMessage::DATA) {
        const Bytes bytes = hex(bodyHex);
        RawMessage raw(type);
        raw.insert(raw.end(), bytes.begin(), bytes.end());
        return raw;
    }

    /// Whether nothing at all has come of the messages so far.
    bool isUntouched() {
        return log.empty() && engine.requests().empty() && streams.out().empty() && streams.err().empty() &&
               engine.getServerVersion() == "UNKNOWN" && engine.getProtocolVersion() == 0 &&
               engine.getSimulatorId() == 5 && engine.outputIds().empty() && engine.inputIds().size() == 1;
    }

    CapturedStreams streams;
    Lines log;
    ActingCallbacks callbacks{log};
    ReadyEngine engine{5, kTalking};
};

TEST_F(Dispatch, InputConfirmationReachesItsHandler) {
    engine.receive(goodMessages()[0]);
    EXPECT_EQ((Lines{"inputs confirmed A(type 1 mode 1)", "updated A(type 2)=00 00 00 2A"}), log);
}

TEST_F(Dispatch, OutputConfirmationReachesItsHandler) {
    engine.receive(goodMessages()[1]);
    EXPECT_EQ(Lines{"outputs confirmed P(type 1)"}, log);
}

TEST_F(Dispatch, UpdateReachesItsHandler) {
    engine.receive(goodMessages()[2]);
    EXPECT_EQ(Lines{"updated A(type 2)=00 00 00 2A"}, log);
}

TEST_F(Dispatch, VersionResponseReachesItsHandler) {
    engine.receive(goodMessages()[3]);
    EXPECT_EQ("HOST", engine.getServerVersion());
}

TEST_F(Dispatch, ProtocolOtherThanFourIsDropped) {
    for (const std::string& good : goodMessages()) {
        RawMessage raw = message(good);
        for (int protocol = 0; protocol < 256; ++protocol) {
            if (protocol != 4) {
                raw[0] = static_cast<char>(protocol);
                engine.handleReceivedMessage(raw);
                ASSERT_TRUE(isUntouched()) << "protocol " << protocol;
            }
        }
    }
}

TEST_F(Dispatch, SubprotocolOtherThanTwoIsDropped) {
    for (const std::string& good : goodMessages()) {
        RawMessage raw = message(good);
        for (int subprotocol = 0; subprotocol < 256; ++subprotocol) {
            if (subprotocol != 2) {
                raw[1] = static_cast<char>(subprotocol);
                engine.handleReceivedMessage(raw);
                ASSERT_TRUE(isUntouched()) << "sub-protocol " << subprotocol;
            }
        }
    }
}

TEST_F(Dispatch, BodiesOfUpToElevenBytesAreDropped) {
    for (const std::string& good : goodMessages()) {
        for (std::size_t length = 0; length < 12; ++length) {
            engine.receive(firstBytes(good, length));
            ASSERT_TRUE(isUntouched()) << length << " bytes";
        }
    }
}

TEST_F(Dispatch, TwelveBytesOfAnInputConfirmationAreAnEmptyOne) {
    engine.receive("04 02 7F FF 00 00 00 0C 00 7F 01 01");
    EXPECT_EQ((Lines{"inputs confirmed", "updated"}), log);
}

TEST_F(Dispatch, TwelveBytesOfAnOutputConfirmationAreAnEmptyOne) {
    engine.receive("04 02 7F FF 00 00 00 0C 00 7F 01 02");
    EXPECT_EQ(Lines{"outputs confirmed"}, log);
    EXPECT_EQ(Lines{}, engine.requests());
}

TEST_F(Dispatch, TwelveBytesOfAnUpdateOrAVersionResponseDoNothing) {
    engine.receive("04 02 7F FF 00 00 00 0C 00 7F 00 03");
    engine.receive("04 02 7F FF 00 00 00 0C 00 7F 01 06");
    EXPECT_TRUE(isUntouched());
}

TEST_F(Dispatch, EveryOtherMessageCodeIsIgnoredSilently) {
    for (const std::string& good : goodMessages()) {
        RawMessage raw = message(good);
        for (unsigned int code = 0; code <= 0xFFFF; ++code) {
            if (code != 0x0101 && code != 0x0102 && code != 0x0003 && code != 0x0106) {
                raw[10] = static_cast<char>(code >> 8U);
                raw[11] = static_cast<char>(code & 0xFFU);
                engine.handleReceivedMessage(raw);
            }
        }
        EXPECT_TRUE(isUntouched());
    }
}

TEST_F(Dispatch, AnswersToUnregistrationsAreIgnored) {
    engine.receive("04 02 7F FF 00 00 00 14 00 7F 01 04 00 05 00 00 00 00 00 01");
    engine.receive("04 02 7F FF 00 00 00 14 00 7F 01 05 00 05 00 00 00 00 00 01");
    EXPECT_TRUE(isUntouched());
}

TEST_F(Dispatch, MessageTypeDoesNotMatter) {
    const std::string body = update(1, {updated(7, 1, "00 00 00 2A")});
    engine.handleReceivedMessage(message(body, RawMessage::INVALID));
    engine.handleReceivedMessage(message(body, RawMessage::CONTROL));
    engine.handleReceivedMessage(message(body, static_cast<RawMessage::Type>(77)));
    EXPECT_EQ(Lines(3, "updated A(type 2)=00 00 00 2A"), log);
}

TEST_F(Dispatch, RestOfTheSubHeaderDoesNotMatter) {
    const std::string records = "00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 07 00 00 00 01 00 00 00 2A";
    engine.receive("04 02 7F FF 00 00 00 24 00 7F 00 03 " + records);
    engine.receive("04 02 00 00 FF FF FF FF FF FF 00 03 " + records);
    EXPECT_EQ(Lines(2, "updated A(type 2)=00 00 00 2A"), log);
}

}  // namespace
}  // namespace com_tesk::test
