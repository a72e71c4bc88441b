#include "tools/csmqtt/Payload.h"

#include <gtest/gtest.h>

#include <clocale>
#include <limits>

namespace com_tesk::mqtt {

namespace {

constexpr auto kFloat = NumberType::FLOAT;
constexpr auto kInteger = NumberType::INTEGER;

FromMqtt target(NumberType type, PayloadForm form = PayloadForm::TEXT) {
    FromMqtt result;
    result.type = type;
    result.payload = form;
    return result;
}

Verdict verdictOf(std::string_view payload, const FromMqtt& command) {
    return readNumber(payload, command).verdict;
}

}  // namespace

TEST(Payload, HasTheShortestTextOfTheSameNumber) {
    EXPECT_EQ(numberText(12.5, kFloat), "12.5");
    EXPECT_EQ(numberText(static_cast<double>(0.1F), kFloat), "0.1");
    EXPECT_EQ(numberText(16'777'216, kFloat), "16777216");
    EXPECT_EQ(numberText(static_cast<double>(1e-20F), kFloat), "1e-20");
    EXPECT_EQ(numberText(-0.0, kFloat), "-0");
    EXPECT_EQ(numberText(-2'147'483'648.0, kInteger), "-2147483648");
    EXPECT_EQ(numberText(std::numeric_limits<double>::infinity(), kFloat), "inf");
    EXPECT_EQ(numberText(-std::numeric_limits<double>::quiet_NaN(), kFloat), "nan");
}

TEST(Payload, InJsonHasValueTimeAndNumber) {
    const std::chrono::system_clock::time_point time{std::chrono::microseconds(1'795'453'322'571'265)};
    EXPECT_EQ(payloadOf({12.5, 17, time}, kFloat, PayloadForm::JSON),
              R"({"v":12.5,"t":"2026-11-23T17:02:02.571265Z","n":17})");
    EXPECT_EQ(payloadOf({-3, 1, time}, kInteger, PayloadForm::JSON),
              R"({"v":-3,"t":"2026-11-23T17:02:02.571265Z","n":1})");
    EXPECT_EQ(payloadOf({std::numeric_limits<double>::quiet_NaN(), 1, time}, kFloat, PayloadForm::JSON),
              R"({"v":null,"t":"2026-11-23T17:02:02.571265Z","n":1})");
    EXPECT_EQ(payloadOf({12.5, 17, time}, kFloat, PayloadForm::TEXT), "12.5");
}

TEST(Payload, OfACommandIsReadWhole) {
    EXPECT_EQ(readNumber("-2.5e3", target(kFloat)).value, -2'500);
    EXPECT_EQ(readNumber("7", target(kFloat)).value, 7);
    EXPECT_EQ(readNumber("-2147483648", target(kInteger)).value, -2'147'483'648.0);
    EXPECT_EQ(readNumber("2147483647", target(kInteger)).value, 2'147'483'647.0);
    for (const char* const payload : {"", " ", " 1", "1 ", "1\n", "1,5", "1.5x", "0x1", "+1", "nan", "inf", "-", ".",
                                      "1e", "true", "{\"v\":1}", "\xff"}) {
        EXPECT_EQ(verdictOf(payload, target(kFloat)), Verdict::INVALID) << payload;
        EXPECT_EQ(verdictOf(payload, target(kInteger)), Verdict::INVALID) << payload;
    }
    for (const char* const payload : {"1.0", "1e3", "1."}) {
        EXPECT_EQ(verdictOf(payload, target(kInteger)), Verdict::INVALID) << payload;
    }
    EXPECT_EQ(verdictOf(std::string(5'000, '1'), target(kFloat)), Verdict::INVALID);
    EXPECT_EQ(verdictOf(std::string("1\0", 2), target(kFloat)), Verdict::INVALID);
}

TEST(Payload, OutsideTheTypeIsOutOfRange) {
    for (const char* const payload : {"2147483648", "-2147483649", "99999999999999999999"}) {
        EXPECT_EQ(verdictOf(payload, target(kInteger)), Verdict::OUT_OF_RANGE) << payload;
        EXPECT_EQ(verdictOf(payload, target(kInteger, PayloadForm::JSON)),
                  payload[0] == '9' ? Verdict::INVALID : Verdict::OUT_OF_RANGE)
            << payload;
    }
    for (const char* const payload : {"1e39", "-1e39", "1e400"}) {
        EXPECT_EQ(verdictOf(payload, target(kFloat)), Verdict::OUT_OF_RANGE) << payload;
    }
    EXPECT_EQ(verdictOf("3.4028235e38", target(kFloat)), Verdict::ACCEPTED);
    EXPECT_EQ(verdictOf("1e-60", target(kFloat)), Verdict::ACCEPTED);
}

TEST(Payload, OutsideMinAndMaxIsOutOfRange) {
    FromMqtt command = target(kFloat);
    command.minimum = -1;
    command.maximum = 2;
    EXPECT_EQ(verdictOf("-1", command), Verdict::ACCEPTED);
    EXPECT_EQ(verdictOf("2", command), Verdict::ACCEPTED);
    EXPECT_EQ(verdictOf("-1.001", command), Verdict::OUT_OF_RANGE);
    EXPECT_EQ(verdictOf("2.001", command), Verdict::OUT_OF_RANGE);
}

TEST(Payload, InJsonIsAnObjectWithVOrANumber) {
    const FromMqtt real = target(kFloat, PayloadForm::JSON);
    const FromMqtt whole = target(kInteger, PayloadForm::JSON);
    EXPECT_EQ(readNumber(R"({"v":12.5,"t":"x","n":17})", real).value, 12.5);
    EXPECT_EQ(readNumber(" 3 ", whole).value, 3);
    EXPECT_EQ(readNumber(R"({"v":-3})", whole).value, -3);
    for (const char* const payload : {"", "{}", R"({"v":"1"})", R"({"v":null})", R"({"v":true})", R"({"v":[1]})", "[1]",
                                      "{", R"({"v":1}x)", R"("1")", "nan", R"({"V":1})"}) {
        EXPECT_EQ(verdictOf(payload, real), Verdict::INVALID) << payload;
    }
    EXPECT_EQ(verdictOf(R"({"v":1.0})", whole), Verdict::INVALID);
    EXPECT_EQ(verdictOf(R"({"v":1e39})", real), Verdict::OUT_OF_RANGE);
    EXPECT_EQ(verdictOf(std::string(4'000, '['), real), Verdict::INVALID);
}

}  // namespace com_tesk::mqtt
