// Faults of the whole host, and its values in the course of time.

#include "tests/scenario/FaultyHost.h"

namespace com_tesk::scenario_test {
namespace {

using HostFaults = FaultyHostTest;

TEST_F(HostFaults, ARestartHasTheFirstValuesAndOtherIds) {
    options.initialValues = {{"A", HostValue::real(1)}};
    Client client = connect();
    client.ask(registerOutput("A"));
    client.send(publish("00000001 00000000 40000000"));
    EXPECT_TRUE(host().waitForValue("A", HostValue::real(2), kBound));
    play([](Scenario& scenario) { scenario.at(0s, Restart{300ms}); });
    EXPECT_EQ(client.end(), Client::End::CLOSED);
    ASSERT_TRUE(test::waitUntil([&] { return canConnect(host().port()); }));
    EXPECT_EQ(host().value("A"), HostValue::real(1));
    Client next = connect();
    EXPECT_EQ(next.ask(registerOutput("A")), hexText(hex(outputReply("000003E9", "00000000", "A"))));
}

TEST_F(HostFaults, ARestartHasTheValuesOfTheScenario) {
    play([](Scenario& scenario) {
        scenario.give("A", Constant{5})
            .give("B", Steps{{{0s, 1}, {20ms, 2}, {1h, 3}}})
            .at(100ms, Restart{100ms}, "again");
        scenario.at(100ms, SetValue{"C", HostValue::real(1)});  // After the restart.
    });
    ASSERT_TRUE(host().waitForValue("C", HostValue::real(1), kBound));
    EXPECT_EQ(host().value("A"), HostValue::real(5));
    EXPECT_EQ(host().value("B"), HostValue::real(2));
}

TEST_F(HostFaults, AnotherSimulatorIdIsAssigned) {
    play([](Scenario& scenario) { scenario.when(receiving(Message::ASK_VERSION), AssignId{9}); });
    Client client = connect();
    client.ask(versionRequest());
    EXPECT_EQ(client.ask(versionRequest()), hexText(hex(versionReply("00090000", options.versionText, "00000001"))));
}

TEST_F(HostFaults, AValueIsSetByTheTimeline) {
    Client client = connect();
    subscribeFirst(client);
    play([](Scenario& scenario) { scenario.at(0s, SetValue{"A", HostValue::real(1)}); });
    EXPECT_EQ(client.receiveFrame(), updateOfFirst("3F800000"));
}

TEST_F(HostFaults, ValuesFollowTheirShape) {
    Client client = connect();
    subscribeFirst(client);
    play([](Scenario& scenario) { scenario.give("A", Steps{{{0s, 1}, {50ms, 2}, {100ms, 3}}}); });
    EXPECT_EQ(client.receiveFrame(), updateOfFirst("3F800000"));
    EXPECT_EQ(client.receiveFrame(), updateOfFirst("40000000"));
    EXPECT_EQ(client.receiveFrame(), updateOfFirst("40400000"));
}

TEST_F(HostFaults, StepsOfSeveralNamesComeInTheirOrder) {
    Client client = connect();
    subscribeFirst(client);
    EXPECT_EQ(client.ask(subscribe("B")), hexText(hex(inputReply("00000002", "00000000 00000000", "B"))));
    // All are late when the scenario begins.
    play([](Scenario& scenario) { scenario.give("B", Steps{{{0us, 1}, {2us, 3}}}).give("A", Steps{{{1us, 2}}}); });
    EXPECT_EQ(client.receiveFrame(), hexText(hex(update("00000002 00000000 3F800000"))));
    EXPECT_EQ(client.receiveFrame(), updateOfFirst("40000000"));
    EXPECT_EQ(client.receiveFrame(), hexText(hex(update("00000002 00000000 40400000"))));
}

TEST_F(HostFaults, ANameThatIsNotKnownIsNotConfirmed) {
    options.knownNames = std::set<std::string>{"A"};
    Client client = connect();
    const std::string both = request("01", "00050000 00000002 00002EE0 00002EE0 00000000" + hexField("B") +
                                               "00002EE0 00002EE0 00000000" + hexField("A"));
    EXPECT_EQ(client.ask(both), hexText(hex(inputReply("00000001", "00000000 00000000", "A"))));
    EXPECT_TRUE(log.has("client 1 requested unknown name B, not confirmed"));
    EXPECT_EQ(client.ask(registerOutput("B")), hexText(hex(frame("04027FFF 00000014 007F0102 00050000 00000000"))));
}

}  // namespace
}  // namespace com_tesk::scenario_test
