#include "tools/csmqtt/TopicName.h"

#include <gtest/gtest.h>

#include <utility>

namespace com_tesk::mqtt {

namespace {

const std::string kZero("\0", 1);

const std::pair<std::string, std::string> kNames[] = {
    {"altitude", "altitude"},
    {"Engine_1.rpm-2~", "Engine_1.rpm-2~"},
    {"a/b", "a%2Fb"},
    {"+#%$", "%2B%23%25%24"},
    {"two words", "two%20words"},
    {"\n\x7f", "%0A%7F"},
    {kZero, "%00"},
    {"H\xc3\xb6he", "H\xc3\xb6he"},            // A letter with an accent stays.
    {"\xe2\x82\xac", "\xe2\x82\xac"},          // The euro sign.
    {"\xf0\x9f\x98\x80", "\xf0\x9f\x98\x80"},  // Four bytes.
    {"\xff\xc3", "%FF%C3"},                    // No UTF-8.
    {"\xc3(", "%C3("},                         // A continuation is missing.
    {"\xc0\xaf", "%C0%AF"},                    // Longer than necessary.
    {"\xe0\x80\xaf", "%E0%80%AF"},             // The same with three bytes.
    {"\xed\xa0\x80", "%ED%A0%80"},             // A surrogate.
    {"\xc2\x85", "%C2%85"},                    // A control character above U+007F.
    {"\xef\xbf\xbf", "%EF%BF%BF"},             // A noncharacter.
    {"\xef\xb7\x90", "%EF%B7%90"},             // Another.
    {"\xf4\x90\x80\x80", "%F4%90%80%80"},      // Above U+10FFFF.
    {"\xe2\x82", "%E2%82"},                    // Cut off.
};

}  // namespace

TEST(TopicName, EncodesWhatIsNoLevelOfATopic) {
    for (const auto& [name, level] : kNames) {
        EXPECT_EQ(encodedName(name), level);
    }
}

TEST(TopicName, DecodesWhatItHasEncoded) {
    for (const auto& [name, level] : kNames) {
        EXPECT_EQ(decodedName(level), name);
    }
    for (unsigned byte = 0; byte < 256; ++byte) {
        const std::string name(3, static_cast<char>(byte));
        EXPECT_EQ(decodedName(encodedName(name)), name) << byte;
    }
}

TEST(TopicName, DecodesWhatOthersHaveEncoded) {
    EXPECT_EQ(decodedName("%61%2f%2F"), "a//");
    EXPECT_EQ(decodedName(""), "");
}

TEST(TopicName, RefusesAPercentSignWithoutTwoDigits) {
    for (const char* const level : {"%", "a%", "%4", "%4g", "%g4", "%%41", "% 4"}) {
        EXPECT_FALSE(decodedName(level).has_value()) << level;
    }
}

TEST(TopicName, AcceptsABaseThatIsATopic) {
    for (const std::string base : {"b", "hall/3", "H\xc3\xb6he/a b/$x", "a%"}) {
        EXPECT_EQ(baseError(base), "") << base;
    }
    EXPECT_EQ(baseError(std::string(1'000, 'x')), "");
}

TEST(TopicName, RefusesABaseThatIsNoTopic) {
    for (const std::string base : {"", "/a", "a/", "a//b", "a/+", "#", "$SYS", "a\nb", "\xff", "\xc2\x80"}) {
        EXPECT_NE(baseError(base), "") << base;
    }
    EXPECT_NE(baseError(std::string(1'001, 'x')), "");
    EXPECT_NE(baseError(kZero), "");
}

}  // namespace com_tesk::mqtt
