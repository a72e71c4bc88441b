#include "tools/csmqtt/Commands.h"

#include <gtest/gtest.h>

namespace com_tesk::mqtt {

namespace {

Config config() {
    Config result;
    result.base = "b";
    result.fromMqtt.resize(2);
    result.fromMqtt[0].name = "x";
    result.fromMqtt[1].name = "a/b";
    result.fromMqtt[1].type = NumberType::INTEGER;
    return result;
}

}  // namespace

class CommandsTest : public testing::Test {
  protected:
    /// Handles a message. Returns what was set: "1=2", or "" when nothing was.
    std::string setBy(const std::string& topic, const std::string& payload, bool isRetained = false) {
        set.clear();
        EXPECT_TRUE(commands.handle({topic, payload, isRetained, {}}));
        return set;
    }
    Counts counts() const {
        Counts result;
        commands.addCounts(result);
        return result;
    }

    const Config bridge = config();
    service::Log log{-1, service::Log::Form::NAMES};
    std::string set;
    Commands commands{bridge, log, [this](std::size_t index, double value) {
                          set += std::to_string(index) + '=' + numberText(value, NumberType::FLOAT);
                      }};
};

TEST_F(CommandsTest, SetTheValueOfTheName) {
    EXPECT_EQ(commands.filter(), "b/set/+");
    EXPECT_EQ(setBy("b/set/x", "1.5"), "0=1.5");
    EXPECT_EQ(setBy("b/set/a%2Fb", "2"), "1=2");
    EXPECT_EQ(setBy("b/set/a%2fb", "3"), "1=3");
    EXPECT_EQ(counts().accepted, 3U);
    EXPECT_EQ(commands.snapshot()[1].value, 3);
    EXPECT_EQ(commands.snapshot()[1].accepted, 2U);
}

TEST_F(CommandsTest, AreIgnoredAndCountedByReason) {
    EXPECT_EQ(setBy("b/set/x", "1", true), "");
    EXPECT_EQ(setBy("b/set/x", "one"), "");
    EXPECT_EQ(setBy("b/set/a%2Fb", "1e3"), "");
    EXPECT_EQ(setBy("b/set/a%2Fb", "9999999999"), "");
    EXPECT_EQ(setBy("b/set/y", "1"), "");
    EXPECT_EQ(setBy("b/set/%", "1"), "");
    EXPECT_EQ(setBy("b/set/", "1"), "");
    EXPECT_EQ(counts().ignoredRetained, 1U);
    EXPECT_EQ(counts().ignoredInvalid, 2U);
    EXPECT_EQ(counts().ignoredRange, 1U);
    EXPECT_EQ(counts().ignoredUnknown, 3U);
    EXPECT_EQ(counts().ignored, 7U);
    EXPECT_EQ(commands.snapshot()[0].refused, 2U);
}

TEST_F(CommandsTest, AreOnlyMessagesBelowSet) {
    EXPECT_FALSE(commands.handle({"b/v/x", "1", false, {}}));
    EXPECT_FALSE(commands.handle({"b/set", "1", false, {}}));
    EXPECT_FALSE(commands.handle({"b/$state", "online", false, {}}));
}

}  // namespace com_tesk::mqtt
