#include "tools/replay/Rules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/replay/Times.h"

namespace com_tesk::replay {
namespace {

using test::ms;
using test::seconds;

/// Returns the flaws of the text, each as "line:column: text".
std::vector<std::string> flawsOf(const std::string& text) {
    std::vector<scenario::Flaw> flaws;
    readRules(text, {}, flaws);
    std::vector<std::string> texts;
    texts.reserve(flaws.size());
    for (const scenario::Flaw& flaw : flaws) {
        texts.push_back(std::to_string(flaw.line) + ':' + std::to_string(flaw.column) + ": " + flaw.text);
    }
    return texts;
}

TEST(Rules, WhatARuleDoesNotSayIsTheFallback) {
    std::vector<scenario::Flaw> flaws;
    const Rules rules =
        readRules("outputs:\n  a: {mode: step, window: 1s}\n  b: {tolerance: 0.5}\n", {Mode::STEP, 2, ms(200)}, flaws);
    EXPECT_TRUE(flaws.empty());
    EXPECT_EQ(rules.of("a").window, seconds(1));
    EXPECT_EQ(rules.of("a").tolerance, 2);
    EXPECT_EQ(rules.of("b").tolerance, 0.5);
    EXPECT_EQ(rules.of("b").window, ms(200));
    EXPECT_EQ(rules.of("other").window, ms(200));
}

TEST(Rules, EveryFlawHasItsPlace) {
    using testing::ElementsAre;
    EXPECT_THAT(flawsOf("rules: 1\n"),
                ElementsAre(R"(1:1: unknown key "rules"; it is one of outputs)", "1:1: the rules have outputs"));
    EXPECT_THAT(flawsOf("outputs: [a]\n"), ElementsAre("1:10: outputs is a map of names"));
    EXPECT_THAT(flawsOf("outputs:\n  a: {mode: finale}\n  b: 3\n"),
                ElementsAre(R"(2:13: "finale" is no mode; did you mean "final"?)",
                            "3:6: expected a map with the keys mode, tolerance, window"));
    EXPECT_THAT(flawsOf("outputs:\n  a: {mode: final, window: 1s}\n"),
                ElementsAre("2:28: only the mode step has a window"));
    EXPECT_THAT(flawsOf("outputs:\n  a: {tolerance: .inf}\n"), ElementsAre(testing::StartsWith("2:18: ")));
    EXPECT_THAT(flawsOf("outputs: {a: {}"), ElementsAre(testing::HasSubstr("no valid YAML")));
}

TEST(Rules, AFileThatCannotBeReadIsAFlaw) {
    std::vector<scenario::Flaw> flaws;
    readRulesFile("/no/such.yaml", {}, flaws);
    ASSERT_EQ(flaws.size(), 1U);
    EXPECT_EQ(flaws[0].text, "cannot read the file");
}

}  // namespace
}  // namespace com_tesk::replay
