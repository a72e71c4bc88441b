#include <gtest/gtest.h>

#include <limits>

#include "tools/csx/Condition.h"
#include "tools/csx/Texts.h"

namespace com_tesk::csx {
namespace {

/// True when the condition holds for a value as `put` reads it.
bool holds(const std::string& condition, const std::string& value) {
    std::string flaw;
    const auto parsed = conditionOf(condition, flaw);
    EXPECT_TRUE(parsed) << condition << ": " << flaw;
    return parsed && parsed->holdsFor(*numberOf(value));
}

/// Returns for which of -1, 1, 2, 3 and 9 the condition holds.
std::string valuesOf(const std::string& condition) {
    std::string values;
    for (const char* const value : {"-1", "1", "2", "3", "9"}) {
        const bool isReal = holds(condition, value);
        EXPECT_EQ(holds(condition, std::string("i:") + value), isReal) << condition << ' ' << value;
        values += isReal ? std::string(values.empty() ? "" : " ") + value : "";
    }
    return values;
}

std::string conditionError(std::string_view text) {
    std::string flaw;
    const auto condition = conditionOf(text, flaw);
    EXPECT_EQ(condition.has_value(), flaw.empty()) << text;
    return flaw;
}

TEST(Conditions, CompareWithEachOperator) {
    EXPECT_EQ(valuesOf("A==2"), "2");
    EXPECT_EQ(valuesOf("A!=2"), "-1 1 3 9");
    EXPECT_EQ(valuesOf("A<2"), "-1 1");
    EXPECT_EQ(valuesOf("A<=2"), "-1 1 2");
    EXPECT_EQ(valuesOf("A>2"), "3 9");
    EXPECT_EQ(valuesOf("A>=2"), "2 3 9");
    EXPECT_EQ(valuesOf("A~2\u00B11"), "1 2 3");
    EXPECT_EQ(valuesOf("A~2+-1"), "1 2 3");
    EXPECT_EQ(valuesOf("A~-1+-0"), "-1");
    EXPECT_EQ(valuesOf("A==i:2"), "2");
    EXPECT_EQ(valuesOf("A>=+2"), "2 3 9");
    EXPECT_EQ(valuesOf("A<-0.5"), "-1");
}

TEST(Conditions, EndTheNameAtTheFirstOperator) {
    std::string flaw;
    const auto parsed = conditionOf("a b/c>=1e3", flaw);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->name, "a b/c");
    EXPECT_EQ(parsed->bound, 1000.0);
    EXPECT_EQ(parsed->comparison, Condition::Operator::GREATER_OR_EQUAL);
    EXPECT_EQ(parsed->text, "a b/c>=1e3");
}

TEST(Conditions, CompareFloatsWithTheNearestFloat) {
    EXPECT_TRUE(holds("A==0.1", "0.1"));
    EXPECT_FALSE(holds("A!=0.1", "0.1"));
    EXPECT_TRUE(holds("A>=0.1", "0.1"));
    EXPECT_TRUE(holds("A<=0.1", "0.1"));
    EXPECT_FALSE(holds("A>0.1", "0.1"));
    EXPECT_FALSE(holds("A<0.1", "0.1"));
    EXPECT_TRUE(holds("A>=0.7", "0.7"));
    EXPECT_FALSE(holds("A<0.7", "0.7"));
}

TEST(Conditions, CompareIntegersExactly) {
    EXPECT_TRUE(holds("A==16777217", "i:16777217"));
    EXPECT_FALSE(holds("A==16777217", "i:16777216"));
    EXPECT_FALSE(holds("A==2.5", "i:2"));
    EXPECT_TRUE(holds("A>2147483646", "i:2147483647"));
    EXPECT_TRUE(holds("A<2147483648", "i:2147483647"));
}

TEST(Conditions, NearABoundAnErrorOfOneRoundingIsPermitted) {
    EXPECT_TRUE(holds("A~1.5+-0.1", "1.6"));
    EXPECT_TRUE(holds("A~1.5+-0.1", "1.4"));
    EXPECT_FALSE(holds("A~1.5+-0.1", "1.6001"));
    EXPECT_FALSE(holds("A~1.5+-0.1", "1.3999"));
    EXPECT_TRUE(holds("A~0.1+-0", "0.1"));
    EXPECT_FALSE(holds("A~0.1+-0", "0.10001"));
}

TEST(Conditions, KnowInfinities) {
    EXPECT_TRUE(holds("A==inf", "inf"));
    EXPECT_FALSE(holds("A==inf", "3.4028235e38"));
    EXPECT_TRUE(holds("A<inf", "3.4028235e38"));
    EXPECT_TRUE(holds("A>-inf", "-3.4028235e38"));
    EXPECT_TRUE(holds("A~inf+-1", "inf"));
    EXPECT_FALSE(holds("A~inf+-1", "-inf"));
    EXPECT_FALSE(holds("A~inf+-1", "1"));
    EXPECT_FALSE(holds("A~1+-1", "inf"));
}

TEST(Conditions, HoldForNoNumberOnlyWhenUnequal) {
    EXPECT_TRUE(holds("A!=1", "nan"));
    for (const char* const condition : {"A==1", "A<1", "A<=1", "A>1", "A>=1", "A~1+-1", "A~inf+-1"}) {
        EXPECT_FALSE(holds(condition, "nan")) << condition;
    }
}

TEST(Conditions, OfOtherTextsAreRefusedWithTheReason) {
    const std::string none = "no condition, such as 'altitude>=100': ";
    for (const std::string text : {"A", "A=1", "A!1", "A=>1", "A=~1"}) {
        EXPECT_EQ(conditionError(text), none + text);
    }
    EXPECT_EQ(conditionError(""), none + "\"\"");
    EXPECT_EQ(conditionError(">1"), "a name is empty");
    EXPECT_EQ(conditionError(std::string(32, 'n') + ">1"), "a name has at most 31 bytes: " + std::string(32, 'n'));
    const std::string number = "no number after the comparison: ";
    for (const std::string text : {"A>", "A>abc", "A==nan", "A===1", "A<>1", "A>1,5", "A>0x1", "A>+-1", "A~+-1"}) {
        EXPECT_EQ(conditionError(text), number + text);
    }
    EXPECT_EQ(conditionError("A> 1"), number + "\"A> 1\"");
    const std::string tolerance = "no tolerance, such as 'level~1.5+-0.1': ";
    for (const std::string text : {"A~1", "A~1+-", "A~1+--1", "A~1+-inf", "A~1+-x", "A~1+0.1"}) {
        EXPECT_EQ(conditionError(text), tolerance + text);
    }
}

}  // namespace
}  // namespace com_tesk::csx
