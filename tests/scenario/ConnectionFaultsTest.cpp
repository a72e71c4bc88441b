// Faults of connections, seen at the wire.

#include "tests/scenario/FaultyHost.h"

namespace com_tesk::scenario_test {
namespace {

using ConnectionFaults = FaultyHostTest;

TEST_F(ConnectionFaults, ADropTakesTheMessageWithIt) {
    for (const bool isReset : {false, true}) {
        playFault(sending(Message::UPDATE).nthTime(1), Drop{isReset});
        const std::string name = isReset ? "A" : "B";
        Client client = connect();
        subscribeFirst(client, name);
        host().setValue(name, HostValue::real(1));
        EXPECT_EQ(client.end(), isReset ? Client::End::RESET : Client::End::CLOSED);
        Client next = connect();
        EXPECT_TRUE(isServed(next));
    }
}

TEST_F(ConnectionFaults, ADropOnARequestLeavesItUnserved) {
    playFault(receiving(Message::REGISTER_OUTPUTS), Drop{});
    Client client = connect();
    client.send(registerOutput("A") + versionRequest());
    EXPECT_EQ(client.end(), Client::End::CLOSED);
    EXPECT_FALSE(log.has("registered output"));
    EXPECT_FALSE(log.has("asked for the version"));
}

TEST_F(ConnectionFaults, ATimelineDropsEveryConnection) {
    Client first = connect();
    Client second = connect();
    EXPECT_TRUE(isServed(first));
    EXPECT_TRUE(isServed(second));
    play([](Scenario& scenario) { scenario.at(0s, Drop{true}); });
    EXPECT_EQ(first.end(), Client::End::RESET);
    EXPECT_EQ(second.end(), Client::End::RESET);
}

TEST_F(ConnectionFaults, AHostThatStopsAnsweringStillReads) {
    playFault(receiving(Message::PUBLISH), StopAnswering{});
    Client client = connect();
    client.ask(registerOutput("A"));
    client.send(publish("00000001 00000000 3F800000"));
    EXPECT_TRUE(host().waitForValue("A", HostValue::real(1), kBound));
    client.send(versionRequest());
    EXPECT_TRUE(client.isQuietFor(100ms));
    Client next = connect();
    EXPECT_TRUE(isServed(next));
}

TEST_F(ConnectionFaults, AHostThatAcceptsAndSaysNothing) {
    playFault(accepting().nthTime(1), StopAnswering{});
    Client client = connect();
    client.send(versionRequest());
    EXPECT_TRUE(log.waitFor("asked for the version"));
    EXPECT_TRUE(client.isQuietFor(100ms));
    Client next = connect();
    EXPECT_TRUE(isServed(next));
}

TEST_F(ConnectionFaults, AHostThatStopsReadingStillSends) {
    playFault(receiving(Message::REGISTER_INPUTS), StopReading{});
    Client client = connect();
    subscribeFirst(client);
    EXPECT_EQ(nextAfterSetting(client, 1), updateOfFirst("3F800000"));
    client.send(versionRequest());
    EXPECT_TRUE(client.isQuietFor(100ms));
    EXPECT_FALSE(log.has("asked for the version"));
}

TEST_F(ConnectionFaults, AHostThatHangsGoesOnAfterItsTime) {
    playFault(receiving(Message::PUBLISH).nthTime(1), Hang{400ms});
    Client client = connect();
    subscribeFirst(client);
    client.ask(registerOutput("B"));
    const test::Stopwatch hung;
    client.send(publish("00000002 00000000 3F800000"));
    ASSERT_TRUE(log.waitFor("scenario: hang of publish"));
    EXPECT_FALSE(log.has("published")) << "not before the end of the hang";
    host().setValue("A", HostValue::real(2));
    EXPECT_EQ(client.receiveFrame(), updateOfFirst("40000000"));
    EXPECT_GE(hung.seconds(), 0.39);
    EXPECT_TRUE(log.waitFor("published B"));
    EXPECT_TRUE(isServed(client));
}

TEST_F(ConnectionFaults, ARefusedConnectionIsRefusedForItsTime) {
    const test::Stopwatch refused;
    play([](Scenario& scenario) { scenario.at(0s, Refuse{500ms}); });
    const std::uint16_t port = host().port();
    ASSERT_TRUE(test::waitUntil([&] { return !canConnect(port); }));
    ASSERT_TRUE(test::waitUntil([&] { return canConnect(port); }));
    EXPECT_GE(refused.seconds(), 0.49);
    Client client = connect();
    EXPECT_TRUE(isServed(client));
}

}  // namespace
}  // namespace com_tesk::scenario_test
