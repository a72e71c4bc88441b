// The example in host/LoopbackHost.h is made of the lines of the test below, so it compiles and does what it says.

#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <string>

#include "client/SimClient.h"
#include "host/LoopbackHost.h"
#include "tests/docs/ManualPage.h"

namespace com_tesk::test {
namespace {

TEST(HostExample, StoresTheValueThatTheClientPublishes) {
    LoopbackHost host({});  // On 127.0.0.1, on a port that the system picks.
    SimClient client(1, CSClient::OPTION_SILENT);
    client.registerOutputParameter({"ALT", CSClient::TYPE_FLOAT});
    client.open("127.0.0.1", host.port(), nullptr);
    client.waitForOutputsToBeRegistered(5);
    client.publishParameter({"ALT", {12.5F}, CSClient::TYPE_FLOAT});
    const bool isStored = host.waitForValue("ALT", HostValue::real(12.5F), std::chrono::seconds(5));

    EXPECT_TRUE(isStored);
}

/// The lines of the only indented block in the header's comment, without blanks.
std::string exampleInTheHeader() {
    const std::string indented = "///     ";
    std::istringstream lines(sourceFile("host/LoopbackHost.h"));
    std::string example;
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, indented.size(), indented) == 0) {
            example += line.substr(indented.size());
        }
    }
    return withoutBlanks(example);
}

TEST(HostExample, InTheHeaderIsMadeOfTheLinesOfThisTest) {
    const std::string example = exampleInTheHeader();
    EXPECT_GT(example.size(), 200U);
    EXPECT_NE(withoutBlanks(sourceFile("tests/docs/HostExampleTest.cpp")).find("{" + example + "EXPECT_TRUE"),
              std::string::npos)
        << example;
}

}  // namespace
}  // namespace com_tesk::test
