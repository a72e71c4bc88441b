// What meets expectations, and when. No clock: the test tells the time.

#include "host/scenario/Judge.h"

#include <gtest/gtest.h>

#include <cmath>

#include "host/Scenario.h"

namespace com_tesk::scenario {
namespace {

using namespace std::chrono_literals;
using Kind = HostEvent::Kind;

HostEvent event(Kind kind, std::uint64_t client = 1, const std::string& name = {}) {
    HostEvent event;
    event.kind = kind;
    event.client = client;
    event.name = name;
    return event;
}

HostEvent published(const std::string& name, HostValue value) {
    HostEvent result = event(Kind::PUBLISHED, 1, name);
    result.value = value;
    return result;
}

HostEvent published(const std::string& name, float value) {
    return published(name, HostValue::real(value));
}

/// A judge of one expectation, or of several.
class Judging : public testing::Test {
  protected:
    void expect(const Expectation& expectation) { judge = Judge({expectation}); }

    /// Returns "met" or "failed" and the time in ms, or "open", of an expectation after `finish` at this time.
    std::string outcomeAt(Duration end, std::size_t index = 0) {
        judge.finish(end);
        const Outcome outcome = judge.outcomes().at(index);
        return (outcome.isMet ? "met " : "failed ") + std::to_string(outcome.decidedAt.count() / 1'000);
    }
    std::string reason(std::size_t index = 0) const { return judge.outcomes().at(index).reason; }

    Judge judge{{}};
};

TEST_F(Judging, AnEventMeetsItsExpectation) {
    const std::vector<std::pair<Expectation, Kind>> cases = {
        {connects(), Kind::CONNECTED},       {disconnects(), Kind::LEFT},
        {disconnects(), Kind::LOST},         {asksVersion(), Kind::VERSION_ANSWERED},
        {usesUnknownId(), Kind::UNKNOWN_ID}, {sendsBadRequest(), Kind::REQUEST_IGNORED}};
    for (const auto& [expectation, kind] : cases) {
        expect(expectation);
        judge.note(event(Kind::SIMULATOR_ID_CHANGED), 1s);
        EXPECT_FALSE(judge.isDecided());
        judge.note(event(kind), 2s);
        EXPECT_TRUE(judge.isDecided()) << describe(expectation);
        EXPECT_EQ(outcomeAt(5s), "met 2000") << describe(expectation);
    }
}

TEST_F(Judging, AHostThatDropsIsNoClientThatDisconnects) {
    expect(disconnects());
    judge.note(event(Kind::DROPPED), 1s);
    EXPECT_EQ(outcomeAt(5s), "failed 5000");
    EXPECT_EQ(reason(), "nothing of the kind");
}

TEST_F(Judging, TheTimeEndsAtItsLimit) {
    for (const auto& [when, expected] :
         {std::pair(Duration(2s), "met 2000"), std::pair(Duration(2s + 1us), "failed 2000")}) {
        expect(connects().in(2s));
        EXPECT_EQ(judge.nextDeadline(), Duration(2s));
        if (when == Duration(2s)) {
            judge.note(event(Kind::CONNECTED), when - 1us);
            EXPECT_TRUE(judge.isAllMet());
        } else {
            judge.note(event(Kind::CONNECTED), when);
            EXPECT_EQ(outcomeAt(5s), expected);
        }
    }
}

TEST_F(Judging, AllNamesMustBeRegisteredOnOneConnection) {
    expect(registers({"lamp", "gauge"}, {"switch"}));
    judge.note(event(Kind::INPUT_CONFIRMED, 1, "lamp"), 1s);
    judge.note(event(Kind::OUTPUT_CONFIRMED, 1, "switch"), 1s);
    judge.note(event(Kind::LOST, 1), 2s);
    judge.note(event(Kind::INPUT_CONFIRMED, 2, "gauge"), 3s);
    EXPECT_FALSE(judge.isDecided()) << "the second connection has not registered lamp and switch";
    judge.note(event(Kind::INPUT_CONFIRMED, 2, "switch"), 3s);
    judge.note(event(Kind::INPUT_CONFIRMED, 2, "lamp"), 3s);
    EXPECT_FALSE(judge.isDecided()) << "an input is no output";
    judge.note(event(Kind::OUTPUT_CONFIRMED, 2, "switch"), 4s);
    EXPECT_EQ(outcomeAt(9s), "met 4000");
}

TEST_F(Judging, WithoutNamesAnyRegistrationMeetsIt) {
    expect(registers({}, {}));
    judge.note(event(Kind::INPUT_UNSUBSCRIBED, 1, "A"), 1s);
    EXPECT_FALSE(judge.isDecided());
    judge.note(event(Kind::OUTPUT_CONFIRMED, 1, "A"), 2s);
    EXPECT_EQ(outcomeAt(9s), "met 2000");
}

TEST_F(Judging, AllNamesMustBeUnregistered) {
    expect(unregisters({"lamp"}, {"switch"}));
    judge.note(event(Kind::INPUT_UNSUBSCRIBED, 1, "lamp"), 1s);
    EXPECT_FALSE(judge.isDecided());
    judge.note(event(Kind::OUTPUT_UNREGISTERED, 1, "switch"), 2s);
    EXPECT_EQ(outcomeAt(9s), "met 2000");
}

TEST_F(Judging, APublicationMeetsItWithItsNameAndValue) {
    expect(publishes("switch", 1));
    judge.note(published("lamp", 1), 1s);
    judge.note(published("switch", 0), 2s);
    EXPECT_FALSE(judge.isDecided());
    judge.note(published("switch", HostValue::integer(1)), 3s);
    EXPECT_EQ(outcomeAt(9s), "met 3000") << "an integer is a number, too";

    expect(publishes("switch"));
    judge.note(published("switch", 7), 1s);
    EXPECT_EQ(outcomeAt(9s), "met 1000") << "any value";
}

TEST_F(Judging, TheToleranceIsInclusive) {
    for (const auto& [value, isMet] :
         {std::pair(1.5F, true), std::pair(0.5F, true), std::pair(1.51F, false), std::pair(0.49F, false)}) {
        expect(publishes("A", 1, 0.5));
        judge.note(published("A", value), 1s);
        EXPECT_EQ(judge.isDecided(), isMet) << value;
    }
    expect(publishes("A", std::nan("")));
    judge.note(published("A", std::nanf("")), 1s);
    EXPECT_TRUE(judge.isDecided()) << "what is no number equals itself";
}

TEST_F(Judging, AFailureNamesTheNearestEventAndTheLastTen) {
    expect(publishes("A", 1).in(3s));
    for (int i = 0; i < 12; ++i) {
        judge.note(published("A", static_cast<float>(10 + i)), std::chrono::milliseconds(i));
    }
    judge.advance(3s);
    const Outcome outcome = judge.outcomes().front();
    EXPECT_FALSE(outcome.isMet);
    EXPECT_EQ(outcome.reason, "the nearest was: 0.011 s  client 1 published A = 21 (float, output id 0)");
    ASSERT_EQ(outcome.lastEvents.size(), 10U);
    EXPECT_EQ(outcome.lastEvents.front(), "0.002 s  client 1 published A = 12 (float, output id 0)");
}

TEST_F(Judging, AValueMustStayForItsTime) {
    expect(publishes("A", 1).lastingFor(2s));
    judge.note(published("A", 1), 1s);
    judge.note(published("A", 0), 2s);
    judge.note(published("A", 1), 4s);
    judge.note(published("A", 1), 5s);
    judge.advance(6s - 1us);
    EXPECT_FALSE(judge.isDecided());
    EXPECT_EQ(judge.nextDeadline(), Duration(6s));
    judge.advance(6s);
    EXPECT_EQ(outcomeAt(9s), "met 6000");
}

TEST_F(Judging, ARateIsCountedFromTheFirstPublication) {
    // 80 % and 125 % of 10 Hz for 2 s are 16 and 25.
    for (const auto& [count, expected] : {std::pair(15, "failed 3000"), std::pair(16, "met 3000"),
                                          std::pair(25, "met 3000"), std::pair(26, "failed 3000")}) {
        expect(publishes("A").atRate(10, 2s));
        for (int i = 0; i < count; ++i) {
            judge.note(published("A", static_cast<float>(i)), 1s + std::chrono::milliseconds(i));
        }
        EXPECT_EQ(outcomeAt(9s), expected) << count;
    }
}

TEST_F(Judging, WithoutAFirstPublicationThereIsNoRate) {
    expect(publishes("A").atRate(10, 2s));
    EXPECT_EQ(outcomeAt(9s), "failed 9000");
}

TEST_F(Judging, NeverFailsAtOnceAndIsMetAtTheEnd) {
    expect(never(usesUnknownId()));
    EXPECT_TRUE(judge.isAllMet()) << "nothing waits for it";
    EXPECT_EQ(outcomeAt(9s), "met 9000");

    expect(never(usesUnknownId()));
    judge.note(event(Kind::UNKNOWN_ID), 2s);
    EXPECT_EQ(outcomeAt(9s), "failed 2000");
    EXPECT_EQ(reason(), "it has happened: 2.000 s  client 1  names unknown id 0, record ignored");

    expect(never(usesUnknownId()).in(1s));
    judge.note(event(Kind::UNKNOWN_ID), 2s);
    EXPECT_EQ(outcomeAt(9s), "met 1000") << "after its time";
}

TEST_F(Judging, CountsAreOfTheWholeTime) {
    struct Case {
        ExpectationBuilder expectation;
        unsigned happens;
        const char* outcome;
    };
    const std::vector<Case> cases = {
        {connects().times(2), 1, "failed 9000"},       {connects().times(2), 2, "met 9000"},
        {connects().times(2), 3, "failed 3000"},       {connects().times(0), 0, "met 9000"},
        {connects().times(0), 1, "failed 1000"},       {connects().atLeastTimes(2), 1, "failed 9000"},
        {connects().atLeastTimes(2), 3, "met 2000"},   {connects().atMostTimes(2), 2, "met 9000"},
        {connects().atMostTimes(2), 3, "failed 3000"}, {connects().atMostTimes(2), 0, "met 9000"},
        {connects().times(2).in(4s), 2, "met 4000"},
    };
    for (const Case& one : cases) {
        expect(one.expectation);
        for (unsigned i = 1; i <= one.happens; ++i) {
            judge.note(event(Kind::CONNECTED, i), std::chrono::seconds(i));
        }
        EXPECT_EQ(outcomeAt(9s), one.outcome) << describe(one.expectation) << ", " << one.happens;
    }
}

TEST_F(Judging, AfterBeginsWithTheFirstTimeOfTheAction) {
    expect(connects().afterAction("drop").in(2s));
    judge.note(event(Kind::CONNECTED), 1s);
    EXPECT_FALSE(judge.isDecided()) << "before the action";
    judge.noteAction("restart", 2s);
    judge.note(event(Kind::CONNECTED), 3s);
    EXPECT_FALSE(judge.isDecided()) << "after another action";
    judge.noteAction("drop", 4s);
    judge.noteAction("drop", 5s);
    EXPECT_EQ(judge.nextDeadline(), Duration(6s));
    judge.note(event(Kind::CONNECTED), 5s);
    EXPECT_EQ(outcomeAt(9s), "met 5000");

    expect(connects().afterAction("drop"));
    EXPECT_EQ(outcomeAt(9s), "failed 9000");
    EXPECT_EQ(reason(), "there was no drop");
}

TEST_F(Judging, ThenFollowsOneAfterAnother) {
    expect(connects().thenAlso(asksVersion().in(1s)).thenAlso(disconnects()));
    judge.note(event(Kind::VERSION_ANSWERED), 1s);
    judge.note(event(Kind::CONNECTED), 2s);
    EXPECT_EQ(judge.nextDeadline(), Duration(3s));
    judge.note(event(Kind::LEFT), 2s);
    judge.note(event(Kind::VERSION_ANSWERED), 2s + 500ms);
    judge.note(event(Kind::LEFT), 4s);
    EXPECT_TRUE(judge.isDecided());
    EXPECT_EQ(outcomeAt(9s, 0), "met 2000");
    EXPECT_EQ(outcomeAt(9s, 1), "met 2500");
    EXPECT_EQ(outcomeAt(9s, 2), "met 4000");
}

TEST_F(Judging, WhatFollowsAFailureFails) {
    expect(connects().in(1s).thenAlso(asksVersion()));
    judge.note(event(Kind::VERSION_ANSWERED), 2s);
    EXPECT_EQ(outcomeAt(9s, 1), "failed 9000");
    EXPECT_EQ(reason(1), "the expectation before it was not met");
}

TEST(Describe, IsOneLine) {
    EXPECT_EQ(describe(publishes("switch", 1, 0.5).in(3s).afterAction("drop")),
              "client publishes switch = 1 +- 0.5 within 3 s after drop");
    EXPECT_EQ(describe(publishes("A").atRate(50, 2s)), "client publishes A at 50 Hz for 2 s");
    EXPECT_EQ(describe(registers({"a", "b"}, {"c"})), "client registers inputs a, b outputs c");
    EXPECT_EQ(describe(never(usesUnknownId())), "never: client uses an id that the host has not assigned");
    EXPECT_EQ(describe(connects().times(1)), "client connects exactly 1 time");
    EXPECT_EQ(describe(connects().atLeastTimes(2).in(250ms)), "client connects at least 2 times within 0.25 s");
}

}  // namespace
}  // namespace com_tesk::scenario
