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

/// Reads the arguments behind the tool's own name.
PublishCommandLine parse(Arguments arguments) {
    arguments.insert(arguments.begin(), "cspublish");
    const int count = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    return PublishCommandLine::parse(count, arguments.data());
}

PublishCommandLine::Request requestOf(const Arguments& arguments) {
    return parse(arguments).request;
}

/// What a command line asks to publish, for example "7 @10.1.2.3 A=12.5 B=0".
std::string published(const Arguments& arguments) {
    const PublishCommandLine commandLine = parse(arguments);
    if (commandLine.request != PublishCommandLine::PUBLISH_VALUES) {
        return "nothing";
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

TEST(CommandLine, NoArgumentsAtAllAreASyntaxError) {
    const char* const none[] = {nullptr};
    EXPECT_EQ(PublishCommandLine::parse(0, none).request, PublishCommandLine::SYNTAX_ERROR);
}

TEST(CommandLine, TheNameOfTheToolAloneIsASyntaxError) {
    EXPECT_EQ(requestOf({}), PublishCommandLine::SYNTAX_ERROR);
}

TEST(CommandLine, VersionAloneShowsTheVersion) {
    EXPECT_EQ(requestOf({"-version"}), PublishCommandLine::SHOW_VERSION);
}

TEST(CommandLine, AnyOtherSingleArgumentIsASyntaxError) {
    for (const char* const argument : {"", "-", "version", "--version", "-Version", "-version ", "-versio", "-versions",
                                       "-csid", "-help", "10.1.2.3"}) {
        EXPECT_EQ(requestOf({argument}), PublishCommandLine::SYNTAX_ERROR) << argument;
    }
}

TEST(CommandLine, VersionFollowedByAnythingIsASyntaxError) {
    EXPECT_EQ(requestOf({"-version", "A"}), PublishCommandLine::SYNTAX_ERROR);
    EXPECT_EQ(requestOf({"-version", "A", "1"}), PublishCommandLine::SYNTAX_ERROR);
    EXPECT_EQ(requestOf({"-version", "A", "1", "B"}), PublishCommandLine::SYNTAX_ERROR);
    EXPECT_EQ(requestOf({"-version", "A", "1", "B", "2"}), PublishCommandLine::SYNTAX_ERROR);
    EXPECT_EQ(requestOf({"-version", "-csid", "7", "10.1.2.3", "A", "1"}), PublishCommandLine::SYNTAX_ERROR);
    EXPECT_EQ(requestOf({"-version", "-version"}), PublishCommandLine::SYNTAX_ERROR);
    EXPECT_EQ(requestOf({"-version", ""}), PublishCommandLine::SYNTAX_ERROR);
}

TEST(CommandLine, VersionLaterInTheLineIsANameOrAValue) {
    EXPECT_EQ(published({"10.1.2.3", "-version", "2"}), "1 @10.1.2.3 -version=2");
    EXPECT_EQ(published({"10.1.2.3", "A", "-version"}), "1 @10.1.2.3 A=0");
}

TEST(CommandLine, AnAddressAloneOrWithANameOnlyIsASyntaxError) {
    EXPECT_EQ(requestOf({"10.1.2.3"}), PublishCommandLine::SYNTAX_ERROR);
    EXPECT_EQ(requestOf({"10.1.2.3", "A"}), PublishCommandLine::SYNTAX_ERROR);
}

TEST(CommandLine, ANameAndAValueWithoutAnAddressAreASyntaxError) {
    EXPECT_EQ(requestOf({"A", "1"}), PublishCommandLine::SYNTAX_ERROR);
}

TEST(CommandLine, AnAddressAndOnePairUseSimulatorIdOne) {
    EXPECT_EQ(published({"10.1.2.3", "A", "12.5"}), "1 @10.1.2.3 A=12.5");
}

TEST(CommandLine, PairsKeepTheirOrder) {
    EXPECT_EQ(published({"10.1.2.3", "B", "2", "A", "1", "B", "3"}), "1 @10.1.2.3 B=2 A=1 B=3");
}

TEST(CommandLine, ANameWithoutAValueIsASyntaxErrorWhateverItsPosition) {
    EXPECT_EQ(requestOf({"10.1.2.3", "A", "1", "B"}), PublishCommandLine::SYNTAX_ERROR);
    EXPECT_EQ(requestOf({"10.1.2.3", "A", "1", "B", "2", "C"}), PublishCommandLine::SYNTAX_ERROR);
}

TEST(CommandLine, TheAddressIsNotLookedAt) {
    EXPECT_EQ(published({"no address", "A", "1"}), "1 @no address A=1");
    EXPECT_EQ(published({"", "A", "1"}), "1 @ A=1");
}

TEST(CommandLine, NamesAreNotLookedAt) {
    const std::string longName(100, 'n');
    EXPECT_EQ(published({"10.1.2.3", "", "1", longName.c_str(), "2"}), "1 @10.1.2.3 =1 " + longName + "=2");
}

TEST(CommandLine, AnIdMovesAddressAndPairsByTwo) {
    EXPECT_EQ(published({"-csid", "7", "10.1.2.3", "A", "12.5"}), "7 @10.1.2.3 A=12.5");
    EXPECT_EQ(published({"-csid", "7", "10.1.2.3", "A", "12.5", "B", "2"}), "7 @10.1.2.3 A=12.5 B=2");
}

TEST(CommandLine, AnIdNeedsAnAddressAndAWholePair) {
    EXPECT_EQ(requestOf({"-csid"}), PublishCommandLine::SYNTAX_ERROR);
    EXPECT_EQ(requestOf({"-csid", "7"}), PublishCommandLine::SYNTAX_ERROR);
    EXPECT_EQ(requestOf({"-csid", "7", "10.1.2.3"}), PublishCommandLine::SYNTAX_ERROR);
    EXPECT_EQ(requestOf({"-csid", "7", "10.1.2.3", "A"}), PublishCommandLine::SYNTAX_ERROR);
    EXPECT_EQ(requestOf({"-csid", "7", "10.1.2.3", "A", "1", "B"}), PublishCommandLine::SYNTAX_ERROR);
}

TEST(CommandLine, AnIdThatWasForgottenIsASyntaxError) {
    EXPECT_EQ(requestOf({"-csid", "10.1.2.3", "A", "1"}), PublishCommandLine::SYNTAX_ERROR);
}

TEST(CommandLine, CsidLaterInTheLineIsANameOrAValue) {
    EXPECT_EQ(published({"10.1.2.3", "-csid", "7"}), "1 @10.1.2.3 -csid=7");
    EXPECT_EQ(published({"10.1.2.3", "A", "-csid"}), "1 @10.1.2.3 A=0");
    EXPECT_EQ(published({"10.1.2.3", "A", "1", "-csid", "7"}), "1 @10.1.2.3 A=1 -csid=7");
}

TEST(CommandLine, CsidIsTakenLetterByLetter) {
    EXPECT_EQ(published({"-CSID", "A", "1"}), "1 @-CSID A=1");
    EXPECT_EQ(published({"-csi", "A", "1"}), "1 @-csi A=1");
    EXPECT_EQ(published({"-csid7", "A", "1"}), "1 @-csid7 A=1");
}

TEST(CommandLine, AnIdThatIsNoNumberIsZero) {
    EXPECT_EQ(idOf(""), 0U);
    EXPECT_EQ(idOf("x"), 0U);
    EXPECT_EQ(idOf("-version"), 0U);
}

TEST(CommandLine, AnIdIsDecimalUpToTheFirstOtherCharacter) {
    EXPECT_EQ(idOf("0x10"), 0U);
    EXPECT_EQ(idOf("010"), 10U);
    EXPECT_EQ(idOf("12ab"), 12U);
    EXPECT_EQ(idOf(" 12"), 12U);
    EXPECT_EQ(idOf("+12"), 12U);
    EXPECT_EQ(idOf("7.9"), 7U);
}

TEST(CommandLine, AnIdThatASimulatorCannotHaveIsPassedOn) {
    EXPECT_EQ(idOf("32767"), 32767U);
    EXPECT_EQ(idOf("32768"), 32768U);
    EXPECT_EQ(idOf("-5"), 4294967291U);
}

TEST(CommandLine, OfAnIdThatDoesNotFitTheLowBitsAreTaken) {
    // A long of 32 bits stops at its highest number.
    const bool isWide = sizeof(long) > 4;
    EXPECT_EQ(idOf("99999999999"), isWide ? 1215752191U : 2147483647U);
}

TEST(CommandLine, ValuesAreNarrowedToSinglePrecision) {
    EXPECT_EQ(valueOf("12.5"), 12.5F);
    EXPECT_EQ(valueOf("0.1"), 0.1F);
    EXPECT_EQ(valueOf("16777217"), 16777216.0F);
    EXPECT_EQ(valueOf("1e-60"), 0.0F);
}

TEST(CommandLine, AValueThatIsNoNumberIsZero) {
    EXPECT_EQ(valueOf("abc"), 0.0F);
    EXPECT_EQ(valueOf(""), 0.0F);
    EXPECT_EQ(valueOf("-"), 0.0F);
}

TEST(CommandLine, AValueEndsAtTheFirstOtherCharacter) {
    EXPECT_EQ(valueOf("12.5xyz"), 12.5F);
    EXPECT_EQ(valueOf(" 12.5"), 12.5F);
    EXPECT_EQ(valueOf("1,5"), 1.0F);
    EXPECT_EQ(valueOf("1e"), 1.0F);
}

TEST(CommandLine, ValuesMayBeHexadecimal) {
    EXPECT_EQ(valueOf("0x10"), 16.0F);
    EXPECT_EQ(valueOf("0x1.8p1"), 3.0F);
}

TEST(CommandLine, ANegativeZeroKeepsItsSign) {
    EXPECT_EQ(valueOf("-0"), 0.0F);
    EXPECT_TRUE(std::signbit(valueOf("-0")));
    EXPECT_FALSE(std::signbit(valueOf("0")));
}

TEST(CommandLine, AValueTooLargeForAFloatIsInfinite) {
    const float infinite = std::numeric_limits<float>::infinity();
    EXPECT_EQ(valueOf("1e39"), infinite);
    EXPECT_EQ(valueOf("1e999"), infinite);
    EXPECT_EQ(valueOf("-1e999"), -infinite);
    EXPECT_EQ(valueOf("inf"), infinite);
}

TEST(CommandLine, AValueMayBeNoNumberByName) {
    EXPECT_TRUE(std::isnan(valueOf("nan")));
}

}  // namespace
}  // namespace com_tesk::test
