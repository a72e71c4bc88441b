#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "tools/csx/Texts.h"

namespace com_tesk::csx {
namespace {

using std::chrono::microseconds;

TEST(Durations, AreANumberAndAUnit) {
    const std::pair<const char*, std::int64_t> rows[] = {
        {"0s", 0},
        {"1us", 1},
        {"250ms", 250'000},
        {"5s", 5'000'000},
        {"1.5s", 1'500'000},
        {"2m", 120'000'000},
        {"1h", 3'600'000'000},
        {"1000h", 3'600'000'000'000},
        {"0.5m", 30'000'000},
        {"1e3ms", 1'000'000},
        {"0.0001ms", 0},
    };
    for (const auto& [text, count] : rows) {
        EXPECT_EQ(durationOf(text), microseconds(count)) << text;
    }
}

TEST(Durations, OfOtherTextsAreRefused) {
    for (const char* const text :
         {"",     "5",    "s",    "ms",    "5 s",   " 5s", "5s ",  "-1s", "-0s",  "+1s", "1,5s",
          "0x1s", "nans", "infs", "1001h", "1e99h", "5S",  "5sec", "5d",  "1s1s", "--1s"}) {
        EXPECT_EQ(durationOf(text), std::nullopt) << text;
    }
}

TEST(Durations, AreShownWithTheirUnit) {
    EXPECT_EQ(textOf(microseconds(250'000)), "250 ms");
    EXPECT_EQ(textOf(microseconds(5'000'000)), "5 s");
    EXPECT_EQ(textOf(microseconds(120)), "0.12 ms");
    EXPECT_EQ(textOf(microseconds(0)), "0 ms");
    EXPECT_EQ(textOf(microseconds(999'400)), "999 ms");
    EXPECT_EQ(textOf(microseconds(999'999)), "1 s");
    EXPECT_EQ(textOf(microseconds(36'000'000'000)), "36000 s");
}

TEST(Numbers, WithoutPrefixAreFloats) {
    const std::pair<const char*, float> rows[] = {
        {"0", 0.0F},
        {"1", 1.0F},
        {"1.5", 1.5F},
        {"-1.5", -1.5F},
        {"+1", 1.0F},
        {"1e3", 1000.0F},
        {"0.1", 0.1F},
        {".5", 0.5F},
        {"3.4028235e38", std::numeric_limits<float>::max()},
        {"16777217", 16777216.0F},
        {"inf", std::numeric_limits<float>::infinity()},
        {"-inf", -std::numeric_limits<float>::infinity()},
    };
    for (const auto& [text, value] : rows) {
        const auto number = numberOf(text);
        ASSERT_TRUE(number) << text;
        EXPECT_FALSE(number->isInteger) << text;
        EXPECT_EQ(number->real, value) << text;
    }
    ASSERT_TRUE(numberOf("nan"));
    EXPECT_TRUE(std::isnan(numberOf("nan")->real));
    ASSERT_TRUE(numberOf("-0"));
    EXPECT_TRUE(std::signbit(numberOf("-0")->real));
}

TEST(Numbers, WithPrefixAreIntegers) {
    const std::pair<const char*, std::int32_t> rows[] = {
        {"i:0", 0},
        {"i:3", 3},
        {"i:-3", -3},
        {"i:+3", 3},
        {"i:007", 7},
        {"i:16777217", 16'777'217},
        {"i:2147483647", std::numeric_limits<std::int32_t>::max()},
        {"i:-2147483648", std::numeric_limits<std::int32_t>::min()},
    };
    for (const auto& [text, value] : rows) {
        const auto number = numberOf(text);
        ASSERT_TRUE(number) << text;
        EXPECT_TRUE(number->isInteger) << text;
        EXPECT_EQ(number->integer, value) << text;
    }
}

TEST(Numbers, OfOtherTextsAreRefused) {
    for (const char* const text : {"abc",   "1,5",   "",      " 1",    "1 ",           "0x1",           "1e40",
                                   "-1e40", "1e",    "1.5.5", "++1",   "+-1",          "-+1",           "--1",
                                   "+",     "-",     ".",     "1f",    "1e-60",        "nan(1)",        "nan(",
                                   "true",  "1\n",   "i:",    "i",     "i:2147483648", "i:-2147483649", "i:1.5",
                                   "i:1e3", "i: 1",  "i:1 ",  "i:0x1", "i:nan",        "i:+-1",         "i:++1",
                                   "I:1",   "i:i:1", "f:1",   "1i:"}) {
        EXPECT_FALSE(numberOf(text)) << text;
    }
    EXPECT_FALSE(numberOf(std::string_view("1\0", 2))) << "a zero byte follows";
}

TEST(Numbers, AreShownWithTheShortestText) {
    for (const char* const text : {"0", "-0", "0.1", "12.5", "-300", "1e+10", "3.4028235e+38", "1e-45", "16777216",
                                   "0.33333334", "nan", "inf", "-inf"}) {
        EXPECT_EQ(textOf(*numberOf(text)), text);
    }
    EXPECT_EQ(textOf(Number{false, -std::numeric_limits<float>::quiet_NaN(), 0}), "nan");
    EXPECT_EQ(textOf(Number{true, 16777216.0F, 16'777'217}), "16777217");
    EXPECT_EQ(textOf(Number{true, 0, std::numeric_limits<std::int32_t>::min()}), "-2147483648");
}

TEST(Numbers, ReadBackTheSameFromTheirTexts) {
    std::uint32_t bits = 1;
    for (int i = 0; i < 20'000; ++i) {
        bits = bits * 1'664'525U + 1'013'904'223U;
        Number number;
        std::memcpy(&number.real, &bits, sizeof bits);
        if (!std::isfinite(number.real)) {
            continue;
        }
        const auto again = numberOf(textOf(number));
        ASSERT_TRUE(again) << textOf(number);
        std::uint32_t bitsAgain = 0;
        std::memcpy(&bitsAgain, &again->real, sizeof bitsAgain);
        ASSERT_EQ(bitsAgain, bits) << textOf(number);
    }
}

TEST(Numbers, AreTheSameWhenValueAndTypeAre) {
    const auto isSameOf = [](const char* one, const char* other) { return isSame(*numberOf(one), *numberOf(other)); };
    EXPECT_TRUE(isSameOf("1.5", "1.5"));
    EXPECT_FALSE(isSameOf("1.5", "1.6"));
    EXPECT_TRUE(isSameOf("nan", "nan"));
    EXPECT_FALSE(isSameOf("nan", "1"));
    EXPECT_FALSE(isSameOf("1", "i:1"));
    EXPECT_TRUE(isSameOf("i:1", "i:1"));
    EXPECT_FALSE(isSameOf("i:16777217", "i:16777216"));
    EXPECT_EQ(valueOf(*numberOf("i:16777217")), 16'777'217.0);
    EXPECT_EQ(valueOf(*numberOf("0.5")), 0.5);
}

}  // namespace
}  // namespace com_tesk::csx
