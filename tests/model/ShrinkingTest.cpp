#include "tests/model/Shrinking.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <stdexcept>

#include "tests/model/RandomSequence.h"
#include "tests/support/Seed.h"

namespace com_tesk::test {
namespace {

constexpr std::chrono::seconds kAmpleTime{60};

TEST(Shrinking, KeepsTheTwoStepsThatFail) {
    std::string text = "engine 7 2\n";
    for (int i = 0; i < 100; ++i) {
        text += i == 30   ? "registerInputs B,1,0 A,1,3\n"
                : i == 71 ? "unregisterInputs X A Y\n"
                          : "open\nconnect\npublish 0 Q,1,5\n";
    }
    const auto fails = [](const StepSequence& candidate) {
        const std::string left = textOf(candidate);
        const std::size_t registered = left.find(" A,1,3");
        return registered != std::string::npos && left.find(" A", registered + 1) != std::string::npos;
    };
    const StepSequence shortest = shrunk(sequenceFrom(text), fails, kAmpleTime);
    EXPECT_EQ(textOf(shortest), "engine 1 0\nregisterInputs A,1,3\nunregisterInputs A\n");
}

TEST(Shrinking, DropsStepsAndRecordsInsideACallback) {
    const StepSequence sequence = sequenceFrom("during 3 0 publish 0 A,1,1 ; registerOutputs B,1 C,1 ; end\nend\n");
    const auto fails = [](const StepSequence& candidate) {
        return textOf(candidate).find("registerOutputs C,1") != std::string::npos ||
               textOf(candidate).find("registerOutputs B,1 C,1") != std::string::npos;
    };
    EXPECT_EQ(textOf(shrunk(sequence, fails, kAmpleTime)), "engine 1 0\nduring registerOutputs C,1\n");
}

TEST(Shrinking, EndsWhenTheTimeIsOver) {
    StepSequence sequence;
    sequence.steps.resize(1000);
    int tries = 0;
    const auto fails = [&tries](const StepSequence&) { return ++tries >= 0; };
    EXPECT_EQ(shrunk(sequence, fails, std::chrono::milliseconds(0)).steps.size(), 1000U);
    EXPECT_EQ(tries, 0);
}

TEST(StepText, OfARandomSequenceIsReadBackUnchanged) {
    std::mt19937_64 random(newSeed());
    const std::string text = textOf(randomSequence(random, 2000));
    EXPECT_EQ(textOf(sequenceFrom(text)), text);
}

TEST(StepText, EscapesNamesOfAnyBytes) {
    const std::string text = "engine 1 0\nregisterInputs '',1,2 A%00%2C%25%20B,2,3 %371\nbody %00%FF%2C\n";
    const StepSequence sequence = sequenceFrom(text);
    ASSERT_EQ(sequence.steps.size(), 2U);
    ASSERT_EQ(sequence.steps[0].records.size(), 3U);
    EXPECT_EQ(sequence.steps[0].records[0].name, "");
    EXPECT_EQ(sequence.steps[0].records[1].name, std::string("A\0,% B", 6));
    EXPECT_EQ(sequence.steps[0].records[1].values[1], 3U);
    EXPECT_EQ(sequence.steps[0].records[2].name, "71");
    EXPECT_EQ(sequence.steps[1].records[0].name, std::string("\0\xFF,", 3));
    EXPECT_EQ(textOf(sequence), text);
}

// Shrinking leaves such steps.
TEST(StepText, ReadsAnEventWithNothingInside) {
    const std::string text = "engine 1 0\nduring 0 1\nmeanwhile 4\nmeanwhile 5 wait 4 2 ; forceClose\nend\n";
    const StepSequence sequence = sequenceFrom(text);
    ASSERT_EQ(sequence.steps.size(), 4U);
    EXPECT_TRUE(sequence.steps[0].inside.empty());
    EXPECT_EQ(sequence.steps[2].inside.size(), 2U);
    EXPECT_EQ(textOf(sequence), text);
}

TEST(StepText, RefusesUnknownStepsAndSurplusNumbers) {
    EXPECT_THROW(sequenceFrom("registerInput A,1,1"), std::invalid_argument);
    EXPECT_THROW(sequenceFrom("registerInputs A,x"), std::invalid_argument);
    EXPECT_THROW(sequenceFrom("publish 4294967296"), std::logic_error);
    EXPECT_THROW(sequenceFrom("version 1 2 3 4 5"), std::out_of_range);
    EXPECT_THROW(sequenceFrom("update 1 0 '',1,2,3,4"), std::out_of_range);
}

}  // namespace
}  // namespace com_tesk::test
