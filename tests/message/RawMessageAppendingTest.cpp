#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <new>
#include <stdexcept>

#include "tests/message/AllocationLimit.h"
#include "tests/message/MessageOf.h"

namespace com_tesk::test {
namespace {

template <typename Value>
std::string written(Value value) {
    RawMessage message(RawMessage::DATA);
    message.write(value);
    return hexText(message);
}

TEST(RawMessageWrite, AppendsAByte) {
    EXPECT_EQ(written(static_cast<unsigned char>(0)), "00");
    EXPECT_EQ(written(static_cast<unsigned char>(0x7F)), "7F");
    EXPECT_EQ(written(static_cast<unsigned char>(0xFF)), "FF");
}

TEST(RawMessageWrite, AppendsAnUnsignedWordMostSignificantByteFirst) {
    EXPECT_EQ(written(0x01020304U), "01 02 03 04");
    EXPECT_EQ(written(0U), "00 00 00 00");
    EXPECT_EQ(written(0xFFFEFDFCU), "FF FE FD FC");
}

TEST(RawMessageWrite, AppendsASignedWordMostSignificantByteFirst) {
    EXPECT_EQ(written(-2), "FF FF FF FE");
    EXPECT_EQ(written(258), "00 00 01 02");
    EXPECT_EQ(written(INT_MIN), "80 00 00 00");
    EXPECT_EQ(written(INT_MAX), "7F FF FF FF");
}

TEST(RawMessageWrite, AppendsTheSinglePrecisionBitsOfAFloat) {
    EXPECT_EQ(written(1.0F), "3F 80 00 00");
    EXPECT_EQ(written(-2.5F), "C0 20 00 00");
    EXPECT_EQ(written(0.0F), "00 00 00 00");
    EXPECT_EQ(written(-0.0F), "80 00 00 00");
    EXPECT_EQ(written(3.4028235e38F), "7F 7F FF FF");
    EXPECT_EQ(written(std::numeric_limits<float>::infinity()), "7F 80 00 00");
    EXPECT_EQ(written(std::numeric_limits<float>::denorm_min()), "00 00 00 01");
}

TEST(RawMessageWrite, AppendsAtTheEnd) {
    RawMessage message = messageOf("AA");
    message.write(static_cast<unsigned char>(0xBB));
    message.write(0x01020304U);
    message.write(-2);
    message.write(1.0F);
    message.write("xyz", 3);
    EXPECT_EQ(hexText(message), "AA BB 01 02 03 04 FF FF FF FE 3F 80 00 00 78 79 7A");
}

TEST(RawMessageWrite, KeepsTheType) {
    RawMessage message(RawMessage::CONTROL);
    message.write(1U);
    EXPECT_EQ(message.getType(), RawMessage::CONTROL);
}

TEST(RawMessageWriteBytes, AppendsThemInOrderZeroBytesIncluded) {
    const char bytes[] = {'\x01', '\x00', '\xFF', '\x80', '\x00'};
    RawMessage message = messageOf("AA");
    message.write(bytes, sizeof bytes);
    EXPECT_EQ(hexText(message), "AA 01 00 FF 80 00");
}

TEST(RawMessageWriteBytes, AppendsNoMoreThanTheLengthSays) {
    RawMessage message(RawMessage::DATA);
    message.write("abcdef", 1);
    EXPECT_EQ(hexText(message), "61");
}

TEST(RawMessageWriteBytes, AppendsManyBytes) {
    const std::string bytes(100'000, 'x');
    RawMessage message = messageOf("AA BB");
    message.write(bytes.data(), static_cast<unsigned int>(bytes.size()));
    EXPECT_EQ(message.size(), 100'002U);
    EXPECT_EQ(std::string(message.begin() + 2, message.end()), bytes);
}

TEST(RawMessageWriteBytes, AppendsNothingForALengthOfZero) {
    RawMessage message = messageOf("AA");
    message.write("abc", 0);
    message.write(nullptr, 0);
    EXPECT_EQ(hexText(message), "AA");
}

TEST(RawMessageWriteBytes, AppendsNothingForALengthWithTheTopBitSet) {
    RawMessage message = messageOf("AA");
    message.write("abc", 0x80000000U);
    message.write("abc", 0x80000001U);
    message.write("abc", UINT_MAX);
    EXPECT_EQ(hexText(message), "AA");
}

TEST(RawMessageWithoutMemory, RefusesTheLargestLengthThatCountsAsPositive) {
    // Its top bit is clear, so it is a length like any other: the only thing in its way is the memory.
    RawMessage message = messageOf("AA");
    const AllocationLimit limit(1'000'000);
    if (message.max_size() > 0x7FFFFFFFU) {
        EXPECT_THROW(message.write("abc", 0x7FFFFFFFU), std::bad_alloc);
    } else {
        EXPECT_THROW(message.write("abc", 0x7FFFFFFFU), std::length_error);
    }
    EXPECT_EQ(message.size(), 1U);
    EXPECT_EQ(message[0], '\xAA');
}

TEST(RawMessageWithoutMemory, StaysUnchangedWhenAWriteFails) {
    RawMessage message = messageOf("AA BB");
    message.shrink_to_fit();
    {
        const AllocationLimit limit(0);
        EXPECT_THROW(message.write(static_cast<unsigned char>(1)), std::bad_alloc);
        EXPECT_THROW(message.write(1U), std::bad_alloc);
        EXPECT_THROW(message.write(1), std::bad_alloc);
        EXPECT_THROW(message.write(1.0F), std::bad_alloc);
        EXPECT_THROW(message.write("abc", 3), std::bad_alloc);
    }
    EXPECT_EQ(hexText(message), "AA BB");
}

}  // namespace
}  // namespace com_tesk::test
