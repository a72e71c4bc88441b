// How a scenario ends, and its verdict.

#include "tests/scenario/FaultyHost.h"

namespace com_tesk::scenario_test {
namespace {

using Play = FaultyHostTest;

TEST_F(Play, EndsAtItsEnd) {
    const test::Stopwatch played;
    play([](Scenario& scenario) { scenario.expect(never(usesUnknownId())).ends(300ms); });
    const ScenarioVerdict result = verdict.get();
    EXPECT_GE(played.seconds(), 0.29);
    EXPECT_TRUE(result.hasPassed()) << result.text();
    EXPECT_EQ(result.text(), "");
    ASSERT_EQ(result.results.size(), 1U);
    EXPECT_GE(result.duration, Scenario::Duration(300ms));
}

TEST_F(Play, WithoutAnEndItEndsWithTheLastExpectation) {
    Scenario scenario("open");
    scenario.expect(asksVersion()).expect(publishes("A", 2)).expect(never(usesUnknownId()));
    verdict = host().play(std::move(scenario));
    Client client = connect();
    client.ask(versionRequest());
    client.ask(registerOutput("A"));
    client.send(publish("00000001 00000000 3F800000"));
    EXPECT_EQ(verdict.wait_for(50ms), std::future_status::timeout);
    client.send(publish("00000001 00000000 40000000"));
    const ScenarioVerdict result = verdict.get();
    EXPECT_TRUE(result.hasPassed()) << result.text();
}

TEST_F(Play, AnExpectationThatFailsIsReported) {
    play([](Scenario& scenario) { scenario.expect(publishes("A", 2)).expect(connects()).ends(3s); });
    Client client = connect();
    client.ask(registerOutput("A"));
    client.send(publish("00000001 00000000 3F800000"));
    const ScenarioVerdict result = verdict.get();
    EXPECT_FALSE(result.hasPassed());
    ASSERT_EQ(result.results.size(), 2U);
    EXPECT_FALSE(result.results[0].isMet);
    EXPECT_TRUE(result.results[1].isMet);
    EXPECT_NE(result.text().find("not met: client publishes A = 2; the nearest was: 0."), std::string::npos)
        << result.text();
    EXPECT_NE(result.text().find("client 1 published A = 1 (float, output id 1)\n"), std::string::npos);
}

TEST_F(Play, ADeadlineNeedsNoEvent) {
    Scenario scenario("deadline");
    scenario.expect(connects().in(100ms));
    const ScenarioVerdict result = host().play(std::move(scenario)).get();
    EXPECT_FALSE(result.hasPassed());
}

TEST_F(Play, AHostThatStopsInterruptsIt) {
    play([](Scenario& scenario) { scenario.expect(never(usesUnknownId())); });
    host().stop();
    const ScenarioVerdict result = verdict.get();
    EXPECT_TRUE(result.wasInterrupted);
    EXPECT_FALSE(result.hasPassed());
    EXPECT_EQ(result.text().rfind("the host was stopped before the end\n", 0), 0U);
    const ScenarioVerdict after = host().play(Scenario("after")).get();
    EXPECT_TRUE(after.wasInterrupted);
}

TEST_F(Play, AnotherScenarioInterruptsIt) {
    playFault(sending(Message::VERSION), Withhold{});
    Client client = connect();
    client.send(versionRequest());
    auto first = std::move(verdict);
    play([](Scenario&) {});
    EXPECT_TRUE(first.get().wasInterrupted);
    EXPECT_TRUE(isServed(client)) << "the faults of the first are gone";
}

TEST_F(Play, ConnectionsThatWereThereAreTheFirst) {
    Client first = connect();
    EXPECT_TRUE(isServed(first));
    playFault(sending(Message::VERSION).onConnection(2), Withhold{});
    Client second = connect();
    EXPECT_TRUE(isServed(first));
    second.send(versionRequest());
    EXPECT_TRUE(second.isQuietFor(100ms));
}

}  // namespace
}  // namespace com_tesk::scenario_test
