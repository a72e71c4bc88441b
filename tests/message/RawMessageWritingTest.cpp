#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <new>
#include <stdexcept>

#include "tests/message/AllocationLimit.h"
#include "tests/message/MessageOf.h"

namespace com_tesk::test {
namespace {

constexpr char kEightZeros[] = "00 00 00 00 00 00 00 00";

template <typename Value>
std::string written(Value value) {
    RawMessage message(RawMessage::DATA);
    message.write(value);
    return hexText(message);
}

/// Returns the text of these bytes after a value was written at `index`.
template <typename Value>
std::string overwritten(const std::string& hexBytes, unsigned int index, Value value) {
    RawMessage message = messageOf(hexBytes);
    message.writeAt(index, value);
    return hexText(message);
}

TEST(RawMessageWrite, AppendsNumbersMostSignificantByteFirst) {
    EXPECT_EQ(written(static_cast<unsigned char>(0)), "00");
    EXPECT_EQ(written(static_cast<unsigned char>(0x7F)), "7F");
    EXPECT_EQ(written(static_cast<unsigned char>(0xFF)), "FF");
    EXPECT_EQ(written(0x01020304U), "01 02 03 04");
    EXPECT_EQ(written(0U), "00 00 00 00");
    EXPECT_EQ(written(0xFFFEFDFCU), "FF FE FD FC");
    EXPECT_EQ(written(-2), "FF FF FF FE");
    EXPECT_EQ(written(258), "00 00 01 02");
    EXPECT_EQ(written(INT_MIN), "80 00 00 00");
    EXPECT_EQ(written(INT_MAX), "7F FF FF FF");
    EXPECT_EQ(written(1.0F), "3F 80 00 00");
    EXPECT_EQ(written(-2.5F), "C0 20 00 00");
    EXPECT_EQ(written(0.0F), "00 00 00 00");
    EXPECT_EQ(written(-0.0F), "80 00 00 00");
    EXPECT_EQ(written(3.4028235e38F), "7F 7F FF FF");
    EXPECT_EQ(written(std::numeric_limits<float>::infinity()), "7F 80 00 00");
    EXPECT_EQ(written(std::numeric_limits<float>::denorm_min()), "00 00 00 01");
}

TEST(RawMessageWrite, AppendsAtTheEndAndKeepsTheType) {
    RawMessage message("\xAA", 1, RawMessage::CONTROL);
    message.write(static_cast<unsigned char>(0xBB));
    message.write(0x01020304U);
    message.write(-2);
    message.write(1.0F);
    message.write("xyz", 3);
    EXPECT_EQ(hexText(message), "AA BB 01 02 03 04 FF FF FF FE 3F 80 00 00 78 79 7A");
    EXPECT_EQ(message.getType(), RawMessage::CONTROL);
}

TEST(RawMessageWriteBytes, AppendsAsManyAsTheLengthSaysZeroBytesIncluded) {
    const char bytes[] = {'\x01', '\x00', '\xFF', '\x80', '\x00', '\x55'};
    RawMessage message = messageOf("AA");
    message.write(bytes, sizeof bytes - 1);
    EXPECT_EQ(hexText(message), "AA 01 00 FF 80 00");
}

TEST(RawMessageWriteBytes, AppendsManyBytes) {
    const std::string bytes(100'000, 'x');
    RawMessage message = messageOf("AA BB");
    message.write(bytes.data(), static_cast<unsigned int>(bytes.size()));
    EXPECT_EQ(message.size(), 100'002U);
    EXPECT_EQ(std::string(message.begin() + 2, message.end()), bytes);
}

TEST(RawMessageWriteBytes, AppendsNothingForALengthOfZeroOrWithTheTopBitSet) {
    RawMessage message = messageOf("AA");
    message.write(nullptr, 0);
    for (const unsigned int length : {0U, 0x80000000U, 0x80000001U, UINT_MAX}) {
        message.write("abc", length);
    }
    EXPECT_EQ(hexText(message), "AA");
}

TEST(RawMessageWithoutMemory, RefusesTheLargestLengthThatCountsAsPositive) {
    // Its top bit is clear, so only the memory prevents the write.
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

// A word that would end at the last byte is left alone, and short frames rely on it.
TEST(RawMessageWriteAt, StoresAWordThatEndsBeforeTheLastByte) {
    constexpr unsigned int kWord = 0xA1B2C3D4U;
    EXPECT_EQ(overwritten(kEightZeros, 0, kWord), "A1 B2 C3 D4 00 00 00 00");
    EXPECT_EQ(overwritten(kEightZeros, 1, kWord), "00 A1 B2 C3 D4 00 00 00");
    EXPECT_EQ(overwritten(kEightZeros, 3, kWord), "00 00 00 A1 B2 C3 D4 00");
    for (unsigned int index = 4; index < 14; ++index) {
        EXPECT_EQ(overwritten(kEightZeros, index, kWord), kEightZeros) << "index " << index;
    }
    for (unsigned int back = 0; back < 6; ++back) {
        EXPECT_EQ(overwritten(kEightZeros, UINT_MAX - back, kWord), kEightZeros) << "index UINT_MAX - " << back;
    }
    EXPECT_EQ(overwritten("", 0, kWord), "");
    EXPECT_EQ(overwritten("01 02 03 04", 0, kWord), "01 02 03 04");
    EXPECT_EQ(overwritten("01 02 03 04 05", 0, kWord), "A1 B2 C3 D4 05");
}

TEST(RawMessageWriteAt, ReplacesAByteUpToTheLast) {
    constexpr unsigned char kByte = 0xEE;
    EXPECT_EQ(overwritten(kEightZeros, 0, kByte), "EE 00 00 00 00 00 00 00");
    EXPECT_EQ(overwritten(kEightZeros, 3, kByte), "00 00 00 EE 00 00 00 00");
    EXPECT_EQ(overwritten(kEightZeros, 7, kByte), "00 00 00 00 00 00 00 EE");
    for (const unsigned int index : {8U, 9U, UINT_MAX}) {
        EXPECT_EQ(overwritten(kEightZeros, index, kByte), kEightZeros) << "index " << index;
    }
    EXPECT_EQ(overwritten("", 0, kByte), "");
}

}  // namespace
}  // namespace com_tesk::test
