#include "tools/Utc.h"

#include <gtest/gtest.h>

namespace com_tesk::tools {
namespace {

using std::chrono::microseconds;

TEST(UtcTexts, HaveMicroseconds) {
    EXPECT_EQ(utcOf(microseconds(0)), "1970-01-01T00:00:00.000000Z");
    EXPECT_EQ(utcOf(microseconds(1'763'762'645'123'456)), "2025-11-21T22:04:05.123456Z");
    EXPECT_EQ(utcOf(microseconds(951'782'400'000'001)), "2000-02-29T00:00:00.000001Z");
    EXPECT_EQ(utcOf(std::chrono::system_clock::time_point(microseconds(1'763'762'645'123'456))),
              "2025-11-21T22:04:05.123456Z");
}

TEST(UtcTexts, GoOnAfterTheClockOf32Bits) {
    EXPECT_EQ(utcOf(microseconds(2'147'483'648'000'000)), "2038-01-19T03:14:08.000000Z");
    EXPECT_EQ(utcOf(microseconds(253'402'300'799'999'999)), "9999-12-31T23:59:59.999999Z");
    EXPECT_EQ(utcOf(microseconds(-1)), "1969-12-31T23:59:59.999999Z");
}

TEST(UtcTexts, AreReadAsTheyAreWritten) {
    constexpr microseconds::rep kSecondsOfDay = 86'400;
    constexpr microseconds::rep kDays = 2'932'897;  // 1970 to 9999
    for (microseconds::rep day = 0; day < kDays; day += 29) {
        const microseconds time((day * kSecondsOfDay + day % kSecondsOfDay) * 1'000'000 + day % 1'000'000);
        ASSERT_EQ(timeOfUtc(utcOf(time)), time) << utcOf(time);
    }
}

TEST(UtcTexts, MayHaveAnyNumberOfDecimals) {
    EXPECT_EQ(timeOfUtc("1970-01-02T00:00:01Z"), microseconds(86'401'000'000));
    EXPECT_EQ(timeOfUtc("1970-01-01T00:00:01.5Z"), microseconds(1'500'000));
    EXPECT_EQ(timeOfUtc("1970-01-01T00:00:01.12345678901234Z"), microseconds(1'123'456));
}

TEST(UtcTexts, ThatAreNoTimesAreRefused) {
    for (const char* const text : {"",
                                   "Z",
                                   "2026-11-21",
                                   "2026-11-21T22:04:05",
                                   "2026-11-21 22:04:05Z",
                                   "2026-11-21T22:04:05.Z",
                                   "2026-11-21T22:04:05.12",
                                   "2026-11-21T22:04:05.1x3Z",
                                   "2026-11-21T22:04:05Zx",
                                   "1969-12-31T23:59:59Z",
                                   "2026-00-21T22:04:05Z",
                                   "2026-13-21T22:04:05Z",
                                   "2026-11-00T22:04:05Z",
                                   "2026-11-31T22:04:05Z",
                                   "2025-02-29T22:04:05Z",
                                   "1900-02-29T22:04:05Z",
                                   "2100-02-29T22:04:05Z",
                                   "2026-11-21T24:04:05Z",
                                   "2026-11-21T22:60:05Z",
                                   "2026-11-21T22:04:60Z",
                                   "+026-11-21T22:04:05Z",
                                   "2026-11-21T-2:04:05Z"}) {
        EXPECT_EQ(timeOfUtc(text), std::nullopt) << text;
    }
}

}  // namespace
}  // namespace com_tesk::tools
