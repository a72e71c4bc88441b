#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "host/LoopbackHost.h"
#include "tests/host/ChildProcess.h"
#include "tests/host/RawClient.h"

namespace com_tesk::host_test {
namespace {

constexpr std::uint16_t kDefaultPort = 55580;

/// A loopback address of this process's own, so that tests side by side may use one port.
std::string ownAddress() {
    const auto pid = static_cast<unsigned>(::getpid());
    return "127." + std::to_string(64 + (pid >> 16) % 64) + "." + std::to_string((pid >> 8) & 0xFFU) + "." +
           std::to_string(pid & 0xFFU);
}

ChildProcess cshost(const std::vector<std::string>& arguments) {
    return {CSHOST_PROGRAM, arguments};
}

/// Waits for the first line and takes the port from it.
std::uint16_t portOf(ChildProcess& host) {
    const std::string line = host.lineWith("host listening on ");
    return static_cast<std::uint16_t>(std::stoi("0" + line.substr(line.rfind(':') + 1)));
}

class CshostSignal : public testing::TestWithParam<int> {};

TEST_P(CshostSignal, ClosesEveryClientAndExitsWithZero) {
    auto host = cshost({"--port", "0"});
    RawClient client(portOf(host));
    EXPECT_EQ(client.ask(versionRequest()).size(), kVersionReplySize);
    host.signal(GetParam());
    EXPECT_EQ(client.waitForEnd(), RawClient::End::CLOSED);
    EXPECT_EQ(host.exitCode(), 0);
    EXPECT_NE(host.lineWith("client 1 dropped: the host stops"), "");
    EXPECT_NE(host.lineWith("host stopped"), "");
    EXPECT_EQ(host.restOfErrors(), "");
}

INSTANTIATE_TEST_SUITE_P(Signals, CshostSignal, testing::Values(SIGINT, SIGTERM));

TEST(Cshost, ListensOnTheDefaultPortOfTheGivenAddress) {
    auto host = cshost({"--listen", ownAddress()});
    EXPECT_EQ(portOf(host), kDefaultPort);
    RawClient client(kDefaultPort, ownAddress());
    EXPECT_EQ(client.ask(versionRequest()).size(), kVersionReplySize);
}

TEST(Cshost, AnswersVersionRequestsAsTold) {
    auto host =
        cshost({"--port", "0", "--version-text", "Desk 1", "--protocol-version", "4294967295", "--assign-id", "9"});
    RawClient client(portOf(host));
    EXPECT_EQ(text(client.ask(versionRequest())),
              text(frame(joined({hex("04027FFF 00000098 007F0106 00090000"), hex("4465736B2031"), zeros(122),
                                 hex("FFFFFFFF 00000001")}))));
}

TEST(Cshost, BeginsWithTheValuesThatAreSet) {
    auto host = cshost({"--port", "0", "--set", "A=1.5", "--set", "B=i:-2"});
    RawClient client(portOf(host));
    client.send(joined({subscribeFloat("A"), subscribeFloat("B")}));
    EXPECT_EQ(text(client.receiveFrame()),
              text(frame(joined({hex("04027FFF 00000048 007F0101 00050000 00000001"),
                                 hex("00000001 00002EE0 00002EE0 00000000 3FC00000"), nameField("A")}))));
    EXPECT_EQ(text(client.receiveFrame()),
              text(frame(joined({hex("04027FFF 00000048 007F0101 00050000 00000001"),
                                 hex("00000002 00002EE0 00002EE0 00000001 FFFFFFFE"), nameField("B")}))));
}

TEST(Cshost, PrintsALineAtOnceForEachEvent) {
    auto host = cshost({"--port", "0"});
    RawClient client(portOf(host));
    client.ask(registerFloat("ALT"));
    client.send(publish("00000001 00000000 41480000"));
    const std::string line = host.lineWith("published");
    EXPECT_THAT(line, testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} "
                                            "client 1 published ALT = 12\\.5 \\(float, output id 1\\)"));
    client.close();
    EXPECT_NE(host.lineWith("client 1 disconnected"), "");
}

TEST(Cshost, QuietPrintsNothing) {
    auto host = cshost({"--listen", ownAddress(), "--port", "55581", "--quiet"});
    // Without a line to wait for, trying is how to see that it listens.
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    std::unique_ptr<RawClient> client;
    while (!client && std::chrono::steady_clock::now() < deadline) {
        try {
            client = std::make_unique<RawClient>(std::uint16_t{55581}, ownAddress());
        } catch (const std::system_error&) {
            ::usleep(1000);
        }
    }
    ASSERT_TRUE(client);
    client->ask(versionRequest());
    host.signal(SIGTERM);
    EXPECT_EQ(host.exitCode(), 0);
    EXPECT_EQ(host.restOfOutput(), "");
    EXPECT_EQ(host.restOfErrors(), "");
}

TEST(Cshost, SaysWhenThePortIsTakenAndExitsWithOne) {
    LoopbackHost taken({});
    auto host = cshost({"--port", std::to_string(taken.port())});
    EXPECT_EQ(host.exitCode(), 1);
    EXPECT_EQ(host.restOfOutput(), "");
    EXPECT_EQ(host.restOfErrors(),
              "cshost: cannot listen on 127.0.0.1:" + std::to_string(taken.port()) + ": Address already in use\n");
}

TEST(Cshost, SaysWhenTheAddressIsNoneAndExitsWithOne) {
    auto host = cshost({"--listen", "nowhere"});
    EXPECT_EQ(host.exitCode(), 1);
    EXPECT_NE(host.restOfErrors().find("nowhere:55580 (not an IPv4 address)"), std::string::npos);
}

TEST(Cshost, HelpNamesOptionsAndExitCodesOnStandardOutput) {
    auto host = cshost({"--help"});
    EXPECT_EQ(host.exitCode(), 0);
    const std::string help = host.restOfOutput();
    for (const char* word : {"--listen", "--port", "--version-text", "--protocol-version", "--assign-id", "--set",
                             "--quiet", "Exit codes:", "SIGTERM"}) {
        EXPECT_NE(help.find(word), std::string::npos) << word;
    }
    EXPECT_EQ(host.restOfErrors(), "");
}

class CshostUsage : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(CshostUsage, ErrorsAreToldOnStandardErrorWithTheirOwnExitCodes) {
    auto host = cshost(GetParam());
    const auto code = host.exitCode();
    ASSERT_TRUE(code.has_value());
    EXPECT_GE(*code, 100);
    EXPECT_LE(*code, 127);
    EXPECT_EQ(host.restOfOutput(), "");
    EXPECT_NE(host.restOfErrors(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, CshostUsage,
    testing::Values(std::vector<std::string>{"--port", "65536"}, std::vector<std::string>{"--port", "x"},
                    std::vector<std::string>{"--assign-id", "65536"}, std::vector<std::string>{"--assign-id", "-1"},
                    std::vector<std::string>{"--protocol-version", "4294967296"},
                    std::vector<std::string>{"--set", "A"}, std::vector<std::string>{"--set", "=1"},
                    std::vector<std::string>{"--set", "A=x"}, std::vector<std::string>{"--set", "A=B=1"},
                    std::vector<std::string>{"--set", std::string(32, 'n') + "=1"},
                    std::vector<std::string>{"--version-text", std::string(129, 'v')},
                    std::vector<std::string>{"--no-such-option"}, std::vector<std::string>{"extra"}));

}  // namespace
}  // namespace com_tesk::host_test
