#include "tools/replay/OutputCheck.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/replay/Times.h"
#include "tools/replay/Comparison.h"

namespace com_tesk::replay {
namespace {

using test::ms;
using test::seconds;
using test::us;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

/// Checks with a window of 100 ms, and an end after ten seconds.
class OutputChecks : public ::testing::Test {
  protected:
    void expect(Time time, float value) { check().expect(time, HostValue::real(value)); }
    void publish(Time time, float value) { check().publish(time, HostValue::real(value)); }

    OutputCheck& check() {
        if (current == nullptr) {
            current = checkOf(rule);
        }
        return *current;
    }

    /// Returns "equal", or the first difference.
    std::string result() {
        check().finish(seconds(10));
        const auto& first = check().finding().first;
        return first
                   ? std::to_string(first->time.count() / 1'000) + " expected " + first->expected + " got " + first->got
                   : "equal";
    }

    Rule rule{Mode::STEP, 0, ms(100)};

  private:
    std::unique_ptr<OutputCheck> current;
};

TEST_F(OutputChecks, WithoutValuesIsEqual) {
    EXPECT_EQ(result(), "equal");
}

TEST_F(OutputChecks, AValueAtTheEdgesOfTheWindowIsInTime) {
    expect(seconds(1), 1);
    publish(ms(900), 1);
    expect(seconds(2), 2);
    publish(ms(2'100), 2);
    EXPECT_EQ(result(), "equal");
    EXPECT_EQ(check().finding().compared, 2U);
    EXPECT_EQ(check().finding().latency.count(), 2U);
}

TEST_F(OutputChecks, AValueAfterTheWindowIsLate) {
    expect(seconds(1), 1);
    publish(seconds(1), 1);
    expect(seconds(2), 2);
    publish(ms(2'100) + us(1), 2);
    EXPECT_EQ(result(), "2000 expected 2 got 1");
}

TEST_F(OutputChecks, AValueBeforeTheWindowIsEarly) {
    expect(seconds(1), 1);
    publish(ms(900) - us(1), 1);
    EXPECT_EQ(result(), "899 expected nothing got 1");
}

TEST_F(OutputChecks, ANonPublishingProgramIsFound) {
    expect(seconds(1), 1);
    EXPECT_EQ(result(), "1000 expected 1 got nothing");
    EXPECT_TRUE(std::isinf(check().finding().largestError));
}

TEST_F(OutputChecks, AnOutputThatWasNotRecordedIsFound) {
    publish(seconds(3), 1);
    EXPECT_EQ(result(), "3000 expected nothing got 1");
}

TEST_F(OutputChecks, AShortPulseMustBeThere) {
    for (const float value : {1.0F, 0.0F}) {
        expect(seconds(1), value);
        publish(ms(1'020), value);
    }
    expect(seconds(2), 1);
    expect(seconds(2), 0);
    EXPECT_EQ(result(), "2000 expected 1 got 0");
}

TEST_F(OutputChecks, AnExtraShortPulseIsFound) {
    expect(seconds(1), 0);
    publish(seconds(1), 0);
    publish(seconds(5), 1);
    publish(seconds(5) + ms(1), 0);
    EXPECT_EQ(result(), "5000 expected 0 got 1");
}

TEST_F(OutputChecks, AValueThatIsHeldTooLongIsFound) {
    expect(seconds(1), 1);
    publish(seconds(1), 1);
    expect(seconds(3), 2);
    publish(ms(2'950), 2);
    publish(ms(3'050), 1);
    EXPECT_EQ(result(), "3100 expected 2 got 1");
}

TEST_F(OutputChecks, ValuesWithinTheToleranceAreEqual) {
    rule.tolerance = 0.25;
    expect(seconds(1), 1);
    publish(seconds(1), 1.25F);
    EXPECT_EQ(result(), "equal");
    EXPECT_EQ(check().finding().largestError, 0.25);
}

TEST_F(OutputChecks, AnEqualValueIsNoChange) {
    expect(seconds(1), 1);
    expect(seconds(5), 1);
    publish(seconds(1), 1);
    publish(seconds(8), 1);
    EXPECT_EQ(result(), "equal");
    EXPECT_EQ(check().finding().compared, 1U);
}

TEST_F(OutputChecks, AKnownValueMayBeMissing) {
    check().know(HostValue::real(7));
    EXPECT_EQ(result(), "equal");
}

TEST_F(OutputChecks, AKnownValueMayBeThere) {
    check().know(HostValue::real(7));
    publish(seconds(0), 7);
    expect(seconds(5), 8);
    publish(seconds(5), 8);
    EXPECT_EQ(result(), "equal");
}

TEST_F(OutputChecks, NoNumberEqualsItselfAndNothingElse) {
    EXPECT_EQ(errorOf(HostValue::real(kNan), HostValue::real(kNan)), 0);
    EXPECT_TRUE(std::isinf(errorOf(HostValue::real(kNan), HostValue::real(0))));
    EXPECT_EQ(errorOf(HostValue::real(INFINITY), HostValue::real(INFINITY)), 0);
    EXPECT_EQ(errorOf(HostValue::real(0.0F), HostValue::real(-0.0F)), 0);
    EXPECT_EQ(errorOf(HostValue::integer(-2'147'483'647), HostValue::integer(2'147'483'647)), 4'294'967'294.0);
    EXPECT_TRUE(std::isinf(errorOf(HostValue::integer(1), HostValue::real(1)))) << "the type is part of the value";
}

TEST_F(OutputChecks, LongRunsAreJudgedMeanwhile) {
    for (int i = 0; i < 5'000; ++i) {
        const Time now = i * ms(1);
        expect(now, static_cast<float>(i));
        publish(now + ms(2), static_cast<float>(i == 4'000 ? -1 : i));
        check().advance(now);
    }
    EXPECT_TRUE(check().finding().first.has_value()) << "before the end";
    EXPECT_EQ(result(), "4000 expected 4000 got 3999");
}

TEST_F(OutputChecks, FinalComparesOnlyTheLastValue) {
    rule.mode = Mode::FINAL;
    expect(seconds(1), 1);
    expect(seconds(2), 2);
    publish(seconds(9), 2);
    EXPECT_EQ(result(), "equal");
}

TEST_F(OutputChecks, FinalFindsAnotherLastValue) {
    rule.mode = Mode::FINAL;
    expect(seconds(1), 1);
    publish(seconds(1), 1);
    publish(seconds(2), 3);
    EXPECT_EQ(result(), "10000 expected 1 got 3");
}

TEST_F(OutputChecks, SequenceIgnoresTimes) {
    rule.mode = Mode::SEQUENCE;
    for (const float value : {1.0F, 2.0F, 3.0F}) {
        expect(seconds(1), value);
        publish(seconds(9), value);
        publish(seconds(9), value);
    }
    EXPECT_EQ(result(), "equal");
    EXPECT_EQ(check().finding().compared, 3U);
}

TEST_F(OutputChecks, SequenceFindsAMissingLastValue) {
    rule.mode = Mode::SEQUENCE;
    expect(seconds(1), 1);
    expect(seconds(2), 2);
    publish(seconds(1), 1);
    EXPECT_EQ(result(), "2000 expected 2 got nothing");
}

TEST_F(OutputChecks, SequenceFindsAnExtraValue) {
    rule.mode = Mode::SEQUENCE;
    expect(seconds(1), 1);
    publish(seconds(1), 1);
    publish(seconds(4), 5);
    EXPECT_EQ(result(), "4000 expected nothing got 5");
}

TEST_F(OutputChecks, SequenceFindsAnotherOrder) {
    rule.mode = Mode::SEQUENCE;
    expect(seconds(1), 1);
    expect(seconds(2), 2);
    publish(seconds(1), 2);
    publish(seconds(2), 1);
    EXPECT_EQ(result(), "1000 expected 1 got 2");
}

TEST(Comparison, TheEarliestDifferenceIsShown) {
    Finding found;
    found.note(seconds(5), "1", "2");
    found.note(seconds(3), "3", "4");
    found.note(seconds(4), "5", "6");
    ASSERT_TRUE(found.first.has_value());
    EXPECT_EQ(found.first->time, seconds(3));
    EXPECT_EQ(found.first->got, "4");
}

TEST(Comparison, ShowsALineForEachOutput) {
    Rules rules{{Mode::STEP, 0, ms(100)}, {{"c", {Mode::IGNORE, 0, seconds(0)}}}};
    Comparison comparison(rules);
    comparison.expect("a", seconds(1), HostValue::real(1));
    comparison.publish("a", seconds(1) + ms(4), HostValue::real(1));
    comparison.expect("b", seconds(2), HostValue::integer(2));
    comparison.publish("b", seconds(2), HostValue::integer(5));
    comparison.publish("c", seconds(2), HostValue::integer(5));
    comparison.finish(seconds(10));
    EXPECT_FALSE(comparison.isEqual());
    EXPECT_EQ(comparison.table([](Time time) { return time + seconds(10); }, 2),
              "name  compared  first difference                 largest error  latency p50  p99\n"
              "a     1         none                             0              2 ms         2 ms\n"
              "b     1         12.000 s: expected i:2, got i:5  3              -            -\n"
              "c     -         ignored                          -              -            -\n");
}

}  // namespace
}  // namespace com_tesk::replay
