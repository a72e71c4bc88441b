#include "tools/replay/Distribution.h"

#include <gtest/gtest.h>

namespace com_tesk::replay {
namespace {

using std::chrono::microseconds;

TEST(Distribution, WithoutDurationsEverythingIsZero) {
    const Distribution none;
    EXPECT_EQ(none.count(), 0U);
    EXPECT_EQ(none.max(), microseconds(0));
    EXPECT_EQ(none.percentile(0.5), microseconds(0));
}

TEST(Distribution, ShortDurationsAreExact) {
    Distribution all;
    for (int i = 1; i <= 60; ++i) {
        all.add(microseconds(i));
    }
    EXPECT_EQ(all.percentile(0.5), microseconds(30));
    EXPECT_EQ(all.percentile(1), microseconds(60));
    EXPECT_EQ(all.max(), microseconds(60));
}

TEST(Distribution, LongDurationsAreWithinTwoPercent) {
    for (std::int64_t value = 1; value < 4'000'000'000'000; value = value * 5 / 3 + 1) {
        Distribution all;
        all.add(microseconds(value));
        all.add(microseconds(2 * value));
        const auto median = static_cast<double>(all.percentile(0.5).count());
        EXPECT_NEAR(median, static_cast<double>(value), 0.02 * static_cast<double>(value)) << value;
    }
}

TEST(Distribution, NegativeDurationsComeFirst) {
    Distribution all;
    all.add(microseconds(-1'000));
    all.add(microseconds(-20));
    all.add(microseconds(5));
    EXPECT_NEAR(static_cast<double>(all.percentile(0.33).count()), -1'000, 20);
    EXPECT_EQ(all.percentile(0.66), microseconds(-20));
    EXPECT_EQ(all.max(), microseconds(5));
}

}  // namespace
}  // namespace com_tesk::replay
