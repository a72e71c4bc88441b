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

TEST_F(Conflict, OfOneIdIsOnlyAssumedWithoutReasonsOfTheBroker) {
    LoopbackHost host(hostOptions());
    TestBroker broker;
    const std::string path = config("{address: '" + broker.address() + "', protocol: 3.1.1}", "to_mqtt: [x]\n");
    Csmqtt first({"--config", path});
    ASSERT_TRUE(first.waitForErr("connected as csmqtt-b"));
    Csmqtt second({"--config", path});
    // They take the connection from each other, less and less often.
    EXPECT_TRUE(first.waitForErr("; does another client use the client id csmqtt-b?"));
    second.expectCleanEnd();
    const Subscriber subscriber(broker.port());
    EXPECT_TRUE(subscriber.waitFor("b/$state", "online"));
    first.expectCleanEnd();
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
