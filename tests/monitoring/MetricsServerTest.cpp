#include "tools/csmqtt/MetricsServer.h"

#include <gmock/gmock.h>

#include <atomic>
#include <list>
#include <stdexcept>

#include "tests/monitoring/Exposition.h"
#include "tests/monitoring/HttpClient.h"
#include "tests/support/Waiting.h"

namespace com_tesk::monitoring_test {
namespace {

using namespace mqtt;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::StartsWith;

const Address kAnyPort{"127.0.0.1", 0};
constexpr std::chrono::milliseconds kClientLimit{800};

Snapshot snapshotWith(double number) {
    Snapshot snapshot;
    snapshot.host = HostState::UP;
    ValueSnapshot value;
    value.name = "a";
    value.value = number;
    value.isCurrent = true;
    snapshot.values.push_back(value);
    return snapshot;
}

TEST(MetricsServer, ServesThePresentState) {
    std::atomic<int> asked{0};
    const MetricsServer server(kAnyPort, [&] { return snapshotWith(++asked); });
    const std::string response = get(server.port());
    EXPECT_THAT(response, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(response, HasSubstr("\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\n"));
    EXPECT_EQ(Exposition(bodyOf(response))[R"(csmqtt_value{name="a"})"], "1");
    EXPECT_EQ(Exposition(bodyOf(get(server.port())))[R"(csmqtt_value{name="a"})"], "2");
}

TEST(MetricsServer, HasNothingElse) {
    const MetricsServer server(kAnyPort, [] { return Snapshot(); });
    for (const char* const path : {"/", "/metrics/", "/metrics2", "/../etc/passwd", "/%"}) {
        EXPECT_THAT(get(server.port(), path), StartsWith("HTTP/1.1 404")) << path;
    }
}

TEST(MetricsServer, BytesThatAreNoRequestEndTheirConnectionOnly) {
    const MetricsServer server(
        kAnyPort, [] { return Snapshot(); }, kClientLimit);
    for (const std::string& bytes :
         {std::string("\r\n\r\n"), std::string("GET\r\n\r\n"), std::string("\x00\xFF\r\n\r\n", 6),
          "GET /" + std::string(20'000, 'x') + " HTTP/1.1\r\n\r\n",
          std::string("POST /metrics HTTP/1.1\r\nContent-Length: 99999999999\r\n\r\n")}) {
        const HttpClient client(server.port());
        client.send(bytes);
        EXPECT_THAT(client.response(), testing::Not(HasSubstr("200 OK")));
    }
    EXPECT_THAT(get(server.port()), StartsWith("HTTP/1.1 200"));
}

TEST(MetricsServer, AnAddressInUseIsALineForTheUser) {
    const MetricsServer server(kAnyPort, [] { return Snapshot(); });
    const Address same{"127.0.0.1", server.port()};
    try {
        const MetricsServer second(same, [] { return Snapshot(); });
        FAIL() << "two servers have the port";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()),
                  "metrics: cannot listen on 127.0.0.1:" + std::to_string(server.port()) + ": Address already in use");
    }
}

TEST(MetricsServer, AnAddressOfAnotherMachineIsALineForTheUser) {
    for (const std::uint16_t port : {std::uint16_t{0}, std::uint16_t{9'633}}) {
        try {
            const MetricsServer server(Address{"192.0.2.1", port}, [] { return Snapshot(); });
            FAIL() << "the address is of no interface here";
        } catch (const std::runtime_error& error) {
            EXPECT_THAT(error.what(), StartsWith("metrics: cannot listen on 192.0.2.1:" + std::to_string(port)));
        }
    }
}

TEST(MetricsServer, ItsPortIsFreeAfterItsEnd) {
    MetricsServer first(kAnyPort, [] { return Snapshot(); });
    EXPECT_NE(get(first.port()), "");
    first.stop();
    first.stop();
    const MetricsServer second(Address{"127.0.0.1", first.port()}, [] { return Snapshot(); });
    EXPECT_THAT(get(second.port()), StartsWith("HTTP/1.1 200"));
}

TEST(MetricsServer, SilentClientsAreDisconnectedAndOthersServed) {
    const MetricsServer server(
        kAnyPort, [] { return Snapshot(); }, kClientLimit);
    std::list<HttpClient> silent;
    for (int i = 0; i < 3; ++i) {
        silent.emplace_back(server.port());
    }
    EXPECT_THAT(get(server.port()), StartsWith("HTTP/1.1 200"));
    for (const HttpClient& client : silent) {
        EXPECT_EQ(client.response(), "");
    }
}

TEST(MetricsServer, EndsWhileAClientDoesNotRead) {
    std::atomic<int> asked{0};
    Snapshot large = snapshotWith(1);
    large.values.resize(100'000, large.values[0]);
    auto server = std::make_unique<MetricsServer>(kAnyPort, [&] {
        ++asked;
        return large;
    });
    const HttpClient client(server->port());
    client.send("GET /metrics HTTP/1.1\r\nHost: x\r\n\r\n");
    ASSERT_TRUE(test::waitUntil([&] { return asked == 1; }));
    server->stop();
    const int last = asked;
    server.reset();
    EXPECT_EQ(asked, last);
}

}  // namespace
}  // namespace com_tesk::monitoring_test
