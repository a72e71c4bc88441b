#include <gtest/gtest.h>

#include <climits>

#include "tests/message/MessageOf.h"

namespace com_tesk::test {
namespace {

constexpr unsigned int kWord = 0xA1B2C3D4U;
constexpr unsigned char kByte = 0xEE;
constexpr char kEightZeros[] = "00 00 00 00 00 00 00 00";

/// The bytes of eight zeros after a word was written at `index`.
std::string afterWordAt(unsigned int index) {
    RawMessage message = messageOf(kEightZeros);
    message.writeAt(index, kWord);
    return hexText(message);
}

std::string afterByteAt(unsigned int index) {
    RawMessage message = messageOf(kEightZeros);
    message.writeAt(index, kByte);
    return hexText(message);
}

TEST(RawMessageWriteWordAt, StoresTheMostSignificantByteFirst) {
    EXPECT_EQ(afterWordAt(0), "A1 B2 C3 D4 00 00 00 00");
    EXPECT_EQ(afterWordAt(1), "00 A1 B2 C3 D4 00 00 00");
}

TEST(RawMessageWriteWordAt, StoresAWordThatEndsOneByteBeforeTheLast) {
    EXPECT_EQ(afterWordAt(3), "00 00 00 A1 B2 C3 D4 00");
}

TEST(RawMessageWriteWordAt, LeavesAWordThatWouldEndAtTheLastByteAlone) {
    EXPECT_EQ(afterWordAt(4), kEightZeros);
}

TEST(RawMessageWriteWordAt, DoesNothingBeyondThat) {
    for (unsigned int index = 5; index < 14; ++index) {
        EXPECT_EQ(afterWordAt(index), kEightZeros) << "index " << index;
    }
}

TEST(RawMessageWriteWordAt, DoesNothingWhereTheIndexSumWraps) {
    for (unsigned int back = 0; back < 6; ++back) {
        EXPECT_EQ(afterWordAt(UINT_MAX - back), kEightZeros) << "index UINT_MAX - " << back;
    }
}

TEST(RawMessageWriteWordAt, DoesNothingToAnEmptyMessage) {
    RawMessage message = messageOf("");
    message.writeAt(0, kWord);
    EXPECT_TRUE(message.empty());
}

TEST(RawMessageWriteWordAt, DoesNothingToAMessageOfFourBytes) {
    RawMessage message = messageOf("01 02 03 04");
    message.writeAt(0, kWord);
    EXPECT_EQ(hexText(message), "01 02 03 04");
}

TEST(RawMessageWriteWordAt, WritesIntoAMessageOfFiveBytes) {
    RawMessage message = messageOf("01 02 03 04 05");
    message.writeAt(0, kWord);
    EXPECT_EQ(hexText(message), "A1 B2 C3 D4 05");
}

TEST(RawMessageWriteByteAt, ReplacesOneByte) {
    EXPECT_EQ(afterByteAt(0), "EE 00 00 00 00 00 00 00");
    EXPECT_EQ(afterByteAt(3), "00 00 00 EE 00 00 00 00");
}

TEST(RawMessageWriteByteAt, ReplacesTheLastByte) {
    EXPECT_EQ(afterByteAt(7), "00 00 00 00 00 00 00 EE");
}

TEST(RawMessageWriteByteAt, DoesNothingFromTheEndOn) {
    EXPECT_EQ(afterByteAt(8), kEightZeros);
    EXPECT_EQ(afterByteAt(9), kEightZeros);
    EXPECT_EQ(afterByteAt(UINT_MAX), kEightZeros);
}

TEST(RawMessageWriteByteAt, DoesNothingToAnEmptyMessage) {
    RawMessage message = messageOf("");
    message.writeAt(0, kByte);
    EXPECT_TRUE(message.empty());
}

}  // namespace
}  // namespace com_tesk::test
