#include "tests/model/Shrinking.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <stdexcept>

#include "tests/model/RandomLife.h"
#include "tests/support/Seed.h"

namespace com_tesk::test {
namespace {

TEST(Shrinking, FindsTheTwoStepsThatMatter) {
    Life life = lifeFrom("engine 7 2\n");
    for (int i = 0; i < 100; ++i) {
        const Life part = lifeFrom(i == 30   ? "registerInputs B,1,0 A,1,3"
                                   : i == 71 ? "unregisterInputs X A Y"
                                             : "open\nconnect\npublish 0 Q,1,5");
        life.steps.insert(life.steps.end(), part.steps.begin(), part.steps.end());
    }
    const auto fails = [](const Life& candidate) {
        const std::string text = textOf(candidate);
        const std::size_t registered = text.find(" A,1,3");
        return registered != std::string::npos && text.find(" A", registered + 1) != std::string::npos;
    };
    EXPECT_EQ(textOf(shrunk(life, fails, std::chrono::seconds(60))),
              "engine 7 2\nregisterInputs A,1,3\nunregisterInputs A\n");
}

TEST(Shrinking, GoesIntoWhatHappensInsideACallback) {
    const Life life = lifeFrom("during 3 0 publish 0 A,1,1 ; registerOutputs B,1 C,1 ; end\nend\n");
    const auto fails = [](const Life& candidate) { return textOf(candidate).find("C,1") != std::string::npos; };
    EXPECT_EQ(textOf(shrunk(life, fails, std::chrono::seconds(60))), "engine 1 0\nduring 3 0 registerOutputs C,1\n");
}

TEST(Shrinking, EndsWhenItsTimeIsOver) {
    Life life;
    life.steps.resize(1000);
    int tries = 0;
    const auto fails = [&tries](const Life&) { return ++tries >= 0; };
    EXPECT_EQ(shrunk(life, fails, std::chrono::milliseconds(0)).steps.size(), 1000U);
    EXPECT_EQ(tries, 0);
}

TEST(StepText, IsReadBackAsItWas) {
    std::mt19937_64 random(newSeed());
    const Life life = randomLife(random, 2000, {});
    const std::string text = textOf(life);
    EXPECT_EQ(textOf(lifeFrom(text)), text);
}

TEST(StepText, WritesNamesOfAnyBytes) {
    const Life life = lifeFrom("registerInputs '',1,2 A%00%2C%25%20B,2,3\nbody 00FF2C\n");
    ASSERT_EQ(life.steps.size(), 2U);
    EXPECT_EQ(life.steps[0].records[0].name, "");
    EXPECT_EQ(life.steps[0].records[1].name, std::string("A\0,% B", 6));
    EXPECT_EQ(life.steps[0].records[1].values[1], 3U);
    EXPECT_EQ(life.steps[1].records[0].name, std::string("\0\xFF,", 3));
    EXPECT_EQ(textOf(life), "engine 1 0\nregisterInputs '',1,2 A%00%2C%25%20B,2,3\nbody 00FF2C\n");
}

// Shrinking leaves such steps.
TEST(StepText, ReadsAnEventWithNothingInside) {
    const std::string text = "engine 1 0\nduring 0 1\nmeanwhile 4 0\nmeanwhile 5 0 wait 4 2 ; forceClose\nend\n";
    const Life life = lifeFrom(text);
    ASSERT_EQ(life.steps.size(), 4U);
    EXPECT_TRUE(life.steps[0].inside.empty());
    EXPECT_EQ(life.steps[2].inside.size(), 2U);
    EXPECT_EQ(textOf(life), text);
}

TEST(StepText, OfUnknownStepsIsRefused) {
    EXPECT_THROW(lifeFrom("registerInput A,1,1"), std::invalid_argument);
    EXPECT_THROW(lifeFrom("registerInputs A,1"), std::invalid_argument);
    EXPECT_THROW(lifeFrom("publish"), std::invalid_argument);
    EXPECT_THROW(lifeFrom("open 3"), std::invalid_argument);
}

}  // namespace
}  // namespace com_tesk::test
