#include <gtest/gtest.h>

#include "tests/tools/PublisherProcess.h"

namespace com_tesk::test {
namespace {

using Arguments = std::vector<std::string>;

const char* const kSyntax =
    "Syntax: cspublish [-csid <id>] <IP Address> <parameter name> <value> [<parameter name> <value>] [...]\n";

/// No host is needed: the tool must not even try to connect.
void expectSyntaxError(const Arguments& arguments) {
    PublisherProcess publisher(arguments, PublisherProcess::asBuilt());
    EXPECT_EQ(publisher.exitCode(), 1);
    EXPECT_EQ(publisher.errText(), kSyntax);
    EXPECT_EQ(publisher.outText(), "");
}

TEST(PublisherSyntax, VersionPrintsTheVersionOnStandardOutput) {
    PublisherProcess publisher({"-version"}, PublisherProcess::asBuilt());
    EXPECT_EQ(publisher.exitCode(), 0);
    EXPECT_EQ(publisher.outText(), "4.4.132\n");
    EXPECT_EQ(publisher.errText(), "");
}

TEST(PublisherSyntax, VersionFollowedByOneWordIsASyntaxError) {
    expectSyntaxError({"-version", "A"});
}

TEST(PublisherSyntax, VersionFollowedByAPairIsASyntaxError) {
    expectSyntaxError({"-version", "A", "1"});
}

TEST(PublisherSyntax, VersionFollowedByTwoPairsIsASyntaxError) {
    expectSyntaxError({"-version", "A", "1", "B", "2"});
}

TEST(PublisherSyntax, NoArgumentsAreASyntaxError) {
    expectSyntaxError({});
}

TEST(PublisherSyntax, AnAddressAloneIsASyntaxError) {
    expectSyntaxError({"127.0.0.1"});
}

TEST(PublisherSyntax, AnUnknownSingleOptionIsASyntaxError) {
    expectSyntaxError({"--version"});
}

TEST(PublisherSyntax, ANameWithoutAValueIsASyntaxError) {
    expectSyntaxError({"127.0.0.1", "A"});
}

TEST(PublisherSyntax, ASecondNameWithoutAValueIsASyntaxError) {
    expectSyntaxError({"127.0.0.1", "A", "1", "B"});
}

TEST(PublisherSyntax, AnIdWithoutAnAddressIsASyntaxError) {
    expectSyntaxError({"-csid", "7"});
}

TEST(PublisherSyntax, AForgottenIdIsASyntaxError) {
    expectSyntaxError({"-csid", "127.0.0.1", "A", "1"});
}

TEST(PublisherSyntax, AnIdWithANameWithoutAValueIsASyntaxError) {
    expectSyntaxError({"-csid", "7", "127.0.0.1", "A", "1", "B"});
}

TEST(PublisherSyntax, TheSyntaxNamesTheToolAsItWasCalled) {
    PublisherProcess publisher({}, PublisherProcess::asBuilt("/some/where/publish it"));
    EXPECT_EQ(publisher.exitCode(), 1);
    EXPECT_EQ(publisher.errText(),
              "Syntax: /some/where/publish it [-csid <id>] <IP Address> <parameter name> <value> "
              "[<parameter name> <value>] [...]\n");
}

}  // namespace
}  // namespace com_tesk::test
