#include <memory>
#include <nlohmann/json.hpp>
#include <random>

#include "tests/csmqtt/support/Csmqtt.h"
#include "tests/support/Seed.h"
#include "tests/support/TestSize.h"
#include "tests/support/Waiting.h"

namespace com_tesk::mqtt_test {

namespace {

using Reconnect = BridgeTest;

HostValue real(float value) {
    return HostValue::real(value);
}

/// Publishes a command until the host has its value, because one without a bridge is lost.
bool commandUntilStored(Subscriber& subscriber, const LoopbackHost& host, const std::string& name, float value) {
    return test::waitUntil([&] {
        subscriber.publish("b/set/" + name, std::to_string(value));
        return host.waitForValue(name, HostValue::real(value), 200ms);
    });
}

}  // namespace

TEST_F(Reconnect, StartsWithoutABroker) {
    LoopbackHost host(hostOptions());
    host.setValue("x", real(1));
    TestBroker broker;
    broker.kill();
    Csmqtt csmqtt({"--config", config(broker.address(), "to_mqtt: [x]\n")});
    ASSERT_TRUE(csmqtt.waitForErr("Connection refused; trying again"));
    broker.start();
    const Subscriber subscriber(broker.port());
    EXPECT_TRUE(subscriber.waitFor("b/v/x", "1"));
}

TEST_F(Reconnect, StartsWithoutAHost) {
    TestBroker broker;
    const Subscriber subscriber(broker.port());
    Csmqtt csmqtt({"--config", config(broker.address(), "to_mqtt: [x]\n")});
    ASSERT_TRUE(subscriber.waitFor("b/$host", "down"));
    LoopbackHost host(hostOptions());
    EXPECT_TRUE(subscriber.waitFor("b/$host", "up"));
    EXPECT_TRUE(subscriber.waitFor("b/v/x", "0"));
}

TEST_F(Reconnect, EndsAtOnceWithoutEitherSide) {
    Csmqtt csmqtt({"--config", config(test::ownAddress() + ':' + std::to_string(unusedPort()), "to_mqtt: [x]\n")});
    ASSERT_TRUE(csmqtt.waitForErr("trying again"));
    csmqtt.expectCleanEnd();
}

TEST_F(Reconnect, EverythingIsPublishedAgainToANewBroker) {
    LoopbackHost host(hostOptions());
    TestBroker broker;
    Csmqtt csmqtt({"--config", config(broker.address(), "to_mqtt: [x, y]\nfrom_mqtt: [z]\n")});
    {
        const Subscriber subscriber(broker.port());
        host.setValues({{"x", real(1)}, {"y", real(2)}});
        ASSERT_TRUE(subscriber.waitFor("b/v/y", "2"));
    }
    broker.kill();
    ASSERT_TRUE(csmqtt.waitForErr("trying again"));
    for (int i = 10; i <= 20; ++i) {
        host.setValue("x", real(static_cast<float>(i)));
    }
    broker.start();  // It has no retained values.
    Subscriber subscriber(broker.port());
    EXPECT_TRUE(subscriber.waitFor("b/v/x", "20"));
    EXPECT_TRUE(subscriber.waitFor("b/v/y", "2"));
    EXPECT_TRUE(subscriber.waitFor("b/$state", "online"));
    EXPECT_TRUE(subscriber.waitFor("b/$host", "up"));
    // What has changed meanwhile was not queued, and it is subscribed again.
    EXPECT_EQ(subscriber.all("b/v/x").size(), 1U);
    subscriber.publish("b/set/z", "5");
    EXPECT_TRUE(host.waitForValue("z", real(5), kWaitBound));
}

/// The argument is the version of MQTT: with the older one, a broker keeps a session unless it is clean.
class OldCommands : public BridgeTest, public testing::WithParamInterface<const char*> {};

TEST_P(OldCommands, DoNotRunAgain) {
    LoopbackHost host(hostOptions());
    TestBroker broker("allow_anonymous true\nmax_queued_messages 1000\n");
    Subscriber subscriber(broker.port());
    const std::string path =
        config("{address: '" + broker.address() + "', protocol: " + GetParam() + "}", "from_mqtt: [x, y]\n");
    {
        Csmqtt csmqtt({"--config", path});
        ASSERT_TRUE(commandUntilStored(subscriber, host, "x", 1));
        csmqtt.signal(SIGKILL);
        csmqtt.exitCode();
    }
    ASSERT_TRUE(subscriber.waitFor("b/$state", "offline"));
    // The broker keeps no command for a bridge that is away, and the host's own value stays.
    subscriber.publishNow("b/set/x", "2");
    subscriber.publishNow("b/set/y", "3", true);
    host.setValue("x", real(4));
    Csmqtt csmqtt({"--config", path});
    ASSERT_TRUE(csmqtt.waitForErr("ignored a message to b/set/y: it is retained"));
    subscriber.publish("b/set/y", "6");
    ASSERT_TRUE(host.waitForValue("y", real(6), kWaitBound));
    EXPECT_EQ(*host.value("x"), real(4));
}

INSTANTIATE_TEST_SUITE_P(Bridge, OldCommands, testing::Values("'5'", "3.1.1"),
                         [](const auto& tested) { return tested.index == 0 ? "Mqtt5" : "Mqtt311"; });

TEST_F(Reconnect, TheLastWillFollowsAKill) {
    LoopbackHost host(hostOptions());
    TestBroker broker;
    const Subscriber subscriber(broker.port());
    const Csmqtt csmqtt({"--config", config(broker.address(), "to_mqtt: [x]\n")});
    ASSERT_TRUE(subscriber.waitFor("b/$state", "online"));
    csmqtt.signal(SIGKILL);
    EXPECT_TRUE(subscriber.waitFor("b/$state", "offline"));
}

TEST_F(Reconnect, ValuesStayWhileTheHostIsDown) {
    TestBroker broker;
    const Subscriber subscriber(broker.port());
    auto host = std::make_unique<LoopbackHost>(hostOptions());
    host->setValue("x", real(1));
    const Csmqtt csmqtt({"--config", config(broker.address(), "to_mqtt: [x]\nstale: keep\n")});
    ASSERT_TRUE(subscriber.waitFor("b/v/x", "1"));
    host.reset();
    ASSERT_TRUE(subscriber.waitFor("b/$host", "down"));
    EXPECT_TRUE(Subscriber(broker.port()).waitFor("b/v/x", "1"));
    host = std::make_unique<LoopbackHost>(hostOptions());
    host->setValue("x", real(2));
    EXPECT_TRUE(subscriber.waitFor("b/$host", "up"));
    EXPECT_TRUE(subscriber.waitFor("b/v/x", "2"));
}

TEST_F(Reconnect, ValuesAreClearedWhileTheHostIsDown) {
    TestBroker broker;
    Subscriber subscriber(broker.port());
    auto host = std::make_unique<LoopbackHost>(hostOptions());
    host->setValue("x", real(1));
    subscriber.publishNow("b/v/y", "7", true);  // Of an earlier run.
    const Csmqtt csmqtt({"--config", config(broker.address(), "to_mqtt: [x, y]\nstale: clear\n")});
    ASSERT_TRUE(subscriber.waitFor("b/v/x", "1"));
    host.reset();
    ASSERT_TRUE(subscriber.waitFor("b/v/x", ""));
    ASSERT_TRUE(subscriber.waitFor("b/v/y", ""));
    const Subscriber late(broker.port());
    ASSERT_TRUE(late.waitFor("b/$host", "down"));
    EXPECT_TRUE(late.all("b/v/x").empty());
    // The same value as before the loss is published again.
    LoopbackHost::Options options = hostOptions();
    options.initialValues.emplace("x", real(1));
    host = std::make_unique<LoopbackHost>(options);
    EXPECT_TRUE(subscriber.waitFor("b/v/x", "1"));
    EXPECT_TRUE(subscriber.waitFor("b/v/y", "0"));
    EXPECT_EQ(subscriber.newest("b/$host"), "up");
}

TEST_F(Reconnect, ABrokerThatHangsIsLeftAndFoundAgain) {
    LoopbackHost host(hostOptions());
    TestBroker broker;
    Csmqtt csmqtt({"--config", config("{address: '" + broker.address() + "', keep-alive: 5s}", "to_mqtt: [x]\n")});
    {
        const Subscriber subscriber(broker.port());
        ASSERT_TRUE(subscriber.waitFor("b/v/x", "0"));
    }
    broker.hang();
    EXPECT_TRUE(csmqtt.waitForErr("the broker no longer answers; connecting again"));
    host.setValue("x", real(3));
    broker.resume();
    const Subscriber subscriber(broker.port());
    EXPECT_TRUE(subscriber.waitFor("b/v/x", "3"));
}

TEST_F(Reconnect, RandomRestartsEndWithTheSameStateOnBothSides) {
    std::mt19937_64 random(test::newSeed());
    const auto below = [&](std::uint64_t limit) { return random() % limit; };
    TestBroker broker;
    auto host = std::make_unique<LoopbackHost>(hostOptions());
    const std::string path = config(broker.address(), "to_mqtt: [a, b, {name: c, qos: 1}]\nfrom_mqtt: [d, e]\n");
    auto csmqtt = std::make_unique<Csmqtt>(std::vector<std::string>{"--config", path});
    std::map<std::string, float> last{{"a", 0.0F}, {"b", 0.0F}, {"c", 0.0F}};
    auto subscriber = std::make_unique<Subscriber>(broker.port());
    const std::size_t steps = test::sized<std::size_t>(40, 400);
    for (std::size_t step = 1; step <= steps; ++step) {
        const auto number = static_cast<float>(step);
        switch (below(12)) {
            case 0:
                subscriber.reset();
                broker.restart();
                subscriber = std::make_unique<Subscriber>(broker.port());
                break;
            case 1: {
                // The new host has no values. The test sets them again, as a simulator does.
                host.reset();
                host = std::make_unique<LoopbackHost>(hostOptions());
                for (const auto& [name, value] : last) {
                    host->setValue(name, real(value));
                }
                break;
            }
            case 2:
                csmqtt = std::make_unique<Csmqtt>(std::vector<std::string>{"--config", path});
                break;
            case 3:
                host->dropClients(LoopbackHost::DropMode::RESET);
                break;
            case 4:
            case 5:
                subscriber->publish("b/set/" + std::string(1, static_cast<char>('d' + below(2))),
                                    std::to_string(number));
                break;
            default: {
                const std::string name(1, static_cast<char>('a' + below(3)));
                last[name] = number;
                host->setValue(name, real(number));
                std::this_thread::sleep_for(std::chrono::milliseconds(below(20)));
                break;
            }
        }
    }
    EXPECT_TRUE(commandUntilStored(*subscriber, *host, "d", -1));
    EXPECT_TRUE(commandUntilStored(*subscriber, *host, "e", -2));
    for (const auto& [name, value] : last) {
        const std::string expected = std::to_string(static_cast<int>(value));
        EXPECT_TRUE(subscriber->waitFor("b/v/" + name, expected, 2 * kWaitBound))
            << name << " is " << subscriber->newest("b/v/" + name) << " instead of " << expected;
        EXPECT_EQ(*host->value(name), real(value));
    }
    EXPECT_TRUE(subscriber->waitFor("b/$state", "online"));
    EXPECT_TRUE(subscriber->waitFor("b/$host", "up"));
    EXPECT_EQ(*host->value("d"), real(-1));
}

}  // namespace com_tesk::mqtt_test
