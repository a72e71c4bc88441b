#include <gtest/gtest.h>

#include <cmath>

#include "tools/csx/Assignment.h"
#include "tools/csx/Texts.h"

namespace com_tesk::csx {
namespace {

/// Returns the reason why the text is refused.
std::string assignmentError(std::string_view text) {
    std::string flaw;
    const auto assignment = assignmentOf(text, flaw);
    EXPECT_EQ(assignment.has_value(), flaw.empty()) << text;
    return flaw;
}

TEST(Assignments, AreANameAndAValue) {
    std::string flaw;
    const auto real = assignmentOf("ALT=1.5", flaw);
    ASSERT_TRUE(real);
    EXPECT_EQ(real->name, "ALT");
    EXPECT_EQ(textOf(real->value), "1.5");
    EXPECT_FALSE(real->value.isInteger);
    const auto integer = assignmentOf("GEAR=i:-3", flaw);
    ASSERT_TRUE(integer);
    EXPECT_EQ(integer->name, "GEAR");
    EXPECT_EQ(integer->value.integer, -3);
    EXPECT_TRUE(integer->value.isInteger);
    EXPECT_EQ(flaw, "");
}

TEST(Assignments, EndTheNameAtTheLastEqualsSign) {
    std::string flaw;
    const auto assignment = assignmentOf("a=b==2", flaw);
    ASSERT_TRUE(assignment);
    EXPECT_EQ(assignment->name, "a=b=");
    EXPECT_EQ(textOf(assignment->value), "2");
}

TEST(Assignments, MayHaveAnyBytesInTheName) {
    std::string flaw;
    const auto assignment = assignmentOf(" a \"\xFF=nan", flaw);
    ASSERT_TRUE(assignment);
    EXPECT_EQ(assignment->name, " a \"\xFF");
    EXPECT_TRUE(std::isnan(assignment->value.real));
}

TEST(Assignments, OfOtherTextsAreRefusedWithTheReason) {
    EXPECT_EQ(assignmentError("ALT"), "expected NAME=VALUE, got ALT");
    EXPECT_EQ(assignmentError(""), "expected NAME=VALUE, got \"\"");
    EXPECT_EQ(assignmentError("=1"), "a name is empty");
    EXPECT_EQ(assignmentError(std::string(32, 'n') + "=1"), "a name has at most 31 bytes: " + std::string(32, 'n'));
    const std::string expected = "neither a number nor i: and a 32-bit integer: ";
    for (const std::string text : {"A=", "A=abc", "A=1,5", "A=i:1.5", "A=i:2147483648", "A=1e40", "A=0x1"}) {
        EXPECT_EQ(assignmentError(text), expected + text);
    }
    EXPECT_EQ(assignmentError("A= 1"), expected + "\"A= 1\"");
}

}  // namespace
}  // namespace com_tesk::csx
