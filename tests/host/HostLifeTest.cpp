#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "host/LoopbackHost.h"
#include "tests/host/EventLog.h"
#include "tests/host/RawClient.h"

namespace com_tesk::host_test {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t kVersionReplySize = 184;

HostOptions onPort(std::uint16_t port) {
    HostOptions options;
    options.port = port;
    return options;
}

TEST(HostLife, ListensOnAPortThatTheSystemPicks) {
    LoopbackHost one({});
    LoopbackHost two({});
    EXPECT_NE(one.port(), 0);
    EXPECT_NE(one.port(), two.port());
}

TEST(HostLife, APortThatIsTakenIsAClearError) {
    LoopbackHost host({});
    try {
        LoopbackHost second(onPort(host.port()));
        FAIL() << "two hosts on one port";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::address_in_use);
        EXPECT_EQ(std::string(error.what()),
                  "cannot listen on 127.0.0.1:" + std::to_string(host.port()) + ": Address already in use");
    }
    RawClient client(host.port());
    EXPECT_EQ(client.ask(versionRequest()).size(), kVersionReplySize) << "the first is unharmed";
}

TEST(HostLife, AnAddressThatIsNoneIsAClearError) {
    HostOptions options;
    options.listenAddress = "localhost";
    try {
        LoopbackHost host(options);
        FAIL() << "listens on a name";
    } catch (const std::system_error& error) {
        EXPECT_NE(std::string(error.what()).find("localhost:0 (not an IPv4 address)"), std::string::npos)
            << error.what();
    }
}

TEST(HostLife, ListensOnAnotherLoopbackAddress) {
    HostOptions options;
    options.listenAddress = "127.1.2.3";
    LoopbackHost host(options);
    RawClient client(host.port(), "127.1.2.3");
    EXPECT_EQ(client.ask(versionRequest()).size(), kVersionReplySize);
    EXPECT_THROW(RawClient(host.port(), "127.0.0.1"), std::system_error);
}

TEST(HostLife, CanBeStartedAgainOnTheSamePortAtOnce) {
    std::uint16_t port = 0;
    for (int round = 0; round < 5; ++round) {
        LoopbackHost host(onPort(port));
        port = host.port();
        RawClient client(port);
        EXPECT_EQ(client.ask(versionRequest()).size(), kVersionReplySize) << round;
        host.stop();
        EXPECT_EQ(client.waitForEnd(), RawClient::End::CLOSED) << round;
    }
}

TEST(HostLife, StopClosesEveryClientAndThePort) {
    EventLog log;
    HostOptions options;
    options.eventSink = log.sink();
    LoopbackHost host(options);
    RawClient one(host.port());
    RawClient two(host.port());
    ASSERT_TRUE(host.waitForClients(2, kPatience));
    host.stop();
    EXPECT_EQ(one.waitForEnd(), RawClient::End::CLOSED);
    EXPECT_EQ(two.waitForEnd(), RawClient::End::CLOSED);
    EXPECT_THROW(RawClient{host.port()}, std::system_error);
    EXPECT_EQ(host.clientCount(), 0U);
    EXPECT_EQ(log.count("dropped: the host stops"), 2U);
    EXPECT_EQ(log.all().back(), "host stopped");
}

TEST(HostLife, AStoppedHostStillAnswersForItsValuesAndReportsNothing) {
    EventLog log;
    HostOptions options;
    options.eventSink = log.sink();
    LoopbackHost host(options);
    host.stop();
    host.stop();
    host.setValue("A", HostValue::integer(1));
    EXPECT_EQ(host.value("A"), HostValue::integer(1));
    EXPECT_EQ(host.dropClients(LoopbackHost::DropMode::RESET), 0U);
    EXPECT_EQ(log.all().back(), "host stopped");
}

TEST(HostLife, DroppedClientsReadTheEndOfTheStreamAndMayComeBack) {
    LoopbackHost host({});
    RawClient one(host.port());
    RawClient two(host.port());
    ASSERT_TRUE(host.waitForClients(2, kPatience));
    EXPECT_EQ(host.dropClients(LoopbackHost::DropMode::GRACEFUL), 2U);
    EXPECT_EQ(host.clientCount(), 0U);
    EXPECT_EQ(one.waitForEnd(), RawClient::End::CLOSED);
    EXPECT_EQ(two.waitForEnd(), RawClient::End::CLOSED);
    RawClient three(host.port());
    EXPECT_EQ(three.ask(versionRequest()).size(), kVersionReplySize);
}

