#include <gtest/gtest.h>

#include "tests/tools/PublisherHost.h"
#include "tests/tools/PublisherProcess.h"

namespace com_tesk::test {
namespace {

struct ValueCase {
    const char* name;
    const char* text;
    const char* wireHex;
    const char* printed;
};

/// How a value text of the command line arrives at the host and is printed.
class PublisherValue : public testing::TestWithParam<ValueCase> {};

INSTANTIATE_TEST_SUITE_P(Text, PublisherValue,
                         testing::Values(ValueCase{"Decimal", "12.5", "41 48 00 00", "12.5"},
                                         ValueCase{"NoNumberIsZero", "abc", "00 00 00 00", "0"},
                                         ValueCase{"EmptyIsZero", "", "00 00 00 00", "0"},
                                         ValueCase{"NumberBeforeOtherText", "12.5abc", "41 48 00 00", "12.5"},
                                         ValueCase{"NegativeZeroKeepsItsSign", "-0", "80 00 00 00", "-0"},
                                         ValueCase{"TooLargeIsInfinite", "1e999", "7F 80 00 00", "inf"},
                                         ValueCase{"TooLargeForAFloatIsInfinite", "-1e39", "FF 80 00 00", "-inf"},
                                         ValueCase{"TooSmallIsZero", "1e-60", "00 00 00 00", "0"},
                                         ValueCase{"Hexadecimal", "0x1.8p1", "40 40 00 00", "3"},
                                         ValueCase{"NoNumberByName", "nan", "7F C0 00 00", "nan"},
                                         ValueCase{"NarrowedToSinglePrecision", "0.1", "3D CC CC CD", "0.1"},
                                         ValueCase{"PrintedWithSixDigits", "1234567", "49 96 B4 38", "1.23457e+06"},
                                         ValueCase{"Negative", "-300", "C3 96 00 00", "-300"}),
                         [](const testing::TestParamInfo<ValueCase>& value) { return std::string(value.param.name); });

TEST_P(PublisherValue, ArrivesAndIsPrinted) {
    PublisherHost host;
    PublisherProcess publisher({ownAddress(), "A", GetParam().text});
    const std::unique_ptr<ScriptedHost::Peer> peer = host.accept();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), registrationOf("A"));
    peer->send(confirmationOf(7, "A"));
    EXPECT_EQ(peer->receiveBody(), publicationOf(7, GetParam().wireHex));
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), std::string("Connected.\nPublished A with value ") + GetParam().printed + "\n");
}

}  // namespace
}  // namespace com_tesk::test
