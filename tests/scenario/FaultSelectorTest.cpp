// When faults act.

#include "host/scenario/FaultSelector.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "host/Scenario.h"

namespace com_tesk::scenario {
namespace {

Occasion sent(Message message, const std::vector<std::string>& names = {}, unsigned connection = 1) {
    Occasion occasion{Trigger::Moment::SEND, connection, message, {}};
    for (const std::string& name : names) {
        occasion.records.push_back({1, name});
    }
    return occasion;
}

/// Returns on which of so many equal occasions the fault acts: "3 6 9".
std::string actsOn(const Trigger& trigger, int count, std::uint64_t seed = 1) {
    FaultSelector selector({{trigger, Withhold{}}}, seed);
    std::string text;
    for (int i = 1; i <= count; ++i) {
        if (!selector.choose(sent(Message::UPDATE, {"A"})).empty()) {
            text += (text.empty() ? "" : " ") + std::to_string(i);
        }
    }
    return text;
}

TEST(FaultSelector, WithoutConditionsEveryOccasionCounts) {
    EXPECT_EQ(actsOn(sending(Message::ANY), 3), "1 2 3");
    EXPECT_EQ(actsOn(sending(Message::UPDATE), 3), "1 2 3");
    EXPECT_EQ(actsOn(sending(Message::VERSION), 3), "");
    EXPECT_EQ(actsOn(receiving(Message::ANY), 3), "");
    EXPECT_EQ(actsOn(accepting(), 3), "");
}

TEST(FaultSelector, NthAndEveryCountTheOccasions) {
    EXPECT_EQ(actsOn(sending(Message::UPDATE).nthTime(2), 6), "2");
    EXPECT_EQ(actsOn(sending(Message::UPDATE).everyNth(3), 9), "3 6 9");
    EXPECT_EQ(actsOn(sending(Message::UPDATE).nthTime(6).everyNth(3), 9), "6");
}

TEST(FaultSelector, OccasionsThatDoNotMatchAreNotCounted) {
    FaultSelector selector({{sending(Message::UPDATE).of("A").nthTime(2).onConnection(2), Withhold{}}}, 1);
    EXPECT_TRUE(selector.choose(sent(Message::UPDATE, {"B"}, 2)).empty());
    EXPECT_TRUE(selector.choose(sent(Message::VERSION, {}, 2)).empty());
    EXPECT_TRUE(selector.choose(sent(Message::UPDATE, {"A"}, 1)).empty());
    EXPECT_TRUE(selector.choose(sent(Message::UPDATE, {"A"}, 2)).empty()) << "the first";
    EXPECT_EQ(selector.choose(sent(Message::UPDATE, {"A"}, 2)).size(), 1U) << "the second";
    EXPECT_TRUE(selector.choose(sent(Message::UPDATE, {"A"}, 2)).empty()) << "the third";
}

TEST(FaultSelector, SelectsTheRecordsOfTheName) {
    FaultSelector selector({{sending(Message::UPDATE).of("A"), Withhold{}}, {sending(Message::UPDATE), Delay{}}}, 1);
    const auto choices = selector.choose(sent(Message::UPDATE, {"B", "A", "C", "A"}));
    ASSERT_EQ(choices.size(), 2U) << "in the order of the scenario";
    EXPECT_EQ(choices[0].selected, (Selected{false, true, false, true}));
    EXPECT_TRUE(std::holds_alternative<Withhold>(*choices[0].action));
    EXPECT_EQ(choices[1].selected, (Selected{true, true, true, true}));
    EXPECT_TRUE(std::holds_alternative<Delay>(*choices[1].action));
}

TEST(FaultSelector, AChanceIsTheSameInEachRunOfASeed) {
    const Trigger trigger = sending(Message::UPDATE).withChance(0.3);
    const std::string first = actsOn(trigger, 200, 7);
    EXPECT_EQ(actsOn(trigger, 200, 7), first);
    EXPECT_NE(actsOn(trigger, 200, 8), first);
    const auto count = static_cast<double>(std::count(first.begin(), first.end(), ' ') + 1);
    EXPECT_NEAR(count, 60, 25);
    EXPECT_EQ(actsOn(sending(Message::UPDATE).withChance(0), 50), "");
}

TEST(FaultSelector, RandomBytesAreThoseOfTheSeed) {
    FaultSelector one({}, 7);
    FaultSelector same({}, 7);
    FaultSelector other({}, 8);
    const Bytes bytes = one.randomBytes(64);
    EXPECT_EQ(bytes.size(), 64U);
    EXPECT_EQ(same.randomBytes(64), bytes);
    EXPECT_NE(other.randomBytes(64), bytes);
    EXPECT_NE(one.randomBytes(64), bytes);
}

}  // namespace
}  // namespace com_tesk::scenario
