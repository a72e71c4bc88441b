// What pictures keep of many values.

#include "tools/recording_tools/Series.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace com_tesk::recording {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Points = std::vector<Envelope::Point>;

TEST(MedianIntervalOf, IsAtMostAnEighthTooLarge) {
    for (const Time::rep interval :
         {0LL, 1LL, 15LL, 16LL, 17LL, 999LL, 20'000LL, 1'048'575LL, 1'000'000'000'000'000LL}) {
        MedianInterval median;
        EXPECT_EQ(median.median(), std::nullopt);
        for (int i = 0; i < 4; ++i) {
            median.add(Time(interval * i));
        }
        ASSERT_TRUE(median.median().has_value()) << interval;
        EXPECT_GE(median.median()->count(), interval);
        EXPECT_LE(median.median()->count(), interval + interval / 8) << interval;
    }
}

TEST(MedianIntervalOf, AFewLongGapsDoNotCount) {
    MedianInterval median;
    Time time{};
    for (int i = 0; i < 100; ++i) {
        time += i % 10 == 0 ? Time(seconds(60)) : Time(milliseconds(20));
        median.add(time);
    }
    EXPECT_GE(*median.median(), milliseconds(20));
    EXPECT_LE(*median.median(), milliseconds(23));
}

TEST(SpansOf, CloseOnesBecomeOne) {
    Spans spans(milliseconds(10));
    spans.add(milliseconds(0), milliseconds(50));
    spans.add(milliseconds(59), milliseconds(70));
    spans.add(milliseconds(60), milliseconds(65));
    spans.add(milliseconds(80), milliseconds(90));
    const std::vector<Spans::Span> expected{{milliseconds(0), milliseconds(70)}, {milliseconds(80), milliseconds(90)}};
    EXPECT_EQ(spans.all(), expected);
}

TEST(EnvelopeOf, KeepsTheEndsAndExtremesOfEachPart) {
    Envelope envelope(milliseconds(10));
    const Points values{{milliseconds(0), 5}, {milliseconds(1), 9}, {milliseconds(2), 6}, {milliseconds(3), -1},
                        {milliseconds(4), 0}, {milliseconds(9), 4}, {milliseconds(25), 7}};
    for (const auto& [time, value] : values) {
        envelope.add(time, value);
    }
    const Points expected{
        {milliseconds(0), 5}, {milliseconds(1), 9}, {milliseconds(3), -1}, {milliseconds(9), 4}, {milliseconds(25), 7}};
    EXPECT_EQ(envelope.points(), expected);
}

TEST(EnvelopeOf, AMillionValuesBecomeAFewThousandPoints) {
    constexpr int kValues = 1'000'000;
    Envelope envelope{Time(kValues / 1000 + 1)};
    for (int i = 0; i < kValues; ++i) {
        envelope.add(Time(i), i == kValues / 2 ? 1e6 : i % 7);
    }
    const Points points = envelope.points();
    EXPECT_LE(points.size(), 4000U);
    EXPECT_TRUE(std::any_of(points.begin(), points.end(), [](const auto& point) { return point.second == 1e6; }));
}

}  // namespace
}  // namespace com_tesk::recording
