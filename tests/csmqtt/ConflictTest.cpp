#include "tests/csmqtt/support/Csmqtt.h"

namespace com_tesk::mqtt_test {

namespace {

using Conflict = BridgeTest;

constexpr int kConflict = 3;

}  // namespace

TEST_F(Conflict, OfTwoBridgesWithOneIdTheFirstEnds) {
    LoopbackHost host(hostOptions());
    TestBroker broker;
    const Subscriber subscriber(broker.port());
    const std::string path = config(broker.address(), "to_mqtt: [x]\n");
    Csmqtt first({"--config", path});
    ASSERT_TRUE(subscriber.waitFor("b/$state", "online"));
    Csmqtt second({"--config", path});
    EXPECT_EQ(first.exitCode(), kConflict);
    // Some brokers say that the client id was taken over, others only close the connection.
    EXPECT_NE(first.errText().find(": another bridge has the base b; this one ends"), std::string::npos)
        << first.errText();
    EXPECT_TRUE(subscriber.waitFor("b/$state", "online"));
    host.setValue("x", HostValue::real(1));
    EXPECT_TRUE(subscriber.waitFor("b/v/x", "1"));
    EXPECT_TRUE(subscriber.waitFor("b/$state", "online"));
    second.expectCleanEnd();
}

TEST_F(Conflict, IsSeenWithDifferentIdsToo) {
    LoopbackHost host(hostOptions());
    TestBroker broker;
    for (const std::string protocol : {"'5'", "3.1.1"}) {
        const Subscriber subscriber(broker.port());
        const auto settings = [&](const std::string& id) {
            std::string text = "{address: '" + broker.address();
            return text.append("', protocol: ").append(protocol).append(", client-id: ").append(id).append("}");
        };
        Csmqtt first({"--config", config(settings("one"), "to_mqtt: [x]\n", "one.yaml")});
        ASSERT_TRUE(first.waitForErr("connected as one"));
        ASSERT_TRUE(subscriber.waitFor("b/$state", "online"));
        Csmqtt second({"--config", config(settings("two"), "to_mqtt: [x]\n", "two.yaml")});
        EXPECT_EQ(first.exitCode(), kConflict) << protocol << first.errText();
        EXPECT_NE(first.errText().find("another bridge has published online to b/$state"), std::string::npos);
        ASSERT_TRUE(second.waitForErr("connected as two"));
        second.expectCleanEnd();
        ASSERT_TRUE(subscriber.waitFor("b/$state", "offline"));
    }
}

TEST_F(Conflict, OfOneIdEndsOneBridgeWithoutReasonsToo) {
    LoopbackHost host(hostOptions());
    TestBroker broker;
    const Subscriber subscriber(broker.port());
    const std::string path = config("{address: '" + broker.address() + "', protocol: 3.1.1}", "to_mqtt: [x]\n");
    Csmqtt first({"--config", path});
    ASSERT_TRUE(first.waitForErr("connected as csmqtt-b"));
    ASSERT_TRUE(subscriber.waitFor("b/v/x", "0"));
    Csmqtt second({"--config", path});
    // The broker closes the connection of the first one, which connects again and finds the second one's statistics.
    EXPECT_EQ(first.exitCode(), kConflict) << first.errText();
    EXPECT_NE(first.errText().find("another bridge has published to b/$stats since this one has started"),
              std::string::npos)
        << first.errText();
    // The second one has lost its connection meanwhile. It comes back and stays.
    host.setValue("x", HostValue::real(1));
    EXPECT_TRUE(subscriber.waitFor("b/v/x", "1"));
    EXPECT_TRUE(subscriber.waitFor("b/$state", "online"));
    second.expectCleanEnd();
    EXPECT_TRUE(subscriber.waitFor("b/$state", "offline"));
}

TEST_F(Conflict, IsNotSeenInStatisticsOfAnEarlierRun) {
    LoopbackHost host(hostOptions());
    TestBroker broker;
    const Subscriber subscriber(broker.port());
    Csmqtt csmqtt({"--config", config("{address: '" + broker.address() + "', protocol: 3.1.1}", "to_mqtt: [x]\n")});
    ASSERT_TRUE(subscriber.waitFor("b/v/x", "0"));
    {
        // Another client takes the connection away, and leaves statistics as a broker restores them from a file.
        Subscriber other(broker.port(), "none", "csmqtt-b");
        other.publishNow("b/$stats", R"({"run":"1000000000000-1"})", true);
    }
    ASSERT_TRUE(csmqtt.waitForErr("connecting again"));
    ASSERT_TRUE(subscriber.waitForPart("b/$stats", R"("broker_connects":2)"));
    host.setValue("x", HostValue::real(1));
    EXPECT_TRUE(subscriber.waitFor("b/v/x", "1"));
    csmqtt.expectCleanEnd();
}

TEST_F(Conflict, IsNotSeenInStatisticsOfAClockThatWasAhead) {
    LoopbackHost host(hostOptions());
    TestBroker broker;
    Subscriber subscriber(broker.port());
    subscriber.publishNow("b/$stats", R"({"run":"9000000000000-1"})", true);
    Csmqtt csmqtt({"--config", config("{address: '" + broker.address() + "', protocol: 3.1.1}", "to_mqtt: [x]\n")});
    // The statistics of this run come after the retained ones, and take their place.
    ASSERT_TRUE(subscriber.waitForPart("b/$stats", R"("broker_connects":1)"));
    host.setValue("x", HostValue::real(1));
    EXPECT_TRUE(subscriber.waitFor("b/v/x", "1"));
    csmqtt.expectCleanEnd();
}

TEST_F(Conflict, IsNotSeenInTheStateOfAnEarlierRun) {
    LoopbackHost host(hostOptions());
    TestBroker broker;
    Subscriber subscriber(broker.port());
    subscriber.publishNow("b/$state", "online", true);
    Csmqtt csmqtt({"--config", config(broker.address(), "to_mqtt: [x]\n")});
    ASSERT_TRUE(subscriber.waitFor("b/v/x", "0"));
    // Statistics come after the retained state.
    ASSERT_TRUE(subscriber.waitForPart("b/$stats", R"("broker_connects":1)"));
    csmqtt.expectCleanEnd();
}

}  // namespace com_tesk::mqtt_test
