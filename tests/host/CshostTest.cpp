#include <gmock/gmock.h>

#include <csignal>
#include <optional>
#include <system_error>

#include "tests/host/HostTest.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/OwnAddress.h"
#include "tests/support/Waiting.h"

namespace com_tesk::host_test {
namespace {

using test::ownAddress;

constexpr std::uint16_t kDefaultPort = 55580;

class Cshost : public HostTest {
  protected:
    static test::ChildProcess run(const std::vector<std::string>& arguments) {
        return {{CSHOST_PROGRAM, "", std::nullopt}, arguments};
    }

    /// Waits for the first line and returns its port.
    static std::uint16_t portOf(test::ChildProcess& program) {
        const std::string line = program.lineWith("host listening on ");
        return static_cast<std::uint16_t>(std::stoi("0" + line.substr(line.rfind(':') + 1)));
    }
};

TEST_F(Cshost, ClosesEveryClientAndExitsWithZeroWhenSignalled) {
    for (const int number : {SIGINT, SIGTERM}) {
        auto program = run({"--port", "0"});
        Client client(portOf(program));
        EXPECT_TRUE(isServed(client));
        program.signal(number);
        EXPECT_EQ(client.end(), Client::End::CLOSED);
        EXPECT_EQ(program.exitCode(), 0);
        EXPECT_NE(program.lineWith("client 1 dropped: the host stops"), "");
        EXPECT_NE(program.lineWith("host stopped"), "");
        EXPECT_EQ(program.errText(), "");
    }
}

TEST_F(Cshost, ListensOnTheDefaultPortOfTheGivenAddress) {
    auto program = run({"--listen", ownAddress()});
    EXPECT_EQ(portOf(program), kDefaultPort);
    Client client(kDefaultPort, ownAddress());
    EXPECT_TRUE(isServed(client));
}

TEST_F(Cshost, AnswersAsItsOptionsSay) {
    auto program = run({"--port", "0", "--version-text", "Test 1", "--protocol-version", "4294967295", "--assign-id",
                        "9", "--set", "A=1.5", "--set", "B=i:-2"});
    Client client(portOf(program));
    EXPECT_EQ(client.ask(versionRequest()), versionReply("00090000", "Test 1", "FFFFFFFF"));
    EXPECT_EQ(client.ask(subscribe("A")), inputReply("00000001", "00000000 3FC00000", "A"));
    EXPECT_EQ(client.ask(subscribe("B")), inputReply("00000002", "00000001 FFFFFFFE", "B"));
}

TEST_F(Cshost, PrintsALineForEachEventImmediately) {
    auto program = run({"--port", "0"});
    Client client(portOf(program));
    client.ask(registerOutput("ALT"));
    client.send(publish("00000001 00000000 41480000"));
    EXPECT_THAT(program.lineWith("published"),
                testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} "
                                      "client 1 published ALT = 12\\.5 \\(float, output id 1\\)"));
    client.close();
    EXPECT_NE(program.lineWith("client 1 disconnected"), "");
}

TEST_F(Cshost, PrintsAnObjectOfJsonForEachEventImmediately) {
    auto program = run({"--port", "0", "--events", "json"});
    const std::string first = program.lineWith("\"event\":\"listening\"");
    const std::size_t colon = first.rfind(':');
    ASSERT_NE(colon, std::string::npos);
    Client client(static_cast<std::uint16_t>(std::stoi("0" + first.substr(colon + 1))));
    client.ask(registerOutput("ALT"));
    client.send(publish("00000001 00000000 41480000"));
    EXPECT_THAT(program.lineWith("\"published\""),
                testing::MatchesRegex("\\{\"t\":\"[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}Z\","
                                      "\"event\":\"published\",\"client\":1,\"name\":\"ALT\",\"id\":1,"
                                      "\"type\":\"float\",\"value\":12\\.5\\}"));
}

TEST_F(Cshost, PrintsNothingWhenQuiet) {
    auto program = run({"--listen", ownAddress(), "--port", "55581", "--quiet"});
    // No line says when it listens.
    ASSERT_TRUE(test::waitUntil([] {
        try {
            Client client(std::uint16_t{55581}, ownAddress());
            return isServed(client);
        } catch (const std::system_error&) {
            return false;
        }
    }));
    program.signal(SIGTERM);
    EXPECT_EQ(program.exitCode(), 0);
    EXPECT_EQ(program.outText(), "");
    EXPECT_EQ(program.errText(), "");
}

TEST_F(Cshost, SaysWhyItCannotListenAndExitsWithOne) {
    const std::string port = std::to_string(host().port());
    auto onUsedPort = run({"--port", port});
    EXPECT_EQ(onUsedPort.exitCode(), 1);
    EXPECT_EQ(onUsedPort.outText(), "");
    EXPECT_EQ(onUsedPort.errText(), "cshost: cannot listen on 127.0.0.1:" + port + ": Address already in use\n");
    auto onNoAddress = run({"--listen", "nowhere"});
    EXPECT_EQ(onNoAddress.exitCode(), 1);
    EXPECT_THAT(onNoAddress.errText(), testing::HasSubstr("nowhere:55580 (not an IPv4 address)"));
}

TEST_F(Cshost, HelpNamesExitCodes) {
    auto program = run({"--help"});
    EXPECT_EQ(program.exitCode(), 0);
    EXPECT_THAT(program.outText(), testing::AllOf(testing::HasSubstr("Exit codes:"), testing::HasSubstr("SIGTERM")));
    EXPECT_EQ(program.errText(), "");
}

TEST_F(Cshost, ReportsInvalidArgumentsWithExitCodesFrom100To127) {
    const std::pair<const char*, std::string> invalid[] = {
        {"--port", "65536"},
        {"--port", "x"},
        {"--assign-id", "65536"},
        {"--assign-id", "-1"},
        {"--set", "A"},
        {"--set", "=1"},
        {"--set", "A=x"},
        {"--set", "A=B=1"},
        {"--events", "xml"},
        {"--quiet", "extra"},
        {"--quiet", "--no-such-option"},
        {"--protocol-version", "4294967296"},
        {"--set", std::string(32, 'n') + "=1"},
        {"--version-text", std::string(129, 'v')},
    };
    for (const auto& [option, value] : invalid) {
        SCOPED_TRACE(value);
        auto program = run({option, value});
        EXPECT_THAT(program.exitCode(), testing::AllOf(testing::Ge(100), testing::Le(127)));
        EXPECT_EQ(program.outText(), "");
        EXPECT_NE(program.errText(), "");
    }
}

}  // namespace
}  // namespace com_tesk::host_test
