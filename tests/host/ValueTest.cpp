#include "host/Value.h"

#include <gtest/gtest.h>

#include <cmath>

namespace com_tesk::host_test {
namespace {

TEST(HostValue, IntegerKeepsItsSign) {
    const HostValue value = HostValue::integer(-2);
    EXPECT_TRUE(value.isInteger());
    EXPECT_EQ(value.bits(), 0xFFFFFFFEU);
    EXPECT_EQ(value.asInteger(), -2);
}

TEST(HostValue, FloatIsItsIeeeSingle) {
    EXPECT_EQ(HostValue::real(1.0F).bits(), 0x3F800000U);
    EXPECT_FLOAT_EQ(HostValue::fromBits(0x40490FDB, false).asReal(), 3.1415927F);
}

TEST(HostValue, SameBitsOfAnotherKindAreAnotherValue) {
    EXPECT_NE(HostValue::integer(0), HostValue::real(0.0F));
    EXPECT_NE(HostValue::real(0.0F), HostValue::real(-0.0F));
    EXPECT_EQ(HostValue::real(NAN), HostValue::real(NAN));
}

TEST(HostValue, TextIsWhatAStreamPrints) {
    EXPECT_EQ(HostValue::real(12.5F).text(), "12.5");
    EXPECT_EQ(HostValue::real(1e10F).text(), "1e+10");
    EXPECT_EQ(HostValue::integer(-2147483647 - 1).text(), "-2147483648");
}

TEST(HostValue, PlainTextIsReadAsFloat) {
    EXPECT_EQ(HostValue::fromText("1.5"), HostValue::real(1.5F));
    EXPECT_EQ(HostValue::fromText("-3"), HostValue::real(-3.0F));
    EXPECT_EQ(HostValue::fromText("1e3"), HostValue::real(1000.0F));
}

TEST(HostValue, MarkedTextIsReadAsInteger) {
    EXPECT_EQ(HostValue::fromText("i:3"), HostValue::integer(3));
    EXPECT_EQ(HostValue::fromText("i:-2147483648"), HostValue::integer(-2147483647 - 1));
    EXPECT_EQ(HostValue::fromText("i:2147483647"), HostValue::integer(2147483647));
}

TEST(HostValue, TextThatIsNotWhollyANumberIsRefused) {
    for (const char* text : {"", "i:", "abc", "1.5x", " 1", "i:1.5", "i:2147483648", "1e99", "x:1"}) {
        EXPECT_FALSE(HostValue::fromText(text).has_value()) << text;
    }
}

}  // namespace
}  // namespace com_tesk::host_test
