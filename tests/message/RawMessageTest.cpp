#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <type_traits>

#include "tests/support/Allocations.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/MessageOf.h"

namespace com_tesk::test {
namespace {

constexpr char kEight[] = "01 02 03 04 05 06 07 08";
constexpr char kEightZeros[] = "00 00 00 00 00 00 00 00";

static_assert(std::is_convertible_v<RawMessage*, std::vector<char>*>, "derives publicly from the vector");
static_assert(std::has_virtual_destructor_v<RawMessage>, "may be deleted through a base pointer");
static_assert(std::is_same_v<std::underlying_type_t<RawMessage::Type>, std::uint32_t>, "the type has 32 bits");
static_assert(std::is_same_v<decltype(RawMessage(RawMessage::DATA).getWord(0)), std::uint16_t>, "16 bits, unsigned");
static_assert(std::is_same_v<decltype(RawMessage(RawMessage::DATA).getDoubleWord(0)), unsigned int>, "unsigned");
static_assert(std::is_same_v<decltype(RawMessage(RawMessage::DATA).getInt(0)), int>, "signed");
static_assert(std::is_same_v<decltype(RawMessage(RawMessage::DATA).getFloat(0)), float>, "single precision");

/// Returns a message of these bytes whose memory still holds FF after its end.
RawMessage messageWithLeftovers(const std::string& hexBytes) {
    RawMessage message = messageOf(hexBytes + " FF FF FF FF");
    message.resize(message.size() - 4);
    return message;
}

TEST(RawMessage, IsEmptyAndOfTheGivenTypeAtFirst) {
    unsigned int number = 0;
    for (const RawMessage::Type type : {RawMessage::INVALID, RawMessage::DATA, RawMessage::CONTROL}) {
        EXPECT_EQ(static_cast<unsigned int>(type), number++);
        for (const RawMessage& message : {RawMessage(type), RawMessage("x", 0, type)}) {
            EXPECT_EQ(message.getType(), type);
            EXPECT_TRUE(message.empty());
        }
    }
}

TEST(RawMessage, CopiesAssignsAndMovesItsBytesAndItsType) {
    char bytes[] = {'\x04', '\x02', '\x7F', '\xFF', '\x00', '\x80', '\x55'};
    RawMessage original(bytes, sizeof bytes - 1, RawMessage::CONTROL);
    bytes[0] = 9;
    EXPECT_EQ(hexText(original), "04 02 7F FF 00 80") << "a copy of as many bytes as the length says";
    const RawMessage copy(original);
    RawMessage assigned(RawMessage::DATA);
    assigned = original;
    original[0] = 9;
    original.push_back(4);
    const RawMessage moved(std::move(original));
    EXPECT_EQ(hexText(copy), "04 02 7F FF 00 80");
    EXPECT_EQ(hexText(assigned), "04 02 7F FF 00 80");
    EXPECT_EQ(hexText(moved), "09 02 7F FF 00 80 04");
    for (const RawMessage* message : {&copy, static_cast<const RawMessage*>(&assigned), &moved}) {
        EXPECT_EQ(message->getType(), RawMessage::CONTROL);
    }
}

TEST(RawMessageProtocol, IsByteZeroAndTheSubprotocolByteOne) {
    struct Row {
        const char* bytes;
        unsigned int protocol;
        unsigned int subprotocol;
    };
    constexpr Row kRows[] = {
        {"04 02 7F", 4, 2}, {"FF 80", 255, 128}, {"80 FF", 128, 255}, {"04", 4, 0}, {"", 0, 0},
    };
    for (const Row& row : kRows) {
        const RawMessage message = messageWithLeftovers(row.bytes);
        EXPECT_EQ(message.getProtocol(), row.protocol) << row.bytes;
        EXPECT_EQ(message.getSubprotocol(), row.subprotocol) << row.bytes;
    }
}

TEST(RawMessageNumbers, AreBigEndianAndCountOneBytePastTheEndAsZero) {
    struct Row {
        const char* bytes;
        unsigned int index;
        unsigned int word;
        unsigned int doubleWord;
    };
    constexpr Row kRows[] = {
        {kEight, 0, 0x0102, 0x01020304},
        {kEight, 1, 0x0203, 0x02030405},
        {kEight, 3, 0x0405, 0x04050607},
        {kEight, 4, 0x0506, 0x05060708},
        {kEight, 5, 0x0607, 0x06070800},
        {kEight, 6, 0x0708, 0},
        {kEight, 7, 0x0800, 0},
        {kEight, 8, 0, 0},
        {kEight, 9, 0, 0},
        {kEight, 100, 0, 0},
        {kEight, UINT_MAX, 0, 0},
        {kEight, UINT_MAX - 1, 0, 0},
        {kEight, UINT_MAX - 2, 0, 0},
        {kEight, UINT_MAX - 3, 0, 0},
        {kEight, UINT_MAX - 4, 0, 0},
        {"80 90 A0 FF", 0, 0x8090, 0x8090A0FF},
        {"FF FE FD FC", 0, 0xFFFE, 0xFFFEFDFC},
        {"00 00 00 80", 2, 0x0080, 0},
        {"00 00 00 80", 0, 0, 0x00000080},
        {"FF FF FF FF", 0, 0xFFFF, 0xFFFFFFFF},
        {"3F 80 00", 0, 0x3F80, 0x3F800000},
        {"AA BB", 0, 0xAABB, 0},
        {"AB", 0, 0xAB00, 0},
        {"", 0, 0, 0},
        {"", UINT_MAX, 0, 0},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(std::string(row.bytes) + " at " + std::to_string(row.index));
        const RawMessage message = messageWithLeftovers(row.bytes);
        const char* const storage = message.data();
        EXPECT_EQ(message.getWord(row.index), row.word);
        EXPECT_EQ(message.getDoubleWord(row.index), row.doubleWord);
        EXPECT_EQ(static_cast<unsigned int>(message.getInt(row.index)), row.doubleWord);
        const float number = message.getFloat(row.index);
        unsigned int bits = 0;
        std::memcpy(&bits, &number, sizeof bits);
        EXPECT_EQ(bits, row.doubleWord);
        EXPECT_EQ(hexText(message), row.bytes);
        EXPECT_EQ(message.data(), storage);
    }
}

TEST(RawMessageNumbers, AreSignedIntegersAndSinglePrecisionFloats) {
    EXPECT_EQ(messageOf("FF FF FF FE").getInt(0), -2);
    EXPECT_EQ(messageOf("00 00 00 00 2A").getInt(1), 42);
    EXPECT_EQ(messageOf("80 00 00 00").getInt(0), INT_MIN);
    EXPECT_EQ(messageOf("7F FF FF FF").getInt(0), INT_MAX);
    EXPECT_EQ(messageOf("FF FF FF").getInt(0), -256);
    EXPECT_EQ(messageOf("3F 80 00 00").getFloat(0), 1.0F);
    EXPECT_EQ(messageOf("FF C0 20 00 00").getFloat(1), -2.5F);
    EXPECT_EQ(messageOf("00 00 00 01").getFloat(0), std::numeric_limits<float>::denorm_min());
    EXPECT_EQ(messageOf("7F 80 00 00").getFloat(0), std::numeric_limits<float>::infinity());
    EXPECT_TRUE(std::isnan(messageOf("7F C0 00 00").getFloat(0)));
    EXPECT_TRUE(std::signbit(messageOf("80 00 00 00").getFloat(0)));
    EXPECT_FALSE(std::signbit(messageOf("00 00 00 00").getFloat(0)));
}

TEST(RawMessageShow, PrintsFourLowerCaseBytesALineAndOnlyToTheCStream) {
    constexpr std::pair<const char*, const char*> kRows[] = {
        {"", ""},
        {"0a", "0x0a "},
        {"01 02 03", "0x01 0x02 0x03 "},
        {"01 02 03 04", "0x01 0x02 0x03 0x04 \n"},
        {"04 02 7f ff 00 00", "0x04 0x02 0x7f 0xff \n0x00 0x00 "},
        {kEight, "0x01 0x02 0x03 0x04 \n0x05 0x06 0x07 0x08 \n"},
        {"80 AB CD EF FF 01 02 03 09", "0x80 0xab 0xcd 0xef \n0xff 0x01 0x02 0x03 \n0x09 "},
    };
    const CapturedStreams streams;
    for (const auto& [bytes, text] : kRows) {
        const RawMessage message = messageOf(bytes);
        testing::internal::CaptureStdout();
        message.show();
        EXPECT_EQ(testing::internal::GetCapturedStdout(), text);
    }
    EXPECT_EQ(streams.out() + streams.err(), "");
}

// Writing.

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

TEST(RawMessageWrite, AppendsAtTheEndOfTheVectorAndKeepsTheType) {
    RawMessage message("\xAA", 1, RawMessage::CONTROL);
    message.write(static_cast<unsigned char>(0xBB));
    message.write(0x01020304U);
    message.write(-2);
    message.write(1.0F);
    message.write("xyz", 3);
    const RawMessage header = messageOf("0C 0D");
    message.insert(message.begin(), header.begin(), header.end());
    EXPECT_EQ(hexText(message), "0C 0D AA BB 01 02 03 04 FF FF FF FE 3F 80 00 00 78 79 7A");
    message.clear();
    EXPECT_EQ(message.size(), 0U);
    EXPECT_EQ(message.getType(), RawMessage::CONTROL);
}

TEST(RawMessageWriteBytes, AppendsAsManyAsTheLengthSaysZeroBytesIncluded) {
    const char bytes[] = {'\x01', '\x00', '\xFF', '\x80', '\x00', '\x55'};
    RawMessage message = messageOf("AA");
    message.write(bytes, sizeof bytes - 1);
    EXPECT_EQ(hexText(message), "AA 01 00 FF 80 00");
    const std::string many(100'000, 'x');
    message.write(many.data(), 100'000);
    EXPECT_EQ(std::string(message.begin() + 6, message.end()), many);
}

TEST(RawMessageWriteBytes, AppendsNothingForALengthOfZeroOrWithTheTopBitSet) {
    RawMessage message = messageOf("AA");
    message.write(nullptr, 0);
    for (const unsigned int length : {0U, 0x80000000U, 0x80000001U, UINT_MAX}) {
        message.write("abc", length);
    }
    EXPECT_EQ(hexText(message), "AA");
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
    {
        // The largest length that counts as positive: its top bit is clear, so only the memory prevents the write.
        const AllocationLimit limit(1'000'000);
        if (message.max_size() > 0x7FFFFFFFU) {
            EXPECT_THROW(message.write("abc", 0x7FFFFFFFU), std::bad_alloc);
        } else {
            EXPECT_THROW(message.write("abc", 0x7FFFFFFFU), std::length_error);
        }
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
