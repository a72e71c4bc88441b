#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "tools/PublishCommandLine.h"

namespace com_tesk::test {
namespace {

using Arguments = std::vector<const char*>;

/// Parses the arguments after the tool's own name.
PublishCommandLine parse(Arguments arguments) {
    arguments.insert(arguments.begin(), "cspublish");
    const int count = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    return PublishCommandLine::parse(count, arguments.data());
}

/// Returns what a command line requests, for example "7 @10.1.2.3 A=12.5 B=0".
std::string requested(const Arguments& arguments) {
    const PublishCommandLine commandLine = parse(arguments);
    switch (commandLine.request) {
        case PublishCommandLine::SYNTAX_ERROR:
            return "syntax error";
        case PublishCommandLine::SHOW_VERSION:
            return "version";
        case PublishCommandLine::PUBLISH_VALUES:
            break;
    }
    std::ostringstream text;
    text << commandLine.simulatorId << " @" << commandLine.address;
    for (const PublishCommandLine::NamedValue& value : commandLine.values) {
        text << ' ' << value.name << '=' << value.value;
    }
    return text.str();
}

unsigned int idOf(const char* text) {
    return parse({"-csid", text, "10.1.2.3", "A", "1"}).simulatorId;
}

float valueOf(const char* text) {
    const PublishCommandLine commandLine = parse({"10.1.2.3", "A", text});
    return commandLine.values.size() == 1 ? commandLine.values[0].value : -999.0F;
}

TEST(CommandLine, IsASyntaxErrorWithoutAnAddressAndWholePairs) {
    const char* const none[] = {nullptr};
    EXPECT_EQ(PublishCommandLine::parse(0, none).request, PublishCommandLine::SYNTAX_ERROR);
    const Arguments rows[] = {
        {},
        {"10.1.2.3", "A"},
        {"A", "1"},
        {"10.1.2.3", "A", "1", "B"},
        {"10.1.2.3", "A", "1", "B", "2", "C"},
        {"-csid", "7"},
        {"-csid", "7", "10.1.2.3"},
        {"-csid", "7", "10.1.2.3", "A"},
        {"-csid", "7", "10.1.2.3", "A", "1", "B"},
        {"-csid", "10.1.2.3", "A", "1"},
    };
    for (const Arguments& arguments : rows) {
        EXPECT_EQ(requested(arguments), "syntax error") << testing::PrintToString(arguments);
    }
}

TEST(CommandLine, ShowsTheVersionOnlyForVersionAlone) {
    EXPECT_EQ(requested({"-version"}), "version");
    for (const char* const word : {"", "-", "version", "--version", "-Version", "-version ", "-versio", "-versions",
                                   "-help", "-csid", "10.1.2.3"}) {
        EXPECT_EQ(requested({word}), "syntax error") << word;
    }
    const Arguments rows[] = {{"-version", ""},
                              {"-version", "A"},
                              {"-version", "A", "1"},
                              {"-version", "A", "1", "B"},
                              {"-version", "A", "1", "B", "2"},
                              {"-version", "-version"},
                              {"-version", "-csid", "7", "10.1.2.3", "A", "1"}};
    for (const Arguments& arguments : rows) {
        EXPECT_EQ(requested(arguments), "syntax error") << testing::PrintToString(arguments);
    }
}

TEST(CommandLine, PublishesPairsInTheirOrder) {
    EXPECT_EQ(requested({"10.1.2.3", "A", "12.5"}), "1 @10.1.2.3 A=12.5");
    EXPECT_EQ(requested({"10.1.2.3", "B", "2", "A", "1", "B", "3"}), "1 @10.1.2.3 B=2 A=1 B=3");
    EXPECT_EQ(requested({"-csid", "7", "10.1.2.3", "A", "12.5"}), "7 @10.1.2.3 A=12.5");
    EXPECT_EQ(requested({"-csid", "7", "10.1.2.3", "A", "12.5", "B", "2"}), "7 @10.1.2.3 A=12.5 B=2");
}

TEST(CommandLine, AcceptsAnyAddressAndAnyName) {
    EXPECT_EQ(requested({"no address", "A", "1"}), "1 @no address A=1");
    EXPECT_EQ(requested({"", "A", "1"}), "1 @ A=1");
    const std::string longName(100, 'n');
    EXPECT_EQ(requested({"10.1.2.3", "", "1", longName.c_str(), "2"}), "1 @10.1.2.3 =1 " + longName + "=2");
    EXPECT_EQ(requested({"10.1.2.3", "-version", "2"}), "1 @10.1.2.3 -version=2");
    EXPECT_EQ(requested({"10.1.2.3", "A", "-version"}), "1 @10.1.2.3 A=0");
    EXPECT_EQ(requested({"10.1.2.3", "-csid", "7"}), "1 @10.1.2.3 -csid=7");
    EXPECT_EQ(requested({"10.1.2.3", "A", "-csid"}), "1 @10.1.2.3 A=0");
    EXPECT_EQ(requested({"10.1.2.3", "A", "1", "-csid", "7"}), "1 @10.1.2.3 A=1 -csid=7");
    EXPECT_EQ(requested({"-CSID", "A", "1"}), "1 @-CSID A=1");
    EXPECT_EQ(requested({"-csi", "A", "1"}), "1 @-csi A=1");
    EXPECT_EQ(requested({"-csid7", "A", "1"}), "1 @-csid7 A=1");
}

TEST(CommandLine, AnIdIsDecimalUpToTheFirstOtherCharacter) {
    const std::pair<const char*, unsigned int> rows[] = {
        {"", 0},
        {"x", 0},
        {"-version", 0},
        {"0x10", 0},
        {"010", 10},
        {"12ab", 12},
        {" 12", 12},
        {"+12", 12},
        {"7.9", 7},
        {"32767", 32767},
        {"32768", 32768},
        {"-5", 4294967291U},
        // The low bits of a number that does not fit. A long of 32 bits stops at its highest number.
        {"99999999999", sizeof(long) > 4 ? 1215752191U : 2147483647U},
    };
    for (const auto& [text, id] : rows) {
        EXPECT_EQ(idOf(text), id) << text;
    }
}

TEST(CommandLine, AValueIsAFloatUpToTheFirstOtherCharacter) {
    constexpr float kInfinite = std::numeric_limits<float>::infinity();
    const std::pair<const char*, float> rows[] = {
        {"12.5", 12.5F},
        {"0.1", 0.1F},
        {"16777217", 16777216.0F},
        {"1e-60", 0.0F},
        {"abc", 0.0F},
        {"", 0.0F},
        {"-", 0.0F},
        {"12.5xyz", 12.5F},
        {" 12.5", 12.5F},
        {"1,5", 1.0F},
        {"1e", 1.0F},
        {"0x10", 16.0F},
        {"0x1.8p1", 3.0F},
        {"1e39", kInfinite},
        {"1e999", kInfinite},
        {"-1e999", -kInfinite},
        {"inf", kInfinite},
        {"-0", -0.0F},
        {"0", 0.0F},
    };
    for (const auto& [text, value] : rows) {
        EXPECT_EQ(valueOf(text), value) << text;
        EXPECT_EQ(std::signbit(valueOf(text)), std::signbit(value)) << text;
    }
    EXPECT_TRUE(std::isnan(valueOf("nan")));
}

}  // namespace
}  // namespace com_tesk::test
