#include <gtest/gtest.h>

#include <iostream>

#include "tests/message/MessageOf.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

std::string shown(const std::string& hexBytes) {
    const RawMessage message = messageOf(hexBytes);
    testing::internal::CaptureStdout();
    message.show();
    return testing::internal::GetCapturedStdout();
}

TEST(RawMessageShow, PrintsNothingForAnEmptyMessage) {
    EXPECT_EQ(shown(""), "");
}

TEST(RawMessageShow, PrintsOneByteWithoutANewline) {
    EXPECT_EQ(shown("0a"), "0x0a ");
}

TEST(RawMessageShow, PrintsThreeBytesWithoutANewline) {
    EXPECT_EQ(shown("01 02 03"), "0x01 0x02 0x03 ");
}

TEST(RawMessageShow, EndsTheLineAfterTheFourthByte) {
    EXPECT_EQ(shown("01 02 03 04"), "0x01 0x02 0x03 0x04 \n");
}

TEST(RawMessageShow, LeavesAnIncompleteLastLineOpen) {
    EXPECT_EQ(shown("04 02 7f ff 00 00"), "0x04 0x02 0x7f 0xff \n0x00 0x00 ");
}

TEST(RawMessageShow, EndsEachFullLine) {
    EXPECT_EQ(shown("01 02 03 04 05 06 07 08"), "0x01 0x02 0x03 0x04 \n0x05 0x06 0x07 0x08 \n");
    EXPECT_EQ(shown("01 02 03 04 05 06 07 08 09"), "0x01 0x02 0x03 0x04 \n0x05 0x06 0x07 0x08 \n0x09 ");
}

TEST(RawMessageShow, PrintsHighBytesAsTwoLowerCaseDigits) {
    EXPECT_EQ(shown("80 AB CD EF FF"), "0x80 0xab 0xcd 0xef \n0xff ");
}

TEST(RawMessageShow, LeavesTheStreamObjectAlone) {
    const CapturedStreams streams;
    EXPECT_EQ(shown("AB"), "0xab ");
    EXPECT_EQ(streams.out(), "");
    EXPECT_EQ(streams.err(), "");
}

}  // namespace
}  // namespace com_tesk::test
