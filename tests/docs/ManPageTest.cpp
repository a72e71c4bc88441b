// csclient(3): its synopsis is made of declarations in the headers, and its example is the function below, which is compiled.

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "client/SimClient.h"
#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "tests/docs/ManualPage.h"

// Never called: there is no such host.
[[maybe_unused]] static void example() {
    com_tesk::SimClient client(1, com_tesk::CSClient::OPTION_AUTO_RECONNECT);
    client.changeCommsInterface(new com_tesk::CSCommsInterfaceTCPBuffered);
    client.registerOutputParameter({"altitude", com_tesk::CSClient::TYPE_FLOAT});
    client.open("192.168.1.20", 55580, nullptr);
    if (client.waitForOutputsToBeRegistered(5)) {
        client.publishParameter({"altitude", {1234.5F}, com_tesk::CSClient::TYPE_FLOAT});
    }
    client.close();
}

namespace com_tesk::test {
namespace {

/// The literal block of a section of csclient(3), without blanks.
std::string blockUnder(const std::string& section) {
    const std::string page = sourceFile("man/csclient.3");
    const std::string beginning = ".Bd -literal\n";
    const std::size_t begin = page.find(beginning, page.find("\n.Sh " + section + "\n"));
    const std::size_t end = page.find("\n.Ed", begin);
    EXPECT_NE(end, std::string::npos) << section;
    return withoutBlanks(page.substr(begin + beginning.size(), end - begin - beginning.size()));
}

TEST(ManPage, ItsExampleIsTheFunctionThatIsCompiledHere) {
    const std::string example = blockUnder("EXAMPLES");
    EXPECT_GT(example.size(), 200U);
    EXPECT_NE(withoutBlanks(sourceFile("tests/docs/ManPageTest.cpp")).find("voidexample(){" + example + "}"),
              std::string::npos)
        << example;
}

TEST(ManPage, ItsSynopsisIsMadeOfDeclarationsInTheHeaders) {
    const std::string headers = withoutBlanks(sourceFile("include/client/CSClient.h") + sourceFile("include/client/SimClient.h"));
    std::istringstream synopsis(blockUnder("SYNOPSIS"));
    int declarations = 0;
    for (std::string declaration; std::getline(synopsis, declaration, ';'); ++declarations) {
        EXPECT_NE(headers.find(declaration + ";"), std::string::npos) << declaration;
    }
    EXPECT_GT(declarations, 8);
}

}  // namespace
}  // namespace com_tesk::test
