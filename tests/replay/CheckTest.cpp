// `csx replay --check`: a correct program, and programs with one fault each.

#include <regex>

#include "tests/replay/ReplayProcess.h"

namespace com_tesk::replay_test {
namespace {

class Check : public Replay {
  protected:
    /// The line of the output in the table.
    std::string lineOf(const std::string& name) const {
        std::smatch match;
        const std::string text = out();
        return std::regex_search(text, match, std::regex("(^|\n)(" + name + " [^\n]*)")) ? match[2].str() : "";
    }
};

TEST_F(Check, AProgramThatBehavesAsRecordedPasses) {
    EXPECT_EQ(follow(dataFile("three-losses.jsonl"), {"--check", "--window", kWide}), 0) << out() << err();
    EXPECT_TRUE(std::regex_search(lineOf("position"), std::regex(R"(^position +10 +none +0 +)"))) << out();
    EXPECT_TRUE(contains(err(), " entries played; lateness p50 ")) << err();
}

TEST_F(Check, OneChangedValueIsFound) {
    EXPECT_EQ(check({"--window", kWide}, "changed"), 1) << err();
    EXPECT_TRUE(contains(lineOf("position"), "s: expected 6, got 6.5  ")) << out();
    EXPECT_TRUE(contains(lineOf("position"), "  0.5  ")) << "the largest error: " << out();
    EXPECT_TRUE(contains(lineOf("sector"), "  none  ")) << out();
}

TEST_F(Check, AChangedValueWithinTheTolerancePasses) {
    EXPECT_EQ(check({"--window", kWide, "--tolerance", "0.5"}, "changed"), 0) << out() << err();
}

TEST_F(Check, OneMissingValueIsFound) {
    EXPECT_EQ(check({"--window", kWide}, "missing"), 1) << err();
    EXPECT_TRUE(contains(lineOf("position"), "0.602 s: expected 6, got 4")) << out();
}

TEST_F(Check, OneExtraValueIsFound) {
    EXPECT_EQ(check({"--window", kWide}, "extra"), 1) << err();
    EXPECT_TRUE(contains(lineOf("position"), ", got 77  ")) << out();
}

TEST_F(Check, OneLateValueIsFound) {
    EXPECT_EQ(check({"--window", "250ms"}, "late"), 1) << err();
    EXPECT_TRUE(contains(lineOf("position"), "0.602 s: expected 6, got 4")) << out();
}

TEST_F(Check, AProgramThatDoesNotRegisterAllOutputsEndsItWithThree) {
    EXPECT_EQ(check({"--patience", "1s"}, "half"), 3) << out();
    EXPECT_TRUE(contains(err(), "the client has not registered within 1 s: output sector")) << err();
}

TEST_F(Check, AProgramThatEndsEarlyEndsItWithFour) {
    EXPECT_EQ(follow(dataFile("three-losses.jsonl"), {"--check"}, "exits"), 4) << out();
    EXPECT_TRUE(contains(err(), "the program has ended before the replay, exit code 3")) << err();
}

TEST_F(Check, RulesSayHowAnOutputIsCompared) {
    const std::string rules = directory.write(
        "rules.yaml", "outputs:\n  position: {mode: final, tolerance: 0.1}\n  sector: {mode: ignore}\n");
    EXPECT_EQ(check({"--rules", rules}, "changed"), 0) << out() << err();
    EXPECT_TRUE(contains(lineOf("sector"), "ignored")) << out();
    EXPECT_TRUE(std::regex_search(lineOf("position"), std::regex("^position +1 +none"))) << out();
}

TEST_F(Check, ASequenceDoesNotDependOnTimes) {
    const std::string rules =
        directory.write("rules.yaml", "outputs:\n  position: {mode: sequence}\n  sector: {mode: sequence}\n");
    EXPECT_EQ(check({"--rules", rules, "--window", kWide}, "late"), 0) << out() << err();
}

TEST_F(Check, FlawsOfTheRulesAreAllPrinted) {
    const std::string rules = directory.write("rules.yaml", "outputs:\n  A: {mod: step}\n  B: {tolerance: -1}\n");
    EXPECT_EQ(check({"--rules", rules}, "none"), 2) << out();
    EXPECT_TRUE(contains(err(), rules + ":2:7: unknown key \"mod\"; did you mean \"mode\"?")) << err();
    EXPECT_TRUE(contains(err(), rules + ":3:18: a tolerance is a finite number and not negative")) << err();
}

class PanelCheck : public Check {
  protected:
    /// Presses the panel's button five times a second.
    int checkPanel(const std::string& panel) {
        return run(Arguments{"replay", dataFile("panel.jsonl"), "--as", "host", "--check", "--window", kWide, "--",
                             PRESS_PATH} +
                   test::commandOf(panel));
    }
};

TEST_F(PanelCheck, TheExamplePasses) {
    EXPECT_EQ(checkPanel(PANEL_PATH), 0) << out() << err();
}

TEST_F(PanelCheck, AButtonThatIsNotReleasedIsFound) {
    EXPECT_EQ(checkPanel(FAULTY_PANEL_PATH), 1) << out() << err();
    EXPECT_TRUE(contains(lineOf("button"), "s: expected i:0, got i:1")) << out();
}

}  // namespace
}  // namespace com_tesk::replay_test
