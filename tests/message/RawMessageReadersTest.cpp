#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "tests/message/MessageOf.h"

namespace com_tesk::test {
namespace {

constexpr char kEight[] = "01 02 03 04 05 06 07 08";

static_assert(std::is_same<decltype(RawMessage(RawMessage::DATA).getWord(0)), std::uint16_t>::value,
              "a word is unsigned and 16 bits wide");
static_assert(std::is_same<decltype(RawMessage(RawMessage::DATA).getDoubleWord(0)), unsigned int>::value,
              "a double word is unsigned");
static_assert(std::is_same<decltype(RawMessage(RawMessage::DATA).getInt(0)), int>::value, "an int is signed");
static_assert(std::is_same<decltype(RawMessage(RawMessage::DATA).getFloat(0)), float>::value, "a float is a float");

/// A message of `size` bytes 01 02 03 ... whose memory still holds FF behind its end.
RawMessage messageWithLeftovers(std::size_t size) {
    RawMessage message = messageOf("01 02 03 04 05 06 07 08 FF FF FF FF");
    for (std::size_t i = size; i < message.size(); ++i) {
        message[i] = '\xFF';
    }
    message.resize(size);
    return message;
}

TEST(RawMessageGetWord, ReadsTheMostSignificantByteFirst) {
    EXPECT_EQ(messageOf(kEight).getWord(0), 0x0102U);
    EXPECT_EQ(messageOf(kEight).getWord(3), 0x0405U);
}

TEST(RawMessageGetWord, ReadsHighBytesAsUnsigned) {
    EXPECT_EQ(messageOf("FF FE").getWord(0), 0xFFFEU);
    EXPECT_EQ(messageOf("00 80").getWord(0), 0x0080U);
    EXPECT_EQ(messageOf("80 00").getWord(0), 0x8000U);
}

TEST(RawMessageGetWord, ReadsTheLastTwoBytes) {
    EXPECT_EQ(messageOf(kEight).getWord(6), 0x0708U);
}

TEST(RawMessageGetWord, CountsTheByteJustPastTheEndAsZero) {
    EXPECT_EQ(messageWithLeftovers(8).getWord(7), 0x0800U);
    EXPECT_EQ(messageOf("AB").getWord(0), 0xAB00U);
}

TEST(RawMessageGetWord, IsZeroFromTheEndOn) {
    EXPECT_EQ(messageWithLeftovers(8).getWord(8), 0U);
    EXPECT_EQ(messageWithLeftovers(8).getWord(9), 0U);
    EXPECT_EQ(messageOf("").getWord(0), 0U);
}

TEST(RawMessageGetWord, IsZeroWhereTheIndexSumWraps) {
    EXPECT_EQ(messageOf(kEight).getWord(UINT_MAX), 0U);
    EXPECT_EQ(messageOf(kEight).getWord(UINT_MAX - 1), 0U);
    EXPECT_EQ(messageOf("").getWord(UINT_MAX), 0U);
}

TEST(RawMessageGetDoubleWord, ReadsTheMostSignificantByteFirst) {
    EXPECT_EQ(messageOf(kEight).getDoubleWord(0), 0x01020304U);
    EXPECT_EQ(messageOf(kEight).getDoubleWord(1), 0x02030405U);
}

TEST(RawMessageGetDoubleWord, ReadsHighBytesAsUnsigned) {
    EXPECT_EQ(messageOf("80 90 A0 FF").getDoubleWord(0), 0x8090A0FFU);
    EXPECT_EQ(messageOf("00 00 00 80").getDoubleWord(0), 0x00000080U);
    EXPECT_EQ(messageOf("FF FF FF FF").getDoubleWord(0), 0xFFFFFFFFU);
}

TEST(RawMessageGetDoubleWord, ReadsTheLastFourBytes) {
    EXPECT_EQ(messageOf(kEight).getDoubleWord(4), 0x05060708U);
}

TEST(RawMessageGetDoubleWord, CountsTheByteJustPastTheEndAsZero) {
    EXPECT_EQ(messageWithLeftovers(8).getDoubleWord(5), 0x06070800U);
    EXPECT_EQ(messageOf("AA BB CC").getDoubleWord(0), 0xAABBCC00U);
}

TEST(RawMessageGetDoubleWord, IsZeroBeyondThat) {
    EXPECT_EQ(messageWithLeftovers(8).getDoubleWord(6), 0U);
    EXPECT_EQ(messageWithLeftovers(8).getDoubleWord(7), 0U);
    EXPECT_EQ(messageWithLeftovers(8).getDoubleWord(8), 0U);
    EXPECT_EQ(messageOf("AA BB").getDoubleWord(0), 0U);
    EXPECT_EQ(messageOf("").getDoubleWord(0), 0U);
}

TEST(RawMessageGetDoubleWord, IsZeroWhereTheIndexSumWraps) {
    for (unsigned int back = 0; back < 5; ++back) {
        EXPECT_EQ(messageOf(kEight).getDoubleWord(UINT_MAX - back), 0U) << "index UINT_MAX - " << back;
    }
}

TEST(RawMessageGetInt, ReadsTheSameBitsAsSigned) {
    EXPECT_EQ(messageOf("FF FF FF FE").getInt(0), -2);
    EXPECT_EQ(messageOf("00 00 00 00 2A").getInt(1), 42);
    EXPECT_EQ(messageOf("80 00 00 00").getInt(0), INT_MIN);
    EXPECT_EQ(messageOf("7F FF FF FF").getInt(0), INT_MAX);
}

TEST(RawMessageGetInt, CountsTheByteJustPastTheEndAsZero) {
    EXPECT_EQ(messageWithLeftovers(8).getInt(5), 0x06070800);
    EXPECT_EQ(messageOf("FF FF FF").getInt(0), -256);
}

TEST(RawMessageGetInt, IsZeroBeyondThat) {
    EXPECT_EQ(messageWithLeftovers(8).getInt(6), 0);
    EXPECT_EQ(messageOf("").getInt(0), 0);
}

TEST(RawMessageGetInt, IsZeroWhereTheIndexSumWraps) {
    EXPECT_EQ(messageOf(kEight).getInt(UINT_MAX), 0);
    EXPECT_EQ(messageOf(kEight).getInt(UINT_MAX - 2), 0);
}

TEST(RawMessageGetFloat, ReadsSinglePrecisionBits) {
    EXPECT_EQ(messageOf("3F 80 00 00").getFloat(0), 1.0F);
    EXPECT_EQ(messageOf("FF C0 20 00 00").getFloat(1), -2.5F);
    EXPECT_EQ(messageOf("00 00 00 01").getFloat(0), std::numeric_limits<float>::denorm_min());
    EXPECT_EQ(messageOf("7F 80 00 00").getFloat(0), std::numeric_limits<float>::infinity());
    EXPECT_TRUE(std::isnan(messageOf("7F C0 00 00").getFloat(0)));
}

TEST(RawMessageGetFloat, KeepsTheSignOfZero) {
    EXPECT_TRUE(std::signbit(messageOf("80 00 00 00").getFloat(0)));
    EXPECT_FALSE(std::signbit(messageOf("00 00 00 00").getFloat(0)));
}

TEST(RawMessageGetFloat, CountsTheByteJustPastTheEndAsZero) {
    RawMessage message = messageOf("3F 80 00 FF");
    message.resize(3);
    EXPECT_EQ(message.getFloat(0), 1.0F);
}

TEST(RawMessageGetFloat, IsZeroBeyondThat) {
    EXPECT_EQ(messageWithLeftovers(8).getFloat(6), 0.0F);
    EXPECT_EQ(messageOf("3F 80").getFloat(0), 0.0F);
    EXPECT_EQ(messageOf("").getFloat(0), 0.0F);
    EXPECT_FALSE(std::signbit(messageOf("80 00").getFloat(0)));
}

TEST(RawMessageGetFloat, IsZeroWhereTheIndexSumWraps) {
    EXPECT_EQ(messageOf(kEight).getFloat(UINT_MAX), 0.0F);
    EXPECT_EQ(messageOf(kEight).getFloat(UINT_MAX - 2), 0.0F);
}

TEST(RawMessageReaders, LeaveTheMessageUnchanged) {
    const RawMessage message = messageOf(kEight);
    const char* const storage = message.data();
    message.getWord(7);
    message.getDoubleWord(5);
    message.getInt(5);
    message.getFloat(5);
    message.getDoubleWord(100);
    EXPECT_EQ(hexText(message), kEight);
    EXPECT_EQ(message.data(), storage);
}

}  // namespace
}  // namespace com_tesk::test
