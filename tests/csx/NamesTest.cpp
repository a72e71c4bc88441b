#include <gtest/gtest.h>

#include "tools/csx/Texts.h"

namespace com_tesk::csx {
namespace {

using namespace std::string_literals;

TEST(Names, HaveOneToThirtyOneBytes) {
    EXPECT_EQ(nameError("A"), "");
    EXPECT_EQ(nameError(std::string(31, 'n')), "");
    EXPECT_EQ(nameError("a b\"\xFF\n"), "");
    EXPECT_EQ(nameError(""), "a name is empty");
    EXPECT_EQ(nameError(std::string(32, 'n')), "a name has at most 31 bytes: " + std::string(32, 'n'));
    EXPECT_EQ(nameError("A\0B"s), "a name has a zero byte: \"A\\x00B\"");
}

TEST(Names, AreQuotedWhenTheyAreNotPlain) {
    EXPECT_EQ(shownName("engine/rpm[1]"), "engine/rpm[1]");
    EXPECT_EQ(shownName(""), "\"\"");
    EXPECT_EQ(shownName("a b"), "\"a b\"");
    EXPECT_EQ(shownName("a\"b"), "\"a\\x22b\"");
    EXPECT_EQ(shownName("a\\b"), "\"a\\x5cb\"");
    EXPECT_EQ(shownName("a\nb\x7F\xFF"), "\"a\\x0ab\\x7f\\xff\"");
    EXPECT_EQ(shownName("~!"), "~!");
}

TEST(Names, ArePrintableOnRequest) {
    EXPECT_EQ(printable("Host 2.1 \"x\""), "Host 2.1 \"x\"");
    EXPECT_EQ(printable("a\x1B[0m\n"), "a\\x1b[0m\\x0a");
}

TEST(Names, AreHexadecimalOnRequest) {
    EXPECT_EQ(hexOf(""), "");
    EXPECT_EQ(hexOf("\x00\x0F\xF0\xFF"s), "000ff0ff");
}

TEST(Utf8, IsValidAtEachEdge) {
    for (const std::string& text :
         {""s, "\0"s, "\x7F"s, "\xC2\x80"s, "\xDF\xBF"s, "\xE0\xA0\x80"s, "\xED\x9F\xBF"s, "\xEE\x80\x80"s,
          "\xEF\xBF\xBF"s, "\xF0\x90\x80\x80"s, "\xF4\x8F\xBF\xBF"s, "a\xC3\xA4z"s, "\xC3\xA4\xE2\x82\xAC"s}) {
        EXPECT_TRUE(isUtf8(text)) << hexOf(text);
    }
}

TEST(Utf8, IsInvalidBeyondEachEdge) {
    for (const std::string& text : {"\x80"s,
                                    "\xBF"s,
                                    "\xC0\x80"s,
                                    "\xC1\xBF"s,
                                    "\xC2"s,
                                    "\xC2\x7F"s,
                                    "\xC2\xC0"s,
                                    "\xDF"s,
                                    "\xE0\x9F\xBF"s,
                                    "\xE0\xA0"s,
                                    "\xE0\xA0\x7F"s,
                                    "\xE0\xA0\xC0"s,
                                    "\xED\xA0\x80"s,
                                    "\xED\xBF\xBF"s,
                                    "\xEF\xBF"s,
                                    "\xF0\x8F\xBF\xBF"s,
                                    "\xF0\x90\x80"s,
                                    "\xF0\x90\x80\x7F"s,
                                    "\xF0\x90\xC0\x80"s,
                                    "\xF4\x90\x80\x80"s,
                                    "\xF5\x80\x80\x80"s,
                                    "\xF8\x88\x80\x80\x80"s,
                                    "\xFE"s,
                                    "\xFF"s,
                                    "a\xC3"s,
                                    "\xC3\xA4\x80"s}) {
        EXPECT_FALSE(isUtf8(text)) << hexOf(text);
    }
}

}  // namespace
}  // namespace com_tesk::csx
