// The values of a host in the course of time.

#include "host/scenario/ValueSource.h"

#include <gtest/gtest.h>

namespace com_tesk::scenario {
namespace {

using namespace std::chrono_literals;

constexpr Duration kBefore{-1};

/// Returns the times in ms of the first values, at most `count`.
std::string timesOf(const ValueSource& source, int count) {
    std::string text;
    auto time = source.nextAfter(kBefore);
    for (int i = 0; time && i < count; ++i) {
        text += (text.empty() ? "" : " ") + std::to_string(time->count() / 1'000);
        time = source.nextAfter(*time);
    }
    return text + (time ? " ..." : "");
}

float realAt(const ValueSource& source, Duration time) {
    return source.at(time).value().asReal();
}

TEST(ValueSource, AConstantIsGivenOnce) {
    const ValueSource source{"A", Constant{1.5}};
    EXPECT_EQ(timesOf(source, 5), "0");
    EXPECT_EQ(source.at(0s), HostValue::real(1.5F));
}

TEST(ValueSource, ARampEndsWithItsLastValue) {
    const ValueSource source{"A", Ramp{10, 20, 1s, 4}};
    EXPECT_EQ(timesOf(source, 9), "0 250 500 750 1000");
    EXPECT_EQ(realAt(source, 0s), 10);
    EXPECT_EQ(realAt(source, 250ms), 12.5F);
    EXPECT_EQ(realAt(source, 1s), 20);
    EXPECT_EQ(realAt(source, 5s), 20);
}

TEST(ValueSource, TheLastValueOfARampNeedsNoTick) {
    const ValueSource source{"A", Ramp{0, 1, 800ms, 3}};
    EXPECT_EQ(timesOf(source, 9), "0 333 666 800");
}

TEST(ValueSource, ARepeatedRampBeginsAgain) {
    const ValueSource source{"A", Ramp{0, 1, 1s, 4, true}};
    EXPECT_EQ(timesOf(source, 6), "0 250 500 750 1000 1250 ...");
    EXPECT_EQ(realAt(source, 750ms), 0.75F);
    EXPECT_EQ(realAt(source, 1s), 0);
    EXPECT_EQ(realAt(source, 1250ms), 0.25F);
}

TEST(ValueSource, ASineHasItsPeriod) {
    const ValueSource source{"A", Sine{100, 10, 4s, 2}};
    EXPECT_EQ(timesOf(source, 3), "0 500 1000 ...");
    EXPECT_FLOAT_EQ(realAt(source, 0s), 100);
    EXPECT_FLOAT_EQ(realAt(source, 1s), 110);
    EXPECT_FLOAT_EQ(realAt(source, 3s), 90);
    EXPECT_FLOAT_EQ(realAt(source, 4s), 100);
}

TEST(ValueSource, StepsHaveNoValueBeforeTheFirst) {
    const ValueSource source{"A", Steps{{{1s, 5}, {2s, 7}}}};
    EXPECT_EQ(timesOf(source, 9), "1000 2000");
    EXPECT_EQ(source.at(999ms), std::nullopt);
    EXPECT_EQ(realAt(source, 1s), 5);
    EXPECT_EQ(realAt(source, 1999ms), 5);
    EXPECT_EQ(realAt(source, 9s), 7);
}

TEST(ValueSource, AnIntegerIsTheNearestOne) {
    const ValueSource source{"A", Ramp{0, 10, 1s, 4}, true};
    EXPECT_EQ(source.at(250ms), HostValue::integer(3));
    const ValueSource large{"A", Constant{1e12}, true};
    EXPECT_EQ(large.at(0s), HostValue::integer(2'147'483'647));
}

TEST(ValueSource, OnlyRampsAndSinesAreSampled) {
    EXPECT_TRUE((ValueSource{"A", Ramp{}}).isSampled());
    EXPECT_TRUE((ValueSource{"A", Sine{}}).isSampled());
    EXPECT_FALSE((ValueSource{"A", Steps{}}).isSampled());
    EXPECT_FALSE((ValueSource{"A", Constant{}}).isSampled());
}

TEST(ValueSource, TicksOfAnyRateGoOn) {
    for (const double rate : {0.3, 3.0, 7.0, 50.0, 9'999.0}) {
        const ValueSource source{"A", Sine{0, 1, 1s, rate}};
        Duration time = *source.nextAfter(kBefore);
        for (int i = 0; i < 10'000; ++i) {
            const Duration next = *source.nextAfter(time);
            ASSERT_GT(next, time) << rate << ", " << i;
            time = next;
        }
        EXPECT_NEAR(static_cast<double>(time.count()), 10'000 * 1e6 / rate, 2) << rate;
    }
}

}  // namespace
}  // namespace com_tesk::scenario
