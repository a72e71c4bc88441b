#include <gmock/gmock.h>

#include <system_error>

#include "tests/host/HostTest.h"

namespace com_tesk::host_test {
namespace {

class LoopbackHostTest : public HostTest {};

TEST_F(LoopbackHostTest, ListensOnTheGivenAddressOnly) {
    options.listenAddress = "127.1.2.3";
    Client client(host().port(), "127.1.2.3");
    EXPECT_TRUE(isServed(client));
    EXPECT_THROW(connect(), std::system_error);
}

TEST_F(LoopbackHostTest, NamesThePortThatIsInUse) {
    Client client = connect();
    options.port = host().port();
    const std::string line = "cannot listen on 127.0.0.1:" + std::to_string(options.port) + ": Address already in use";
    EXPECT_THAT([&] { LoopbackHost{options}; },
                testing::Throws<std::system_error>(
                    testing::AllOf(testing::Property(&std::system_error::code, std::errc::address_in_use),
                                   testing::Property(&std::system_error::what, testing::StrEq(line)))));
    EXPECT_TRUE(isServed(client));
}

TEST_F(LoopbackHostTest, CanListenOnThePortOfAHostThatJustStopped) {
    for (int round = 0; round < 5; ++round) {
        SCOPED_TRACE(round);
        LoopbackHost host(options);
        options.port = host.port();
        Client client(host.port());
        EXPECT_TRUE(isServed(client));
        host.stop();
        EXPECT_EQ(client.end(), Client::End::CLOSED);
    }
}

TEST_F(LoopbackHostTest, StopClosesClientsAndPortAndKeepsTheValues) {
    Client one = connect();
    Client two = connect();
    ASSERT_TRUE(host().waitForClients(2, kBound));
    host().stop();
    EXPECT_EQ(one.end(), Client::End::CLOSED);
    EXPECT_EQ(two.end(), Client::End::CLOSED);
    EXPECT_THROW(connect(), std::system_error);
    EXPECT_EQ(host().clientCount(), 0U);
    EXPECT_EQ(log.count("dropped: the host stops"), 2U);

    host().stop();
    host().setValue("A", HostValue::integer(1));
    EXPECT_EQ(host().value("A"), HostValue::integer(1));
    EXPECT_EQ(host().dropClients(LoopbackHost::DropMode::RESET), 0U);
    EXPECT_EQ(log.all().back(), "host stopped");
}

TEST_F(LoopbackHostTest, DropClientsClosesEveryConnection) {
    Client one = connect();
    Client two = connect();
    ASSERT_TRUE(host().waitForClients(2, kBound));
    EXPECT_EQ(host().dropClients(LoopbackHost::DropMode::GRACEFUL), 2U);
    EXPECT_EQ(host().clientCount(), 0U);
    EXPECT_EQ(one.end(), Client::End::CLOSED);
    EXPECT_EQ(two.end(), Client::End::CLOSED);
    Client three = connect();
    EXPECT_TRUE(isServed(three));
    EXPECT_EQ(host().dropClients(LoopbackHost::DropMode::RESET), 1U);
    EXPECT_EQ(three.end(), Client::End::RESET);
}

TEST_F(LoopbackHostTest, WaitsEndWithoutSuccessAtTheirLimit) {
    EXPECT_FALSE(host().waitForValue("A", HostValue::integer(1), std::chrono::milliseconds(20)));
    EXPECT_FALSE(host().waitForClients(1, std::chrono::milliseconds(20)));
    EXPECT_FALSE(host().waitForSubscribers("A", 1, std::chrono::milliseconds(20)));
    EXPECT_TRUE(host().waitForClients(0, std::chrono::milliseconds(0)));
}

TEST_F(LoopbackHostTest, AWaitSeesValuesThatOtherThreadsSet) {
    LoopbackHost& shared = host();
    std::vector<std::thread> setters;
    for (int t = 0; t < 4; ++t) {
        setters.emplace_back([&shared, t] {
            for (int i = 0; i < 50; ++i) {
                shared.setValue("V" + std::to_string(t), HostValue::integer(i));
            }
        });
    }
    for (int t = 0; t < 4; ++t) {
        EXPECT_TRUE(shared.waitForValue("V" + std::to_string(t), HostValue::integer(49), kBound));
    }
    for (std::thread& setter : setters) {
        setter.join();
    }
}

TEST_F(LoopbackHostTest, TheEventSinkMaySetAndReadValues) {
    options.eventSink = [this](const HostEvent& event) {
        if (event.kind == HostEvent::Kind::PUBLISHED && event.name == "A") {
            host().setValue("B", host().value("A").value_or(HostValue::integer(1)));
        }
    };
    Client client = connect();
    ASSERT_TRUE(host().waitForClients(1, kBound));  // Its lock orders the sink's use of host() after the construction.
    client.ask(subscribe("A"));
    client.ask(subscribe("B"));
    client.ask(registerOutput("A"));
    EXPECT_EQ(client.ask(publish("00000003 00000000 3F800000")), update("00000001 00000000 3F800000"));
    EXPECT_EQ(client.receiveFrame(), update("00000002 00000001 00000001")) << "A is reported before it is stored";
}

TEST_F(LoopbackHostTest, ValuesThatAreSetTogetherAreOneMessage) {
    Client client = connect();
    client.ask(subscribe("A"));
    client.ask(subscribe("B"));
    host().setValues({{"A", HostValue::real(1)}, {"Z", HostValue::real(9)}, {"B", HostValue::integer(2)}});
    EXPECT_EQ(client.receiveFrame(), frame("04027FFF 00000030 007F0003 00050000 00000000 00000002"
                                           "00000001 00000000 3F800000 00000002 00000001 00000002"));
    EXPECT_EQ(host().value("Z"), HostValue::real(9));
}

TEST_F(LoopbackHostTest, ValuesThatAreNotSharedAreOnlyReported) {
    options.areValuesShared = false;
    Client client = connect();
    client.ask(subscribe("A"));
    client.ask(registerOutput("A"));
    client.send(publish("00000002 00000000 3F800000"));
    client.ask(versionRequest());
    EXPECT_EQ(log.count("published A = 1"), 1U);
    EXPECT_FALSE(host().value("A").has_value());
    host().setValue("A", HostValue::real(2));
    EXPECT_EQ(client.receiveFrame(), update("00000001 00000000 40000000")) << "the publication was not sent";
}

TEST_F(LoopbackHostTest, SendsASetValueToTwoHundredClients) {
    constexpr std::size_t kClients = 200;
    std::vector<std::unique_ptr<Client>> clients;
    for (std::size_t i = 0; i < kClients; ++i) {
        clients.push_back(std::make_unique<Client>(host().port()));
        clients.back()->send(subscribe("A"));
    }
    EXPECT_TRUE(host().waitForSubscribers("A", kClients, kBound));
    EXPECT_EQ(host().clientCount(), kClients);
    host().setValue("A", HostValue::integer(5));
    EXPECT_EQ(host().value("A"), HostValue::integer(5));
    for (const auto& client : clients) {
        EXPECT_EQ(client->receiveFrame(), inputReply("00000001", "00000000 00000000", "A"));
        EXPECT_EQ(client->receiveFrame(), update("00000001 00000001 00000005"));
    }
    clients.clear();
    EXPECT_TRUE(host().waitForClients(0, kBound));
}

TEST_F(LoopbackHostTest, NumbersClientsInTheOrderOfTheirConnections) {
    host();
    EXPECT_EQ(log.all().front(), "host listening on 127.0.0.1:" + std::to_string(host().port()));
    connect().ask(versionRequest());
    ASSERT_TRUE(host().waitForClients(0, kBound));
    connect().ask(versionRequest());
    EXPECT_TRUE(log.has("client 1 connected from 127.0.0.1:"));
    EXPECT_TRUE(log.has("client 2 connected from 127.0.0.1:"));
}

class ClientFailures : public HostTest {};

TEST_F(ClientFailures, AClientThatClosesIsNoLongerCounted) {
    Client client = connect();
    client.ask(subscribe("A"));
    EXPECT_EQ(host().subscriberCount("A"), 1U);
    client.close();
    EXPECT_TRUE(host().waitForClients(0, kBound));
    EXPECT_EQ(host().subscriberCount("A"), 0U);
    EXPECT_EQ(log.all().back(), "client 1 disconnected");

    Client inMidFrame = connect();
    inMidFrame.send("00000034");
    inMidFrame.close();
    EXPECT_TRUE(log.waitFor("client 2 disconnected: in the middle of a frame"));
}

TEST_F(ClientFailures, AClientThatResetsIsReportedAndOthersAreServed) {
    Client other = connect();
    ASSERT_TRUE(host().waitForClients(1, kBound));
    Client client = connect();
    client.ask(subscribe("A"));
    client.reset();
    EXPECT_TRUE(log.waitFor("client 2 lost: Connection reset by peer"));
    EXPECT_TRUE(host().waitForSubscribers("A", 0, kBound));
    EXPECT_TRUE(isServed(other));
}

TEST_F(ClientFailures, RequestsBeforeAResetAreServed) {
    for (int round = 0; round < 20; ++round) {
        Client client = connect();
        client.ask(registerOutput("A", true));
        // Closing with unread replies resets the connection while the host writes.
        client.send(versionRequest() + versionRequest() + versionRequest());
        client.send(publish("00000001 00000001 0000000" + std::to_string(round % 10)));
        client.close();
        ASSERT_TRUE(host().waitForValue("A", HostValue::integer(round % 10), kBound)) << round;
    }
}

TEST_F(ClientFailures, AClientThatStallsInMidFrameIsDroppedAndAnIdleOneIsNot) {
    options.stallLimit = std::chrono::milliseconds(100);
    Client idle = connect();
    EXPECT_TRUE(isServed(idle));
    Client inHeader = connect();
    inHeader.send("00000034 00000020 0000");
    EXPECT_EQ(inHeader.end(), Client::End::CLOSED);
    Client inBody = connect();
    const std::string whole = versionRequest();
    inBody.send(whole.substr(0, whole.size() - 3));
    EXPECT_EQ(inBody.end(), Client::End::CLOSED);
    EXPECT_TRUE(log.has("client 2 dropped: stalled in the middle of a frame for 100 ms"));
    EXPECT_TRUE(log.has("client 3 dropped: stalled in the middle of a frame for 100 ms"));
    EXPECT_EQ(host().clientCount(), 1U);
    EXPECT_TRUE(isServed(idle));
}

TEST_F(ClientFailures, AFrameThatIsCompletedInTimeIsNoStall) {
    options.stallLimit = std::chrono::milliseconds(300);
    Client slow = connect();
    const Bytes request = hex(versionRequest());
    slow.send(Bytes(request.begin(), request.begin() + 10));
    // The reply to another client shows that the host has read the first ten bytes.
    Client other = connect();
    EXPECT_TRUE(isServed(other));
    slow.send(Bytes(request.begin() + 10, request.end()));
    EXPECT_FALSE(slow.receiveFrame().empty());
    // The other client's stall shows that the time has passed.
    other.send("00");
    EXPECT_EQ(other.end(), Client::End::CLOSED);
    EXPECT_TRUE(isServed(slow));
}

TEST_F(ClientFailures, AClientThatDoesNotReadIsDroppedAndOthersAreServed) {
    options.maxQueuedBytes = 64 * 1024;
    options.eventSink = [record = log.sink()](const HostEvent& event) {
        if (!event.value) {  // There are very many values.
            record(event);
        }
    };
    Client publisher = connect();
    publisher.ask(registerOutput("MANY"));
    publisher.ask(registerOutput("ONE"));
    Client reader = connect();
    reader.ask(subscribe("ONE"));
    Client stuck(host().port(), "127.0.0.1", 4096);
    stuck.ask(subscribe("MANY"));

    // In each round the client that does not read gets 12 kB, and the other client one record.
    std::string records = "00050000 00000000 000003E9";
    for (int i = 0; i < 1000; ++i) {
        records += "00000001 00000000 3F800000";
    }
    const Bytes round = hex(request("03", records + "00000002 00000000 3F800000"));
    constexpr int kMoreThanTheSystemBuffers = 5000;
    for (int i = 0; i < kMoreThanTheSystemBuffers && !log.has("client 3 dropped"); ++i) {
        publisher.send(round);
        ASSERT_EQ(reader.receiveFrame(), update("00000001 00000000 3F800000"));
    }
    EXPECT_TRUE(log.has("client 3 dropped: does not read: "));
    EXPECT_TRUE(log.has(" bytes wait for it, 12056 more do not fit"));
    EXPECT_TRUE(host().waitForClients(2, kBound));
    EXPECT_NE(stuck.end(), Client::End::STILL_OPEN);
    EXPECT_TRUE(isServed(publisher));
}

class MalformedInput : public HostTest {};

TEST_F(MalformedInput, ARequestIsReportedAndTheClientIsServed) {
    Client client = connect();
    client.send(request("09", "00050000 00000000"));
    EXPECT_TRUE(isServed(client));
    EXPECT_TRUE(log.has("client 1 request ignored: unknown message code 0x0009"));
    client.send("00000034 00000020 00000003 00000002 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFE" +
                requestBody("06", "00050000 00000000"));
    EXPECT_TRUE(isServed(client));
    EXPECT_TRUE(log.has("client 1 request ignored: frame of kind 3 is no data frame"));
    client.ask(registerOutput("A"));
    client.send(request("03", "00050000 00000000 00000002 00000001 00000000 3F800000"));
    EXPECT_TRUE(isServed(client));
    EXPECT_FALSE(host().value("A").has_value());
    EXPECT_EQ(log.count("ignored"), 3U);
}

TEST_F(MalformedInput, AFrameEndsItsClientOnlyAfterEarlierRequests) {
    Client other = connect();
    ASSERT_TRUE(host().waitForClients(1, kBound));
    Client client = connect();
    client.send(registerOutput("A") + publish("00000001 00000000 3F800000") +
                "00000000 00000020 00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF" + versionRequest());
    EXPECT_EQ(client.receiveFrame(), outputReply("00000001", "00000000", "A"));
    EXPECT_EQ(client.end(), Client::End::CLOSED);
    EXPECT_EQ(host().value("A"), HostValue::real(1.0F));
    EXPECT_TRUE(log.has("client 2 dropped: malformed frame: frame length 0 is less than its header"));
    EXPECT_EQ(host().clientCount(), 1U);
    EXPECT_TRUE(isServed(other));
}

TEST_F(MalformedInput, ABodyOfSixteenMebibytesIsReadWhole) {
    Client client = connect();
    client.send("01000000 00000020 00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF");
    client.send(Bytes(16777216 - 32));
    EXPECT_TRUE(isServed(client));
    EXPECT_TRUE(log.has("client 1 request ignored: protocol bytes 0x00 0x00 are not 0x04 0x02"));
}

}  // namespace
}  // namespace com_tesk::host_test
