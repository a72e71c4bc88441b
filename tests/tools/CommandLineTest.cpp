#include <gtest/gtest.h>

#include <cmath>
#include <iterator>
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

/// The same for arguments that are separated by blanks.
std::string requestedBy(const std::string& line) {
    std::istringstream stream(line);
    const std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
    Arguments arguments;
    for (const std::string& word : words) {
        arguments.push_back(word.c_str());
    }
    return requested(arguments);
}

TEST(CommandLine, IsASyntaxErrorWithoutAnAddressAndWholePairs) {
    const char* const none[] = {nullptr};
    EXPECT_EQ(PublishCommandLine::parse(0, none).request, PublishCommandLine::SYNTAX_ERROR);
    for (const char* line :
         {"", "10.1.2.3 A", "A 1", "10.1.2.3 A 1 B", "10.1.2.3 A 1 B 2 C", "-csid 7", "-csid 7 10.1.2.3",
          "-csid 7 10.1.2.3 A", "-csid 7 10.1.2.3 A 1 B", "-csid 10.1.2.3 A 1"}) {
        EXPECT_EQ(requestedBy(line), "syntax error") << line;
    }
}

TEST(CommandLine, ShowsTheVersionOnlyForVersionAlone) {
    EXPECT_EQ(requestedBy("-version"), "version");
    for (const char* line :
         {"-", "version", "--version", "-Version", "-versio", "-versions", "-help", "-csid", "10.1.2.3", "-version A",
          "-version A 1", "-version A 1 B", "-version A 1 B 2", "-version -version", "-version -csid 7 10.1.2.3 A 1"}) {
        EXPECT_EQ(requestedBy(line), "syntax error") << line;
    }
    for (const Arguments& arguments : {Arguments{""}, Arguments{"-version "}, Arguments{"-version", ""}}) {
        EXPECT_EQ(requested(arguments), "syntax error") << testing::PrintToString(arguments);
    }
}

TEST(CommandLine, PublishesPairsInTheirOrder) {
    EXPECT_EQ(requestedBy("10.1.2.3 A 12.5"), "1 @10.1.2.3 A=12.5");
    EXPECT_EQ(requestedBy("10.1.2.3 B 2 A 1 B 3"), "1 @10.1.2.3 B=2 A=1 B=3");
    EXPECT_EQ(requestedBy("-csid 7 10.1.2.3 A 12.5"), "7 @10.1.2.3 A=12.5");
    EXPECT_EQ(requestedBy("-csid 7 10.1.2.3 A 12.5 B 2"), "7 @10.1.2.3 A=12.5 B=2");
}

TEST(CommandLine, AcceptsAnyAddressAndAnyName) {
    EXPECT_EQ(requested({"no address", "A", "1"}), "1 @no address A=1");
    EXPECT_EQ(requested({"", "A", "1"}), "1 @ A=1");
    const std::string longName(100, 'n');
    EXPECT_EQ(requested({"10.1.2.3", "", "1", longName.c_str(), "2"}), "1 @10.1.2.3 =1 " + longName + "=2");
    EXPECT_EQ(requestedBy("10.1.2.3 -version 2"), "1 @10.1.2.3 -version=2");
    EXPECT_EQ(requestedBy("10.1.2.3 A -version"), "1 @10.1.2.3 A=0");
    EXPECT_EQ(requestedBy("10.1.2.3 -csid 7"), "1 @10.1.2.3 -csid=7");
    EXPECT_EQ(requestedBy("10.1.2.3 A -csid"), "1 @10.1.2.3 A=0");
    EXPECT_EQ(requestedBy("10.1.2.3 A 1 -csid 7"), "1 @10.1.2.3 A=1 -csid=7");
    for (const std::string address : {"-CSID", "-csi", "-csid7"}) {
        EXPECT_EQ(requestedBy(address + " A 1"), "1 @" + address + " A=1");
    }
}

TEST(CommandLine, AnIdIsDecimalUpToTheFirstOtherCharacter) {
    const std::pair<unsigned int, Arguments> rows[] = {
        {0, {"", "x", "-version", "0x10"}},
        {10, {"010"}},
        {12, {"12ab", " 12", "+12"}},
        {7, {"7.9"}},
        {32767, {"32767"}},
        {32768, {"32768"}},
        {4294967291U, {"-5"}},
        // The low bits of a number that does not fit. A long of 32 bits stops at its highest number.
        {sizeof(long) > 4 ? 1215752191U : 2147483647U, {"99999999999"}},
    };
    for (const auto& [id, texts] : rows) {
        for (const char* text : texts) {
            EXPECT_EQ(parse({"-csid", text, "10.1.2.3", "A", "1"}).simulatorId, id) << text;
        }
    }
}

TEST(CommandLine, AValueIsAFloatUpToTheFirstOtherCharacter) {
    constexpr float kInfinite = std::numeric_limits<float>::infinity();
    const std::pair<float, Arguments> rows[] = {
        {12.5F, {"12.5", "12.5xyz", " 12.5"}},
        {0.1F, {"0.1"}},
        {16777216.0F, {"16777217"}},
        {0.0F, {"0", "1e-60", "abc", "", "-"}},
        {-0.0F, {"-0"}},
        {1.0F, {"1,5", "1e"}},
        {16.0F, {"0x10"}},
        {3.0F, {"0x1.8p1"}},
        {kInfinite, {"1e39", "1e999", "inf"}},
        {-kInfinite, {"-1e999"}},
    };
    for (const auto& [value, texts] : rows) {
        for (const char* text : texts) {
            const float parsed = parse({"10.1.2.3", "A", text}).values.at(0).value;
            EXPECT_EQ(parsed, value) << text;
            EXPECT_EQ(std::signbit(parsed), std::signbit(value)) << text;
        }
    }
    EXPECT_TRUE(std::isnan(parse({"10.1.2.3", "A", "nan"}).values.at(0).value));
}

}  // namespace
}  // namespace com_tesk::test
