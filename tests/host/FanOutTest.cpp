#include <gtest/gtest.h>

#include "host/LoopbackHost.h"
#include "tests/host/EventLog.h"
#include "tests/host/RawClient.h"

namespace com_tesk::host_test {
namespace {

TEST(FanOut, APublishedFloatReachesEverySubscriberUnderItsOwnId) {
    LoopbackHost host({});
    RawClient publisher(host.port());
    RawClient one(host.port());
    RawClient two(host.port());
    publisher.ask(registerFloat("A"));
    one.ask(subscribeFloat("A"));
    two.ask(subscribeFloat("X"));
    two.ask(subscribeFloat("A"));
    publisher.send(
        hex("00000044 00000020 00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF"
            "04027FFF 00000024 007F0003 00050000 00000000 00000001 00000001 00000000 3FC00000"));
    EXPECT_EQ(text(one.receiveFrame()),
              text(hex("00000044 00000020 00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF"
                       "04027FFF 00000024 007F0003 00050000 00000000 00000001 00000001 00000000 "
                       "3FC00000")));
    EXPECT_EQ(text(two.receiveFrame()), text(update("00000002 00000000 3FC00000")));
    EXPECT_EQ(host.value("A"), HostValue::real(1.5F));
}

TEST(FanOut, APublishedIntegerReachesSubscribersAsInteger) {
    LoopbackHost host({});
    RawClient publisher(host.port());
    RawClient subscriber(host.port());
    publisher.ask(registerInteger("A"));
    subscriber.ask(subscribeInteger("A"));
    publisher.send(publish("00000001 00000001 FFFFFFFE"));
    EXPECT_EQ(text(subscriber.receiveFrame()), text(update("00000001 00000001 FFFFFFFE")));
    EXPECT_EQ(host.value("A"), HostValue::integer(-2));
}

TEST(FanOut, TheRegisteredTypeCountsAndNotTheRecordsFlag) {
    LoopbackHost host({});
    RawClient publisher(host.port());
    RawClient subscriber(host.port());
    publisher.ask(registerInteger("A"));
    publisher.ask(registerFloat("B"));
    subscriber.ask(subscribeFloat("A"));
    subscriber.ask(subscribeInteger("B"));
    publisher.send(publish("00000001 00000000 0000002A"));
    EXPECT_EQ(text(subscriber.receiveFrame()), text(update("00000001 00000001 0000002A")));
    publisher.send(publish("00000002 00000001 3F800000"));
    EXPECT_EQ(text(subscriber.receiveFrame()), text(update("00000002 00000000 3F800000")));
}

TEST(FanOut, RegisteringAgainWithAnotherTypeCountsFromThenOn) {
    LoopbackHost host({});
    RawClient client(host.port());
    client.ask(registerFloat("A"));
    client.ask(registerInteger("A"));
    client.send(publish("00000001 00000001 00000007"));
    EXPECT_TRUE(host.waitForValue("A", HostValue::integer(7), kPatience));
}

TEST(FanOut, APublisherThatIsSubscribedGetsItsOwnUpdate) {
    LoopbackHost host({});
    RawClient client(host.port());
    client.ask(registerFloat("A"));
    client.ask(subscribeFloat("A"));
    EXPECT_EQ(text(client.ask(publish("00000001 00000000 3F800000"))), text(update("00000002 00000000 3F800000")));
}

TEST(FanOut, ValuesOfOneRequestArriveInOneUpdateInTheirOrder) {
    LoopbackHost host({});
    RawClient publisher(host.port());
    RawClient subscriber(host.port());
    publisher.ask(registerFloat("A"));
    publisher.ask(registerInteger("B"));
    publisher.ask(registerFloat("UNHEARD"));
    subscriber.ask(subscribeFloat("B"));
    subscriber.ask(subscribeFloat("A"));
    publisher.send(request(0x03, hex("00050000 00000000 00000004"
                                     "00000001 00000000 3F800000 00000003 00000000 3F800000"
                                     "00000002 00000001 00000009 00000001 00000000 40000000")));
    EXPECT_EQ(text(subscriber.receiveFrame()), text(frame(hex("04027FFF 0000003C 007F0003 00050000 00000000 00000003"
                                                              "00000002 00000000 3F800000 00000001 00000001 00000009"
                                                              "00000002 00000000 40000000"))));
}

TEST(FanOut, AnUpdateCarriesTheSubscribersOwnSimulatorId) {
    LoopbackHost host({});
    RawClient publisher(host.port());
    RawClient subscriber(host.port());
    publisher.ask(registerFloat("A"));
    subscriber.ask(request(0x01, joined({hex("7FFF0000 00000001 00000000 00000000 00000000"), nameField("A")})));
    publisher.send(publish("00000001 00000000 3F800000"));
    EXPECT_EQ(text(subscriber.receiveFrame()), text(frame(hex("04027FFF 00000024 007F0003 7FFF0000 00000000 00000001"
                                                              "00000001 00000000 3F800000"))));
}

TEST(FanOut, ALaterSubscriberIsAnsweredWithWhatWasPublished) {
    LoopbackHost host({});
    {
        RawClient publisher(host.port());
        publisher.ask(registerInteger("A"));
        publisher.send(publish("00000001 00000001 00000011"));
        ASSERT_TRUE(host.waitForValue("A", HostValue::integer(17), kPatience));
    }
    ASSERT_TRUE(host.waitForClients(0, kPatience));
    RawClient subscriber(host.port());
    EXPECT_EQ(text(subscriber.ask(subscribeFloat("A"))),
              text(frame(joined({hex("04027FFF 00000048 007F0101 00050000 00000001"),
                                 hex("00000001 00002EE0 00002EE0 00000001 00000011"), nameField("A")}))));
}

TEST(FanOut, AnUnsubscribedInputGetsNothingMore) {
    LoopbackHost host({});
    RawClient client(host.port());
    client.ask(registerFloat("A"));
    client.ask(subscribeFloat("A"));
    client.send(unsubscribe("00000002"));
    client.send(publish("00000001 00000000 3F800000"));
    // Were there an update, it would come in front of this answer.
    EXPECT_EQ(client.ask(versionRequest()).size(), 184U);
    EXPECT_EQ(host.subscriberCount("A"), 0U);
}

TEST(FanOut, AnUnregisteredOutputCannotBePublished) {
    EventLog log;
    HostOptions options;
    options.eventSink = log.sink();
    LoopbackHost host(options);
    RawClient client(host.port());
    client.ask(registerFloat("A"));
    client.send(unregister("00000001"));
    client.send(publish("00000001 00000000 3F800000"));
    EXPECT_TRUE(log.waitFor("client 1 publish names unknown id 1, record ignored"));
    EXPECT_FALSE(host.value("A").has_value());
}

TEST(FanOut, UnknownIdsInAPublishAreToldAndTheOtherRecordsHonoured) {
    EventLog log;
    HostOptions options;
    options.eventSink = log.sink();
    LoopbackHost host(options);
    RawClient client(host.port());
    client.ask(registerFloat("A"));
    client.ask(subscribeFloat("A"));
    const Bytes request3 = request(0x03, hex("00050000 00000000 00000003"
                                             "000FFFFF 00000000 40000000"
                                             "00000001 00000000 3F800000"
                                             "00000002 00000000 40400000"));
    EXPECT_EQ(text(client.ask(request3)), text(update("00000002 00000000 3F800000")));
    EXPECT_TRUE(log.has("client 1 publish names unknown id 1048575, record ignored"));
    EXPECT_TRUE(log.has("client 1 publish names unknown id 2, record ignored")) << "an input's id is no output's";
    EXPECT_EQ(client.ask(versionRequest()).size(), 184U);
}

TEST(FanOut, OddFloatsPassThroughBitByBit) {
    LoopbackHost host({});
    RawClient client(host.port());
    client.ask(registerFloat("A"));
    client.ask(subscribeFloat("A"));
    for (const char* bits : {"7FC00001", "FF800000", "80000000", "00000001", "7F800001"}) {
        const std::string record = std::string("00000000 ") + bits;
        EXPECT_EQ(text(client.ask(publish("00000001 " + record))), text(update("00000002 " + record)));
    }
}

TEST(FanOut, AValueSetByTheHostsUserIsSentToSubscribers) {
    LoopbackHost host({});
    RawClient subscriber(host.port());
    subscriber.ask(subscribeFloat("A"));
    host.setValue("A", HostValue::integer(5));
    EXPECT_EQ(text(subscriber.receiveFrame()), text(update("00000001 00000001 00000005")));
    EXPECT_EQ(host.value("A"), HostValue::integer(5));
}

TEST(FanOut, PublishesAndUpdatesAreToldWithNamesAndValues) {
    EventLog log;
    HostOptions options;
    options.eventSink = log.sink();
    LoopbackHost host(options);
    RawClient publisher(host.port());
    publisher.ask(registerFloat("A"));
    RawClient subscriber(host.port());
    subscriber.ask(subscribeFloat("A"));
    publisher.send(publish("00000001 00000000 41480000"));
    subscriber.receiveFrame();
    EXPECT_TRUE(log.has("client 1 published A = 12.5 (float, output id 1)"));
    EXPECT_TRUE(log.has("client 2 update A = 12.5 (float, input id 1)"));
}

}  // namespace
}  // namespace com_tesk::host_test
