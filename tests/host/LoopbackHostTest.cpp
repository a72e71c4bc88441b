#include <gmock/gmock.h>

#include <system_error>
#include <thread>

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

}  // namespace
}  // namespace com_tesk::host_test