TEST(HostLife, ResetClientsSeeAReset) {
    LoopbackHost host({});
    RawClient client(host.port());
    ASSERT_TRUE(host.waitForClients(1, kPatience));
    EXPECT_EQ(host.dropClients(LoopbackHost::DropMode::RESET), 1U);
    EXPECT_EQ(client.waitForEnd(), RawClient::End::RESET);
}

TEST(HostLife, InitialValuesAreThereFromTheStart) {
    HostOptions options;
    options.initialValues = {{"A", HostValue::real(1.5F)}};
    LoopbackHost host(options);
    EXPECT_EQ(host.value("A"), HostValue::real(1.5F));
    EXPECT_FALSE(host.value("B").has_value());
}

TEST(HostLife, WaitsEndWithoutSuccessAtTheirLimit) {
    LoopbackHost host({});
    EXPECT_FALSE(host.waitForValue("A", HostValue::integer(1), milliseconds(20)));
    EXPECT_FALSE(host.waitForClients(1, milliseconds(20)));
    EXPECT_FALSE(host.waitForSubscribers("A", 1, milliseconds(20)));
    EXPECT_TRUE(host.waitForClients(0, milliseconds(0)));
}

TEST(HostLife, AWaitSeesWhatAnotherThreadSets) {
    LoopbackHost host({});
    std::thread setter([&] { host.setValue("A", HostValue::integer(1)); });
    EXPECT_TRUE(host.waitForValue("A", HostValue::integer(1), kPatience));
    setter.join();
}

TEST(HostLife, TheEventSinkMaySetAndReadValues) {
    HostOptions options;
    LoopbackHost* self = nullptr;
    options.eventSink = [&self](const HostEvent& event) {
        if (event.kind == HostEvent::Kind::PUBLISHED && event.name == "A") {
            self->setValue("B", self->value("A").value_or(HostValue::integer(1)));
        }
    };
    LoopbackHost host(options);
    self = &host;
    RawClient client(host.port());
    client.ask(subscribeFloat("A"));
    client.ask(subscribeFloat("B"));
    client.ask(registerFloat("A"));
    EXPECT_EQ(text(client.ask(publish("00000003 00000000 3F800000"))), text(update("00000001 00000000 3F800000")));
    EXPECT_EQ(text(client.receiveFrame()), text(update("00000002 00000001 00000001")))
        << "reported before it is stored";
}

TEST(HostLife, SetsFromManyThreadsAllArrive) {
    LoopbackHost host({});
    std::vector<std::thread> setters;
    for (int t = 0; t < 4; ++t) {
        setters.emplace_back([&host, t] {
            for (int i = 0; i < 50; ++i) {
                host.setValue("V" + std::to_string(t), HostValue::integer(i));
            }
        });
    }
    for (std::thread& setter : setters) {
        setter.join();
    }
    for (int t = 0; t < 4; ++t) {
        EXPECT_EQ(host.value("V" + std::to_string(t)), HostValue::integer(49));
    }
}

TEST(HostLife, ServesManyClientsAtOnce) {
    constexpr std::size_t kClients = 200;
    LoopbackHost host({});
    std::vector<std::unique_ptr<RawClient>> clients;
    for (std::size_t i = 0; i < kClients; ++i) {
        clients.push_back(std::make_unique<RawClient>(host.port()));
        clients.back()->send(joined({versionRequest(), subscribeFloat("A")}));
    }
    EXPECT_TRUE(host.waitForSubscribers("A", kClients, kPatience));
    EXPECT_EQ(host.clientCount(), kClients);
    clients.front()->send(joined({registerFloat("A"), publish("00000002 00000000 3F800000")}));
    for (auto& client : clients) {
        EXPECT_EQ(client->receiveFrame().size(), kVersionReplySize);
        EXPECT_EQ(client->receiveFrame().size(), 104U);
        if (client == clients.front()) {
            EXPECT_EQ(client->receiveFrame().size(), 100U);
        }
        EXPECT_EQ(client->receiveFrame(), update("00000001 00000000 3F800000"));
    }
    clients.clear();
    EXPECT_TRUE(host.waitForClients(0, kPatience));
}

TEST(HostLife, ClientsAreNumberedInTheOrderOfTheirConnections) {
    EventLog log;
    HostOptions options;
    options.eventSink = log.sink();
    LoopbackHost host(options);
    EXPECT_EQ(log.all().front(), "host listening on 127.0.0.1:" + std::to_string(host.port()));
    RawClient(host.port()).ask(versionRequest());
    ASSERT_TRUE(host.waitForClients(0, kPatience));
    RawClient(host.port()).ask(versionRequest());
    EXPECT_TRUE(log.has("client 1 connected from 127.0.0.1:"));
    EXPECT_TRUE(log.has("client 2 connected from 127.0.0.1:"));
}

}  // namespace
}  // namespace com_tesk::host_test
