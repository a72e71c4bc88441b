#include <sys/socket.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <string_view>

#include "tests/csmqtt/support/Csmqtt.h"
#include "tests/csmqtt/support/Flooder.h"
#include "tests/csmqtt/support/OwnPlace.h"
#include "tests/support/Emulator.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Waiting.h"

namespace com_tesk::mqtt_test {

namespace {

using Flood = BridgeTest;

/// A client of the broker that subscribes to everything and reads nothing.
class SilentSubscriber {
  public:
    explicit SilentSubscriber(std::uint16_t port) : connection(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const int size = 2'048;
        setsockopt(connection, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
        const sockaddr_in place = ownPlace(port);
        EXPECT_EQ(connect(connection, reinterpret_cast<const sockaddr*>(&place), sizeof place), 0);
        constexpr std::string_view kRequests(
            "\x10\x0D\x00\x04MQTT\x04\x02\x00\x00\x00\x01z"  // CONNECT as client z, without keep-alive.
            "\x82\x06\x00\x01\x00\x01#\x00",                 // SUBSCRIBE to everything, with QoS 0.
            23);
        EXPECT_EQ(send(connection, kRequests.data(), kRequests.size(), 0), static_cast<ssize_t>(kRequests.size()));
    }
    ~SilentSubscriber() { close(connection); }
    SilentSubscriber(const SilentSubscriber&) = delete;
    SilentSubscriber& operator=(const SilentSubscriber&) = delete;

  private:
    const int connection;
};

}  // namespace

TEST_F(Flood, WithABrokerThatDoesNotReadEndsWithTheNewestValues) {
    constexpr int kNames = 600;
    LoopbackHost host(hostOptions());
    TestBroker broker;
    Csmqtt csmqtt({"--config", config(broker.address(), namesUpTo(kNames))});
    {
        const Subscriber subscriber(broker.port(), "b/#");
        ASSERT_TRUE(subscriber.waitFor("b/v/n599", "0"));
    }
    broker.hang();
    int last = 0;
    {
        Flooder flooder(host, kNames);
        // Some 600,000 values: far more than sockets can hold. An emulator or a sanitizer needs too long for so many.
        const int rounds = test::isEmulated() || test::kUnderSanitizer ? 200 : 1'000;
        ASSERT_TRUE(test::waitUntil([&] { return flooder.count() >= rounds; }));
        last = flooder.stop();
    }
    broker.resume();
    const Subscriber subscriber(broker.port(), "b/#");
    for (const int name : {0, 1, 300, 598, 599}) {
        EXPECT_TRUE(subscriber.waitFor("b/v/n" + std::to_string(name), std::to_string(last))) << name;
    }
    ASSERT_TRUE(test::waitUntil([&] { return subscriber.newest("b/$stats").front() == '{'; }));
    const auto stats = nlohmann::json::parse(subscriber.newest("b/$stats"));
    EXPECT_LE(stats["max_in_flight"].get<int>(), 256);
    EXPECT_GT(stats["max_in_flight"].get<int>(), 200);
    EXPECT_GT(stats["conflated"].get<int>(), 1'000);
}

TEST_F(Flood, WithABrokerThatDoesNotReadTakesNoMoreMemory) {
    if (test::kUnderSanitizer || test::isEmulated()) {
        GTEST_SKIP() << "the memory is that of the sanitizer or of the emulator";
    }
    constexpr int kNames = 300;
    constexpr long kTolerance = 512L * 1024;
    LoopbackHost host(hostOptions());
    TestBroker broker;
    const Csmqtt csmqtt({"--config", config(broker.address(), namesUpTo(kNames))});
    ASSERT_TRUE(Subscriber(broker.port(), "b/#").waitFor("b/v/n299", "0"));
    broker.hang();
    Flooder flooder(host, kNames);
    ASSERT_TRUE(test::waitUntil([&] { return flooder.count() >= 500; }));
    const long before = csmqtt.residentBytes();
    ASSERT_GT(before, 0);
    ASSERT_TRUE(test::waitUntil([&] { return flooder.count() >= 5'000; }));
    EXPECT_LT(csmqtt.residentBytes(), before + kTolerance);
}

TEST_F(Flood, WithASubscriberThatDoesNotReadReachesTheOthers) {
    LoopbackHost host(hostOptions());
    TestBroker broker;
    const SilentSubscriber silent(broker.port());
    const Subscriber subscriber(broker.port(), "b/#");
    const Csmqtt csmqtt({"--config", config(broker.address(), namesUpTo(100))});
    ASSERT_TRUE(subscriber.waitFor("b/v/n99", "0"));
    int last = 0;
    {
        Flooder flooder(host, 100);
        ASSERT_TRUE(test::waitUntil([&] { return flooder.count() >= 500; }));
        last = flooder.stop();
    }
    EXPECT_TRUE(subscriber.waitFor("b/v/n0", std::to_string(last)));
    EXPECT_TRUE(subscriber.waitFor("b/v/n99", std::to_string(last)));
}

TEST_F(Flood, OfCommandsEndsWithTheNewestValue) {
    LoopbackHost host(hostOptions());
    TestBroker broker;
    Subscriber subscriber(broker.port(), "b/$state");
    const Csmqtt csmqtt({"--config", config(broker.address(), "from_mqtt: [x]\n")});
    ASSERT_TRUE(subscriber.waitFor("b/$state", "online"));
    for (int i = 1; i <= 5'000; ++i) {
        subscriber.publish("b/set/x", i % 3 == 0 ? "nonsense" : std::to_string(i));
    }
    EXPECT_TRUE(host.waitForValue("x", HostValue::real(5'000), kWaitBound));
}

}  // namespace com_tesk::mqtt_test
