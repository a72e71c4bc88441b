// The bridge at a broker that it reaches over a slow line.

#include <nlohmann/json.hpp>

#include "tests/csmqtt/support/Csmqtt.h"
#include "tests/csmqtt/support/Flooder.h"
#include "tests/csmqtt/support/SlowProxy.h"
#include "tests/support/Waiting.h"

namespace com_tesk::mqtt_test {

namespace {

using SlowLine = BridgeTest;

}  // namespace

TEST_F(SlowLine, HasTheNewestValuesSoonAfterAFlood) {
    constexpr int kNames = 100;
    constexpr std::size_t kBytesPerSecond = 20'000;
    LoopbackHost host(hostOptions());
    TestBroker broker;
    const SlowProxy line(broker.port(), kBytesPerSecond);
    const Subscriber subscriber(broker.port(), "b/#");
    std::string names = "to_mqtt: [n0";
    for (int name = 1; name < kNames; ++name) {
        names += ", n" + std::to_string(name);
    }
    const Csmqtt csmqtt({"--config", config(line.address(), names + "]\n")});
    ASSERT_TRUE(subscriber.waitFor("b/v/n99", "0"));
    int last = 0;
    {
        Flooder flooder(host, kNames);
        // Some 150,000 values: the line would need minutes for them.
        ASSERT_TRUE(test::waitUntil([&] { return flooder.count() >= 1'500; }));
        last = flooder.stop();
    }
    // The system must not store what is old, so that the bound holds.
    for (const int name : {0, 1, 50, 98, 99}) {
        EXPECT_TRUE(subscriber.waitFor("b/v/n" + std::to_string(name), std::to_string(last))) << name;
    }
    const auto stats = nlohmann::json::parse(subscriber.newest("b/$stats"));
    EXPECT_GT(stats["conflated"].get<int>(), 1'000);
    EXPECT_LE(stats["max_in_flight"].get<int>(), 256);
    EXPECT_EQ(stats["broker_connects"].get<int>(), 1);
}

}  // namespace com_tesk::mqtt_test
