#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/message/MessageOf.h"

namespace com_tesk::test {
namespace {

static_assert(std::is_convertible<RawMessage*, std::vector<char>*>::value, "derives publicly from the vector");
static_assert(std::has_virtual_destructor<RawMessage>::value, "may be deleted through a base pointer");
static_assert(std::is_same<std::underlying_type<RawMessage::Type>::type, std::uint32_t>::value,
              "the type is stored in 32 bits");

TEST(RawMessageType, HasTheNumbersZeroOneAndTwo) {
    EXPECT_EQ(static_cast<unsigned int>(RawMessage::INVALID), 0U);
    EXPECT_EQ(static_cast<unsigned int>(RawMessage::DATA), 1U);
    EXPECT_EQ(static_cast<unsigned int>(RawMessage::CONTROL), 2U);
}

TEST(RawMessageType, IsTheOneGivenAtConstruction) {
    EXPECT_EQ(RawMessage(RawMessage::INVALID).getType(), RawMessage::INVALID);
    EXPECT_EQ(RawMessage(RawMessage::DATA).getType(), RawMessage::DATA);
    EXPECT_EQ(RawMessage(RawMessage::CONTROL).getType(), RawMessage::CONTROL);
}

TEST(RawMessage, IsEmptyWhenMadeFromATypeAlone) {
    const RawMessage message(RawMessage::DATA);
    EXPECT_TRUE(message.empty());
}

TEST(RawMessage, HoldsTheGivenBytesAndType) {
    const char bytes[] = {'\x04', '\x02', '\x7F', '\xFF', '\x00', '\x80'};
    const RawMessage message(bytes, sizeof bytes, RawMessage::CONTROL);
    EXPECT_EQ(hexText(message), "04 02 7F FF 00 80");
    EXPECT_EQ(message.getType(), RawMessage::CONTROL);
}

TEST(RawMessage, TakesOnlyAsManyBytesAsTheLengthSays) {
    const char bytes[] = {1, 2, 3, 4};
    EXPECT_EQ(hexText(RawMessage(bytes, 3, RawMessage::DATA)), "01 02 03");
}

TEST(RawMessage, IsEmptyWhenMadeFromZeroBytes) {
    const char byte = 1;
    const RawMessage message(&byte, 0, RawMessage::DATA);
    EXPECT_TRUE(message.empty());
    EXPECT_EQ(message.getType(), RawMessage::DATA);
}

TEST(RawMessage, KeepsItsOwnCopyOfTheGivenBytes) {
    char bytes[] = {1, 2};
    const RawMessage message(bytes, sizeof bytes, RawMessage::DATA);
    bytes[0] = 9;
    EXPECT_EQ(hexText(message), "01 02");
}

TEST(RawMessage, CopiesItsBytesAndItsType) {
    const char bytes[] = {1, 2, 3};
    RawMessage original(bytes, sizeof bytes, RawMessage::CONTROL);
    const RawMessage copy(original);
    original[0] = 9;
    original.push_back(4);
    EXPECT_EQ(hexText(copy), "01 02 03");
    EXPECT_EQ(copy.getType(), RawMessage::CONTROL);
}

TEST(RawMessage, AssignsItsBytesAndItsType) {
    const char bytes[] = {1, 2, 3};
    RawMessage original(bytes, sizeof bytes, RawMessage::CONTROL);
    RawMessage copy(RawMessage::DATA);
    copy = original;
    original[0] = 9;
    EXPECT_EQ(hexText(copy), "01 02 03");
    EXPECT_EQ(copy.getType(), RawMessage::CONTROL);
}

TEST(RawMessage, MovesItsBytesAndItsType) {
    const char bytes[] = {1, 2, 3};
    RawMessage original(bytes, sizeof bytes, RawMessage::CONTROL);
    const RawMessage moved(std::move(original));
    EXPECT_EQ(hexText(moved), "01 02 03");
    EXPECT_EQ(moved.getType(), RawMessage::CONTROL);
}

TEST(RawMessage, OffersTheOperationsOfTheVector) {
    RawMessage message = messageOf("01 02 03");
    const RawMessage header = messageOf("AA BB");
    message.insert(message.begin(), header.begin(), header.end());
    EXPECT_EQ(hexText(message), "AA BB 01 02 03");
    message.clear();
    EXPECT_EQ(message.size(), 0U);
}

TEST(RawMessage, KeepsItsTypeWhenItIsCleared) {
    RawMessage message(RawMessage::CONTROL);
    message.clear();
    EXPECT_EQ(message.getType(), RawMessage::CONTROL);
}

TEST(RawMessageProtocol, IsByteZero) {
    EXPECT_EQ(messageOf("04 02").getProtocol(), 4U);
}

TEST(RawMessageProtocol, IsReadAsAnUnsignedByte) {
    EXPECT_EQ(messageOf("FF").getProtocol(), 255U);
    EXPECT_EQ(messageOf("80").getProtocol(), 128U);
}

TEST(RawMessageProtocol, IsZeroForAnEmptyMessage) {
    EXPECT_EQ(messageOf("").getProtocol(), 0U);
}

TEST(RawMessageSubprotocol, IsByteOne) {
    EXPECT_EQ(messageOf("04 02 7F").getSubprotocol(), 2U);
}

TEST(RawMessageSubprotocol, IsReadAsAnUnsignedByte) {
    EXPECT_EQ(messageOf("00 FF").getSubprotocol(), 255U);
    EXPECT_EQ(messageOf("00 80").getSubprotocol(), 128U);
}

TEST(RawMessageSubprotocol, IsZeroForAnEmptyMessage) {
    EXPECT_EQ(messageOf("").getSubprotocol(), 0U);
}

TEST(RawMessageSubprotocol, IsZeroForASingleByte) {
    EXPECT_EQ(messageOf("04").getSubprotocol(), 0U);
}

TEST(RawMessageSubprotocol, IgnoresAByteThatTheMessageNoLongerHolds) {
    RawMessage message = messageOf("04 02");
    message.resize(1);
    EXPECT_EQ(message.getSubprotocol(), 0U);
}

}  // namespace
}  // namespace com_tesk::test
