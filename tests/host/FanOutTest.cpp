#include "tests/host/HostTest.h"

namespace com_tesk::host_test {
namespace {

class FanOut : public HostTest {};

TEST_F(FanOut, AValueReachesEverySubscriberUnderItsOwnId) {
    Client publisher = connect();
    publisher.ask(registerOutput("A"));
    Client one = connect();
    one.ask(subscribe("A"));
    Client two = connect();
    two.ask(subscribe("X"));
    two.ask(subscribe("A"));
    publisher.send(
        "00000044 00000020 00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF"
        "04027FFF 00000024 007F0003 00050000 00000000 00000001 00000001 00000000 41480000");
    EXPECT_EQ(one.receiveFrame(),
              hexText(hex("00000044 00000020 00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF"
                          "04027FFF 00000024 007F0003 00050000 00000000 00000001 00000001 00000000 41480000")));
    EXPECT_EQ(two.receiveFrame(), update("00000002 00000000 41480000"));
    EXPECT_EQ(host().value("A"), HostValue::real(12.5F));
    EXPECT_TRUE(log.has("client 1 published A = 12.5 (float, output id 1)"));
    EXPECT_TRUE(log.has("client 2 update A = 12.5 (float, input id 1)"));
}

TEST_F(FanOut, AValueHasTheTypeOfItsOutput) {
    Client publisher = connect();
    publisher.ask(registerOutput("A", true));
    publisher.ask(registerOutput("B"));
    Client subscriber = connect();
    subscriber.ask(subscribe("A"));
    subscriber.ask(subscribe("B", true));
    publisher.send(publish("00000001 00000001 FFFFFFFE"));
    EXPECT_EQ(subscriber.receiveFrame(), update("00000001 00000001 FFFFFFFE"));
    EXPECT_EQ(host().value("A"), HostValue::integer(-2));
    // Neither the record's flag nor the subscriber's type counts.
    publisher.send(publish("00000001 00000000 0000002A"));
    EXPECT_EQ(subscriber.receiveFrame(), update("00000001 00000001 0000002A"));
    publisher.send(publish("00000002 00000001 3F800000"));
    EXPECT_EQ(subscriber.receiveFrame(), update("00000002 00000000 3F800000"));
    publisher.ask(registerOutput("B", true));
    publisher.send(publish("00000002 00000000 00000007"));
    EXPECT_EQ(subscriber.receiveFrame(), update("00000002 00000001 00000007"));
}

TEST_F(FanOut, ASubscribedPublisherReceivesItsOwnValuesBitByBit) {
    Client client = connect();
    client.ask(registerOutput("A"));
    client.ask(subscribe("A"));
    for (const char* bits : {"3F800000", "7FC00001", "FF800000", "80000000", "00000001", "7F800001"}) {
        const std::string record = std::string("00000000 ") + bits;
        EXPECT_EQ(client.ask(publish("00000001 " + record)), update("00000002 " + record));
    }
}

TEST_F(FanOut, OneRequestCausesOneUpdateWithTheSubscribersId) {
    Client publisher = connect();
    publisher.ask(registerOutput("A"));
    publisher.ask(registerOutput("B", true));
    publisher.ask(registerOutput("UNSUBSCRIBED"));
    Client subscriber = connect();
    subscriber.ask(request("01", "FFFF0000 00000002 00000000 00000000 00000000" + hexField("B") +
                                     "00000000 00000000 00000000" + hexField("A")));
    publisher.send(request("03",
                           "00050000 00000009 00000004"
                           "00000001 00000000 3F800000 00000003 00000000 3F800000"
                           "00000002 00000001 00000009 00000001 00000000 40000000"));
    EXPECT_EQ(subscriber.receiveFrame(), frame("04027FFF 0000003C 007F0003 FFFF0000 00000000 00000003"
                                               "00000002 00000000 3F800000 00000001 00000001 00000009"
                                               "00000002 00000000 40000000"));
}

TEST_F(FanOut, AValueStaysWhenItsPublisherLeaves) {
    Client publisher = connect();
    publisher.ask(registerOutput("A", true));
    publisher.send(publish("00000001 00000001 00000011"));
    ASSERT_TRUE(host().waitForValue("A", HostValue::integer(17), kBound));
    publisher.close();
    ASSERT_TRUE(host().waitForClients(0, kBound));
    Client subscriber = connect();
    EXPECT_EQ(subscriber.ask(subscribe("A")), inputReply("00000001", "00000001 00000011", "A"));
}

TEST_F(FanOut, UnknownIdsAreReportedAndTheOtherRecordsProcessed) {
    Client client = connect();
    client.ask(registerOutput("A"));
    client.ask(subscribe("A"));
    client.ask(registerOutput("UNREGISTERED"));
    client.send(unregister("00000003"));
    EXPECT_EQ(client.ask(request("03",
                                 "00050000 00000000 00000004 000FFFFF 00000000 40000000 00000003 00000000 40000000"
                                 "00000001 00000000 3F800000 00000002 00000000 40400000")),
              update("00000002 00000000 3F800000"));
    EXPECT_TRUE(log.has("client 1 publish names unknown id 1048575, record ignored"));
    EXPECT_TRUE(log.has("client 1 publish names unknown id 3, record ignored"));
    EXPECT_TRUE(log.has("client 1 publish names unknown id 2, record ignored")) << "the id of an input";
    EXPECT_FALSE(host().value("UNREGISTERED").has_value());
    EXPECT_TRUE(isServed(client));
}

class SplitStream : public HostTest {
  protected:
    void expectReplies(Client& client) {
        EXPECT_EQ(client.receiveFrame(), versionReply("00050000", "csclient loopback host", "00000001"));
        EXPECT_EQ(client.receiveFrame(), inputReply("00000001", "00000000 00000000", "A"));
        EXPECT_EQ(client.receiveFrame(), outputReply("00000002", "00000000", "A"));
        EXPECT_EQ(client.receiveFrame(), update("00000001 00000000 3F800000"));
        // The second publication causes no update, because the client has unsubscribed.
        EXPECT_EQ(client.receiveFrame(), outputReply("00000003", "00000000", "A"));
    }

    const Bytes session = hex(versionRequest() + subscribe("A") + registerOutput("A") +
                              publish("00000002 00000000 3F800000") + unsubscribe("00000001") +
                              publish("00000002 00000000 40000000") + unregister("00000002") + registerOutput("A"));
};

TEST_F(SplitStream, IsServedTheSameAtEverySplit) {
    for (std::size_t split = 0; split < session.size() && !HasFailure(); ++split) {
        SCOPED_TRACE(split);
        host().setValue("A", HostValue::real(0.0F));
        const auto middle = session.begin() + static_cast<std::ptrdiff_t>(split);
        Client client = connect();
        client.send(Bytes(session.begin(), middle));
        client.send(Bytes(middle, session.end()));
        expectReplies(client);
    }
}

TEST_F(SplitStream, IsServedTheSameByteByByte) {
    Client client = connect();
    for (const std::uint8_t byte : session) {
        client.send(Bytes{byte});
    }
    expectReplies(client);
}

}  // namespace
}  // namespace com_tesk::host_test
