#include "tools/replay/Timeline.h"

#include <gtest/gtest.h>

#include "tests/replay/Times.h"

namespace com_tesk::replay {
namespace {

using test::ms;
using test::seconds;

TEST(Timeline, CountsFromTheBeginning) {
    Timeline timeline(seconds(10), 1, std::nullopt);
    EXPECT_EQ(timeline.playTimeOf(seconds(12)), seconds(2));
    EXPECT_EQ(timeline.recordedTimeOf(seconds(2)), seconds(12));
}

TEST(Timeline, TheRateAppliesToRealTime) {
    const Timeline timeline(seconds(0), 10, std::nullopt);
    EXPECT_EQ(timeline.realTimeOf(seconds(2)), ms(200));
    EXPECT_EQ(timeline.playTimeAfter(ms(200)), seconds(2));
}

TEST(Timeline, LongGapsAreShortened) {
    Timeline timeline(seconds(0), 1, seconds(5));
    EXPECT_EQ(timeline.playTimeOf(seconds(5)), seconds(5)) << "as long as permitted";
    EXPECT_EQ(timeline.playTimeOf(seconds(105)), seconds(10));
    EXPECT_EQ(timeline.playTimeOf(seconds(106)), seconds(11));
    EXPECT_EQ(timeline.recordedTimeOf(seconds(4)), seconds(4));
    EXPECT_EQ(timeline.recordedTimeOf(seconds(9)), seconds(9)) << "within the gap";
    EXPECT_EQ(timeline.recordedTimeOf(seconds(10)), seconds(105));
    EXPECT_EQ(timeline.recordedTimeOf(seconds(12)), seconds(107));
}

TEST(Timeline, TheLargestTimeAtTheSmallestRateDoesNotOverflow) {
    const Timeline timeline(seconds(0), 0.001, std::nullopt);
    EXPECT_GT(timeline.realTimeOf(seconds(1'000'000'000)), seconds(0));
}

}  // namespace
}  // namespace com_tesk::replay
