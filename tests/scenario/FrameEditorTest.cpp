// Changes of whole frames, byte by byte.

#include "host/scenario/FrameEditor.h"

#include <gtest/gtest.h>

#include "host/Replies.h"
#include "tests/host/HostTest.h"

namespace com_tesk::scenario {
namespace {

using host_test::hex;
using host_test::hexText;

/// An update of two floats: id 7 is 1.5, id 8 is -2.
Bytes updateOfTwo() {
    return host::encodeUpdate(5, {{7, HostValue::real(1.5F)}, {8, HostValue::real(-2)}});
}

std::string bodyText(const Bytes& frame) {
    return hexText(bodyOf(frame));
}

/// Returns the bodies of the texts, with the same blanks.
std::string text(const std::string& bytes) {
    return hexText(hex(bytes));
}

TEST(FrameEditor, KnowsTheMessagesOfAHost) {
    EXPECT_EQ(messageOf(bodyOf(updateOfTwo()), true), Message::UPDATE);
    EXPECT_EQ(messageOf(bodyOf(host::encodeVersionReply(1, "v", 2)), true), Message::VERSION);
    EXPECT_EQ(messageOf(bodyOf(host::encodeInputsReply(1, {})), true), Message::INPUTS_CONFIRMED);
    EXPECT_EQ(messageOf(bodyOf(host::encodeOutputsReply(1, {})), true), Message::OUTPUTS_CONFIRMED);
    EXPECT_EQ(messageOf(Bytes(11), true), std::nullopt);
    EXPECT_EQ(messageOf(Bytes(12), true), std::nullopt);
}

TEST(FrameEditor, KnowsTheMessagesOfAClient) {
    const auto messageWith = [](const std::string& code) {
        return messageOf(hex(host_test::requestBody(code, "00050000 00000000")), false);
    };
    EXPECT_EQ(messageWith("01"), Message::REGISTER_INPUTS);
    EXPECT_EQ(messageWith("02"), Message::REGISTER_OUTPUTS);
    EXPECT_EQ(messageWith("03"), Message::PUBLISH);
    EXPECT_EQ(messageWith("04"), Message::UNREGISTER_INPUTS);
    EXPECT_EQ(messageWith("05"), Message::UNREGISTER_OUTPUTS);
    EXPECT_EQ(messageWith("06"), Message::ASK_VERSION);
    EXPECT_EQ(messageWith("07"), std::nullopt);
}

TEST(FrameEditor, EveryMessageHasItsName) {
    for (int i = 0; i <= static_cast<int>(Message::UPDATE); ++i) {
        const auto message = static_cast<Message>(i);
        EXPECT_EQ(messageNamed(nameOf(message)), message);
    }
    EXPECT_EQ(messageNamed("no-such-message"), std::nullopt);
    EXPECT_EQ(messageNames(true).size(), 5U);
    EXPECT_EQ(messageNames(false).size(), 7U);
}

TEST(FrameEditor, ReadsTheRecords) {
    const auto values = recordsOf(bodyOf(updateOfTwo()), Message::UPDATE);
    ASSERT_EQ(values.size(), 2U);
    EXPECT_EQ(values[0].id, 7U);
    EXPECT_EQ(values[1].id, 8U);
    EXPECT_EQ(values[1].name, "");
    const auto inputs = recordsOf(bodyOf(host::encodeInputsReply(1, {{9, 1, 1, HostValue::real(0), "lamp"}})),
                                  Message::INPUTS_CONFIRMED);
    ASSERT_EQ(inputs.size(), 1U);
    EXPECT_EQ(inputs[0].id, 9U);
    EXPECT_EQ(inputs[0].name, "lamp");
    const auto outputs =
        recordsOf(bodyOf(host::encodeOutputsReply(1, {{4, 1, 1, "switch"}})), Message::OUTPUTS_CONFIRMED);
    ASSERT_EQ(outputs.size(), 1U);
    EXPECT_EQ(outputs[0].id, 4U);
    EXPECT_EQ(outputs[0].name, "switch");
    EXPECT_TRUE(recordsOf(bodyOf(host::encodeVersionReply(1, "v", 2)), Message::VERSION).empty());
    EXPECT_TRUE(recordsOf(Bytes(3), Message::UPDATE).empty());
}

TEST(FrameEditor, ChangesTheIdsOfTheSelectedRecords) {
    Bytes frame = updateOfTwo();
    changeIds(frame, Message::UPDATE, {false, true}, 1'000);
    EXPECT_EQ(bodyText(frame), text("04027FFF 00000030 007F0003 00050000 00000000 00000002"
                                    "00000007 00000000 3FC00000  000003F0 00000000 C0000000"));
    changeIds(frame, Message::UPDATE, {true, true}, -8);
    EXPECT_EQ(recordsOf(bodyOf(frame), Message::UPDATE)[0].id, 0xFFFFFFFFU) << "ids have 32 bits";
}

TEST(FrameEditor, ChangesValuesInTheirType) {
    Bytes frame = host::encodeUpdate(5, {{7, HostValue::real(1.5F)}, {8, HostValue::integer(3)}});
    changeValues(frame, Message::UPDATE, {true, true}, 2.5);
    EXPECT_EQ(bodyText(frame), text("04027FFF 00000030 007F0003 00050000 00000000 00000002"
                                    "00000007 00000000 40200000  00000008 00000001 00000003"));
    changeValues(frame, Message::UPDATE, {false, true}, 1e12);
    EXPECT_EQ(bodyText(frame).substr(44 * 3), text("7FFFFFFF")) << "the largest integer";
}

TEST(FrameEditor, ChangesTypesAndKeepsTheNumber) {
    Bytes frame = updateOfTwo();
    changeTypes(frame, Message::UPDATE, {true, true}, true);
    EXPECT_EQ(bodyText(frame), text("04027FFF 00000030 007F0003 00050000 00000000 00000002"
                                    "00000007 00000001 00000002  00000008 00000001 FFFFFFFE"));
    changeTypes(frame, Message::UPDATE, {true, false}, false);
    EXPECT_EQ(bodyText(frame), text("04027FFF 00000030 007F0003 00050000 00000000 00000002"
                                    "00000007 00000000 40000000  00000008 00000001 FFFFFFFE"));
}

TEST(FrameEditor, ChangesTheValueOfAConfirmation) {
    Bytes frame = host::encodeInputsReply(5, {{9, 1, 2, HostValue::real(0), "lamp"}});
    changeValues(frame, Message::INPUTS_CONFIRMED, {true}, 1);
    EXPECT_EQ(bodyText(frame).substr(20 * 3, 20 * 3 - 1), text("00000009 00000001 00000002 00000000 3F800000"));
}

TEST(FrameEditor, RemovesRecords) {
    Bytes frame = updateOfTwo();
    EXPECT_TRUE(keepRecords(frame, Message::UPDATE, {false, true}));
    EXPECT_EQ(hexText(frame).substr(0, 11), "00 00 00 44");
    EXPECT_EQ(bodyText(frame),
              text("04027FFF 00000024 007F0003 00050000 00000000 00000001 00000008 00000000 C0000000"));
    EXPECT_FALSE(keepRecords(frame, Message::UPDATE, {false}));
    Bytes version = host::encodeVersionReply(1, "v", 2);
    EXPECT_FALSE(keepRecords(version, Message::VERSION, {}));
}

TEST(FrameEditor, StatesOtherNumbers) {
    Bytes frame = updateOfTwo();
    setFrameLength(frame, 0x01020304);
    setRecordCount(frame, Message::UPDATE, 0x0A0B0C0D);
    setSimulatorId(frame, 0x1234);
    EXPECT_EQ(hexText(frame).substr(0, 11), "01 02 03 04");
    EXPECT_EQ(bodyText(frame).substr(0, 24 * 3 - 1), text("04027FFF 00000030 007F0003 12340000 00000000 0A0B0C0D"));
    Bytes version = host::encodeVersionReply(1, "v", 2);
    const Bytes before = version;
    setRecordCount(version, Message::VERSION, 3);
    EXPECT_EQ(version, before) << "it has no count";
}

TEST(FrameEditor, LeavesEveryCutFrameAlone) {
    for (std::size_t size = 0; size < 32 + 24; ++size) {
        Bytes frame = updateOfTwo();
        frame.resize(size);
        const Bytes before = frame;
        changeIds(frame, Message::UPDATE, {true, true}, 1);
        changeValues(frame, Message::UPDATE, {true, true}, 1);
        changeTypes(frame, Message::UPDATE, {true, true}, true);
        EXPECT_TRUE(keepRecords(frame, Message::UPDATE, {false, false})) << size;
        EXPECT_EQ(frame, before) << size;
    }
}

TEST(FrameEditor, LeavesShortFramesAlone) {
    Bytes frame = updateOfTwo();
    frame.resize(32 + 20);
    const Bytes before = frame;
    changeIds(frame, Message::UPDATE, {true}, 1);
    setRecordCount(frame, Message::UPDATE, 1);
    EXPECT_EQ(frame, before);
    Bytes tiny(2);
    setFrameLength(tiny, 7);
    setSimulatorId(tiny, 7);
    EXPECT_EQ(tiny, Bytes(2));
    EXPECT_TRUE(bodyOf(tiny).empty());
}

}  // namespace
}  // namespace com_tesk::scenario
