#include <nlohmann/json.hpp>

#include "tests/csmqtt/support/Csmqtt.h"
#include "tests/support/Waiting.h"

namespace com_tesk::mqtt_test {

namespace {

using Values = BridgeTest;

std::uint64_t statistic(const Subscriber& subscriber, const std::string& key) {
    const auto stats = nlohmann::json::parse(subscriber.newest("b/$stats"), nullptr, false);
    return stats.is_object() ? stats.value(key, std::uint64_t{0}) : 0;
}

}  // namespace

TEST_F(Values, PassInBothDirections) {
    LoopbackHost host(hostOptions());
    TestBroker broker;
    Subscriber subscriber(broker.port());
    Csmqtt csmqtt({"--config", config(broker.address(), R"(
to_mqtt: [altitude, {name: count, type: integer}]
from_mqtt: [speed, {name: gear, type: integer}]
)")});
    ASSERT_TRUE(subscriber.waitFor("b/v/count", "0"));
    host.setValues({{"altitude", HostValue::real(12.5F)}, {"count", HostValue::integer(-7)}});
    EXPECT_TRUE(subscriber.waitFor("b/v/altitude", "12.5"));
    EXPECT_TRUE(subscriber.waitFor("b/v/count", "-7"));
    EXPECT_EQ(subscriber.newest("b/$host"), "up");
    EXPECT_EQ(subscriber.newest("b/$state"), "online");

    subscriber.publish("b/set/speed", "-2.5e3");
    subscriber.publish("b/set/gear", "3");
    EXPECT_TRUE(host.waitForValue("speed", HostValue::real(-2'500), kWaitBound));
    EXPECT_TRUE(host.waitForValue("gear", HostValue::integer(3), kWaitBound));

    csmqtt.expectCleanEnd();
    EXPECT_TRUE(subscriber.waitFor("b/$state", "offline"));
}

TEST_F(Values, AreRetainedForLateSubscribers) {
    LoopbackHost host(hostOptions());
    host.setValue("x", HostValue::real(1.5F));
    TestBroker broker;
    const Csmqtt csmqtt({"--config", config(broker.address(), "to_mqtt: [{name: x, qos: 1, payload: json}]\n")});
    {
        const Subscriber first(broker.port());
        ASSERT_TRUE(first.waitForPart("b/v/x", R"({"v":1.5,"t":"20)"));
    }
    const Subscriber late(broker.port());
    ASSERT_TRUE(late.waitForPart("b/v/x", R"(,"n":1})"));
    EXPECT_TRUE(late.all("b/v/x")[0].isRetained);
    ASSERT_TRUE(late.waitFor("b/$state", "online"));
    EXPECT_TRUE(late.all("b/$state")[0].isRetained);
    ASSERT_TRUE(late.waitFor("b/$host", "up"));
    EXPECT_TRUE(late.all("b/$host")[0].isRetained);
}

TEST_F(Values, WithARateArriveThinnedOutAndTheNewestLast) {
    LoopbackHost host(hostOptions());
    TestBroker broker;
    const Subscriber subscriber(broker.port());
    const Csmqtt csmqtt({"--config", config(broker.address(), "to_mqtt: [{name: x, rate: 4Hz}, all]\n")});
    ASSERT_TRUE(subscriber.waitFor("b/v/all", "0"));
    constexpr int kValues = 200;
    for (int i = 1; i <= kValues; ++i) {
        host.setValues(
            {{"x", HostValue::real(static_cast<float>(i))}, {"all", HostValue::real(static_cast<float>(i))}});
    }
    ASSERT_TRUE(subscriber.waitFor("b/v/x", "200"));
    ASSERT_TRUE(test::waitUntil([&] { return statistic(subscriber, "received") == 2 * kValues + 2; }));
    const std::size_t messages = subscriber.all("b/v/x").size() + subscriber.all("b/v/all").size();
    // Every value was published or counted.
    ASSERT_TRUE(test::waitUntil([&] { return statistic(subscriber, "published") == messages; }));
    EXPECT_EQ(statistic(subscriber, "conflated"), 2 * kValues + 2 - messages);
    EXPECT_LT(subscriber.all("b/v/x").size(), 100U);
}

TEST_F(Values, WithNamesThatAreNoTopicsPass) {
    LoopbackHost host(hostOptions());
    TestBroker broker;
    Subscriber subscriber(broker.port());
    Csmqtt csmqtt({"--config", config(broker.address(), R"(
to_mqtt: [a/b, 'p+q#r%s', {hex: 61ff62}]
from_mqtt: ['/+#%', {hex: 80c3}]
)")});
    ASSERT_TRUE(subscriber.waitFor("b/v/a%FFb", "0"));
    host.setValues({{"a/b", HostValue::real(1)},
                    {"p+q#r%s", HostValue::real(2)},
                    {"a\xff"
                     "b",
                     HostValue::real(3)}});
    EXPECT_TRUE(subscriber.waitFor("b/v/a%2Fb", "1"));
    EXPECT_TRUE(subscriber.waitFor("b/v/p%2Bq%23r%25s", "2"));
    EXPECT_TRUE(subscriber.waitFor("b/v/a%FFb", "3"));
    subscriber.publish("b/set/%2F%2B%23%25", "4");
    subscriber.publish("b/set/%80%c3", "5");
    EXPECT_TRUE(host.waitForValue("/+#%", HostValue::real(4), kWaitBound));
    EXPECT_TRUE(host.waitForValue("\x80\xc3", HostValue::real(5), kWaitBound));
}

TEST_F(Values, OfTenThousandNamesArrive) {
    constexpr int kNames = 10'000;
    std::string lines = "to_mqtt:\n";
    LoopbackHost::Options options = hostOptions();
    for (int i = 0; i < kNames; ++i) {
        lines += "  - n" + std::to_string(i) + '\n';
        options.initialValues.emplace("n" + std::to_string(i), HostValue::real(static_cast<float>(i)));
    }
    LoopbackHost host(options);
    TestBroker broker;
    const Csmqtt csmqtt({"--config", config(broker.address(), lines)});
    const Subscriber subscriber(broker.port());
    ASSERT_TRUE(subscriber.waitForTopics(kNames + 3, 2 * kWaitBound));
    const auto newest = subscriber.newest();
    for (int i = 0; i < kNames; ++i) {
        ASSERT_EQ(newest.at("b/v/n" + std::to_string(i)), std::to_string(i));
    }
    // Large numbers of messages need more than one round of the window.
    EXPECT_LE(statistic(subscriber, "max_in_flight"), 256U);
}

TEST_F(Values, ThatAreRefusedAreCountedByReason) {
    LoopbackHost host(hostOptions());
    TestBroker broker;
    Subscriber subscriber(broker.port());
    subscriber.publishNow("b/set/i", "99", true);  // Before the bridge: it receives it as retained.
    Csmqtt csmqtt(
        {"--config", config(broker.address(), "from_mqtt: [{name: i, type: integer}, {name: f, max: 10}]\n")});
    ASSERT_TRUE(test::waitUntil([&] { return statistic(subscriber, "ignored_retained") == 1; }));
    subscriber.publish("b/set/i", "98", true);  // With the bridge: the message keeps its flag.
    for (const char* const payload : {"", " 1", "1 ", "1.0", "0x10", "one", "nan"}) {
        subscriber.publish("b/set/i", payload);
    }
    subscriber.publish("b/set/i", "2147483648");
    subscriber.publish("b/set/f", "10.5");
    subscriber.publish("b/set/f", "1e39");
    subscriber.publish("b/set/other", "1");
    subscriber.publish("b/set/%zz", "1");
    subscriber.publish("b/set/i", "7");
    EXPECT_TRUE(host.waitForValue("i", HostValue::integer(7), kWaitBound));
    ASSERT_TRUE(test::waitUntil([&] { return statistic(subscriber, "accepted") == 1; }));
    EXPECT_EQ(statistic(subscriber, "ignored_retained"), 2U);
    EXPECT_EQ(statistic(subscriber, "ignored_invalid"), 7U);
    EXPECT_EQ(statistic(subscriber, "ignored_range"), 3U);
    EXPECT_EQ(statistic(subscriber, "ignored_unknown"), 2U);
    EXPECT_EQ(statistic(subscriber, "ignored"), 14U);
    EXPECT_FALSE(host.value("f").has_value());

    // A line a name and minute, at most.
    csmqtt.expectCleanEnd();
    const std::string text = csmqtt.errText();
    std::size_t lines = 0;
    for (std::size_t at = text.find("ignored a message to b/set/i"); at != std::string::npos;
         at = text.find("ignored a message to b/set/i", at + 1)) {
        ++lines;
    }
    EXPECT_EQ(lines, 1U) << text;
}

}  // namespace com_tesk::mqtt_test
