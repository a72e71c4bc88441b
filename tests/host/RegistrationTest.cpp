#include "tests/host/HostTest.h"

namespace com_tesk::host_test {
namespace {

class VersionExchange : public HostTest {
  protected:
    VersionExchange() {
        options.versionText = "Host 7";
        options.protocolVersion = 3;
    }
};

TEST_F(VersionExchange, AnswersTheClientsOwnSimulatorId) {
    Client client = connect();
    EXPECT_EQ(client.ask("00000034 00000020 00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF"
                         "04027FFF 00000014 007F0006 80010000 00000000"),
              hexText(hex("000000B8 00000020 00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF"
                          "04027FFF 00000098 007F0106 80010000 486F73742037" +
                          hexText(Bytes(122)) + "00000003 00000001")));
}

TEST_F(VersionExchange, AnswersTheAssignedSimulatorIdInstead) {
    for (const auto& [id, word] : {std::pair{40000, "9C400000"}, std::pair{0, "00000000"}}) {
        options.assignId = static_cast<std::uint16_t>(id);
        const LoopbackHost assigning(options);
        Client client(assigning.port());
        EXPECT_EQ(client.ask(versionRequest()), versionReply(word, "Host 7", "00000003"));
        EXPECT_EQ(client.ask(versionRequest()), versionReply(word, "Host 7", "00000003"));
    }
}

TEST_F(VersionExchange, CutsTheVersionTextTo128Bytes) {
    options.versionText = std::string(127, 'x') + "yz";
    options.protocolVersion = 0xFFFFFFFF;
    Client client = connect();
    EXPECT_EQ(client.ask(versionRequest()), versionReply("00050000", std::string(127, 'x') + "y", "FFFFFFFF"));
}

TEST_F(VersionExchange, ReportsTheAnswerAndAChangedSimulatorId) {
    Client client = connect();
    client.ask(versionRequest());
    client.ask(request("06", "00070000 00000000"));
    EXPECT_TRUE(log.has("client 1 asked for the version, answered simulator id 5 to its 5, protocol version 3"));
    EXPECT_EQ(log.count("client 1 carries simulator id 7 now"), 1U);
    EXPECT_EQ(log.count("carries simulator id"), 1U);
}

class Registration : public HostTest {};

TEST_F(Registration, InputsAreConfirmedInTheirOrderWithTheStoredValues) {
    options.initialValues = {{"A", HostValue::real(1.0F)}, {"B", HostValue::integer(-2)}};
    Client client = connect();
    // A and B have the other type at the host. It stores no values for C and for the name of 32 bytes.
    const std::string longName = hexField(std::string(32, 'n'));
    EXPECT_EQ(client.ask("000000E4 00000020 00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF"
                         "04027FFF 000000C4 007F0001 00050000 00000004"
                         "00002EE0 0001D4C0 00000001" +
                         hexField("A") + "0001D4C0 0001D4C0 00000000" + hexField("B") + "00002EE0 00002EE0 00000001" +
                         hexField("C") + "00002EE0 00002EE0 00000000" + longName),
              hexText(hex("00000104 00000020 00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF"
                          "04027FFF 000000E4 007F0101 00050000 00000004"
                          "00000001 00002EE0 0001D4C0 00000000 3F800000" +
                          hexField("A") + "00000002 0001D4C0 0001D4C0 00000001 FFFFFFFE" + hexField("B") +
                          "00000003 00002EE0 00002EE0 00000001 00000000" + hexField("C") +
                          "00000004 00002EE0 00002EE0 00000000 00000000" + longName)));
    EXPECT_EQ(host().value("A"), HostValue::real(1.0F));
    EXPECT_FALSE(host().value("C").has_value());
}

TEST_F(Registration, OutputsAreConfirmedInTheirOrder) {
    Client client = connect();
    const std::string longName = hexField(std::string(32, 'n'));
    EXPECT_EQ(client.ask("00000084 00000020 00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF"
                         "04027FFF 00000064 007F0002 00050000 00000002 000004B0 00000001" +
                         longName + "000004B1 00000000" + hexField("A")),
              hexText(hex("00000094 00000020 00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF"
                          "04027FFF 00000074 007F0102 00050000 00000002 00000001 000004B0 00000001 00000000" +
                          longName + "00000002 000004B1 00000000 00000000" + hexField("A"))));
}

TEST_F(Registration, NoRecordsAreConfirmedWithNoRecords) {
    Client client = connect();
    EXPECT_EQ(client.ask(request("01", "00050000 00000000")), frame("04027FFF 00000014 007F0101 00050000 00000000"));
    EXPECT_EQ(client.ask(request("02", "00050000 00000000")), frame("04027FFF 00000014 007F0102 00050000 00000000"));
}

TEST_F(Registration, EachClientHasOneSequenceOfIdsForInputsAndOutputs) {
    Client one = connect();
    Client two = connect();
    EXPECT_EQ(one.ask(subscribe("A")), inputReply("00000001", "00000000 00000000", "A"));
    EXPECT_EQ(one.ask(registerOutput("A")), outputReply("00000002", "00000000", "A"));
    EXPECT_EQ(two.ask(registerOutput("B")), outputReply("00000001", "00000000", "B"));
}

TEST_F(Registration, ANameKeepsItsIdUntilItIsUnregistered) {
    Client client = connect();
    client.ask(registerOutput("A"));
    client.ask(subscribe("B"));
    EXPECT_EQ(client.ask(registerOutput("A")), outputReply("00000001", "00000000", "A"));
    EXPECT_EQ(client.ask(subscribe("B")), inputReply("00000002", "00000000 00000000", "B"));
    client.send(unregister("00000001"));
    EXPECT_EQ(client.ask(registerOutput("A")), outputReply("00000003", "00000000", "A"));
}

TEST_F(Registration, IsReportedAndSoAreUnknownIds) {
    Client client = connect();
    client.ask(subscribe("A"));
    client.ask(registerOutput("B", true));
    client.ask(registerOutput("C"));
    client.send(request("04", "00050000 00000002 000FFFFF 00000001"));
    client.send(request("05", "00050000 00000002 00000001 00000002"));
    EXPECT_TRUE(log.waitFor("client 1 unregistered output B (output id 2)"));
    EXPECT_TRUE(log.has("client 1 subscribed to A = 0 (float, input id 1)"));
    EXPECT_TRUE(log.has("client 1 registered output B (integer, output id 2)"));
    EXPECT_TRUE(log.has("client 1 registered output C (float, output id 3)"));
    EXPECT_TRUE(log.has("client 1 unsubscribed from A (input id 1)"));
    EXPECT_EQ(host().subscriberCount("A"), 0U);
    EXPECT_TRUE(log.has("client 1 input unsubscription names unknown id 1048575, record ignored"));
    EXPECT_TRUE(log.has("client 1 output unregistration names unknown id 1, record ignored"));
}

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
