// Scenario files: what they say, and what is wrong in them.

#include "tools/scenario/ScenarioFile.h"

#include <gtest/gtest.h>

#include <fstream>

namespace com_tesk::scenario {
namespace {

using namespace std::chrono_literals;

/// Returns the flaws of a file as "line:column: text", one a line.
std::string flawsOf(const std::string& text) {
    std::vector<Flaw> flaws;
    readScenario(text, ".", flaws);
    std::string all;
    for (const Flaw& flaw : flaws) {
        all += std::to_string(flaw.line) + ':' + std::to_string(flaw.column) + ": " + flaw.text + '\n';
    }
    return all;
}

/// As `flawsOf`, of one line of a scenario that is otherwise valid. The line is the third.
std::string flawOf(const std::string& line) {
    return flawsOf("name: x\nend: 1s\n" + line + '\n');
}

ScenarioFile valid(const std::string& text) {
    std::vector<Flaw> flaws;
    ScenarioFile file = readScenario("name: x\nend: 1s\n" + text + '\n', testing::TempDir(), flaws);
    for (const Flaw& flaw : flaws) {
        ADD_FAILURE() << flaw.line << ": " << flaw.text;
    }
    return file;
}

TEST(ScenarioFile, AMinimalOneHasANameAndAnEnd) {
    std::vector<Flaw> flaws;
    const ScenarioFile file = readScenario("name: minimal\nend: 2s\n", ".", flaws);
    EXPECT_TRUE(flaws.empty());
    EXPECT_EQ(file.scenario.name, "minimal");
    EXPECT_EQ(file.scenario.end, Duration(2s));
    EXPECT_EQ(flawsOf("end: 2s\n"), "1:1: a scenario has a name\n");
    EXPECT_EQ(flawsOf("name: x\n"), "1:1: a scenario without expectations has an end\n");
    EXPECT_EQ(flawsOf("name: x\nexpect: [{client: connects}]\n"), "");
}

TEST(ScenarioFile, TheHostIsAsItSays) {
    const ScenarioFile file =
        valid("host: {version: demo, protocol: 3, assign-id: 7, known-names: [lamp, gauge]}\nseed: 9");
    EXPECT_EQ(file.host.versionText, "demo");
    EXPECT_EQ(file.host.protocolVersion, 3U);
    EXPECT_EQ(file.host.assignId, 7);
    EXPECT_EQ(file.host.knownNames, (std::set<std::string>{"gauge", "lamp"}));
    EXPECT_EQ(file.scenario.seed, 9U);
}

TEST(ScenarioFile, ValuesHaveTheirShapes) {
    std::ofstream(testing::TempDir() + "flight.csv") << "time,alt,speed\n0,1,2\r\n\n0.5,3,4\n";
    const ScenarioFile file = valid(
        "values:\n  A: 1.5\n  B: i:3\n  C: {ramp: {from: 1, to: 2, over: 5s, rate: 4Hz, repeat: true}, type: int}\n"
        "  D: {sine: {offset: 1, amplitude: 2, period: 3s}}\n  E: {steps: [[0s, 1], [2s, 5]]}\n"
        "  F: {from: flight.csv, column: speed}");
    const auto& values = file.scenario.values;
    ASSERT_EQ(values.size(), 6U);
    EXPECT_EQ(values[0].at(0s), HostValue::real(1.5F));
    EXPECT_EQ(values[1].at(0s), HostValue::integer(3));
    const Ramp ramp = std::get<Ramp>(values[2].shape);
    EXPECT_EQ(ramp.from, 1);
    EXPECT_EQ(ramp.to, 2);
    EXPECT_EQ(ramp.over, Duration(5s));
    EXPECT_EQ(ramp.rate, 4);
    EXPECT_TRUE(ramp.isRepeated);
    EXPECT_TRUE(values[2].isInteger);
    const Sine sine = std::get<Sine>(values[3].shape);
    EXPECT_EQ(sine.offset, 1);
    EXPECT_EQ(sine.amplitude, 2);
    EXPECT_EQ(sine.period, Duration(3s));
    EXPECT_EQ(sine.rate, 10);
    EXPECT_EQ(std::get<Steps>(values[4].shape).values, (std::vector<std::pair<Duration, double>>{{0s, 1}, {2s, 5}}));
    EXPECT_EQ(std::get<Steps>(values[5].shape).values, (std::vector<std::pair<Duration, double>>{{0s, 2}, {500ms, 4}}));
}

TEST(ScenarioFile, TriggersHaveTheirConditions) {
    const ScenarioFile file = valid(
        "seed: 1\nfaults:\n"
        "  - {on: {send: update, name: alt, nth: 20, every: 5, connection: 2, chance: 0.25}, do: withhold}\n"
        "  - {on: {receive: publish}, do: withhold}\n"
        "  - {on: {accept: any}, do: stop-answering}");
    const auto& faults = file.scenario.faults;
    ASSERT_EQ(faults.size(), 3U);
    const Trigger& first = faults[0].trigger;
    EXPECT_EQ(first.moment, Trigger::Moment::SEND);
    EXPECT_EQ(first.message, Message::UPDATE);
    EXPECT_EQ(first.name, "alt");
    EXPECT_EQ(first.nth, 20U);
    EXPECT_EQ(first.every, 5U);
    EXPECT_EQ(first.connection, 2U);
    EXPECT_EQ(first.chance, 0.25);
    EXPECT_EQ(faults[1].trigger.moment, Trigger::Moment::RECEIVE);
    EXPECT_EQ(faults[1].trigger.message, Message::PUBLISH);
    EXPECT_EQ(faults[2].trigger.moment, Trigger::Moment::ACCEPT);
}

/// Returns the only action of a fault on a message that is sent.
Action actionOf(const std::string& text) {
    const ScenarioFile file = valid("faults: [{on: {send: update}, do: " + text + "}]");
    EXPECT_EQ(file.scenario.faults.size(), 1U) << text;
    return file.scenario.faults.empty() ? Action{} : file.scenario.faults.front().action;
}

TEST(ScenarioFile, ActionsHaveTheirValues) {
    EXPECT_TRUE(std::holds_alternative<Withhold>(actionOf("withhold")));
    EXPECT_EQ(std::get<Delay>(actionOf("{delay: 800ms}")).time, Duration(800ms));
    EXPECT_EQ(std::get<Duplicate>(actionOf("duplicate")).times, 1U);
    EXPECT_EQ(std::get<Duplicate>(actionOf("{duplicate: 3}")).times, 3U);
    EXPECT_EQ(std::get<ChangeIds>(actionOf("{change-ids: +1000}")).by, 1'000);
    EXPECT_EQ(std::get<ChangeIds>(actionOf("{change-ids: -1}")).by, -1);
    EXPECT_EQ(std::get<ChangeValue>(actionOf("{change-value: 1.5}")).to, 1.5);
    EXPECT_TRUE(std::get<ChangeType>(actionOf("{change-type: int}")).toInteger);
    EXPECT_FALSE(std::get<ChangeType>(actionOf("{change-type: float}")).toInteger);
    EXPECT_EQ(std::get<Reorder>(actionOf("{reorder: 2}")).later, 2U);
    const Split split = std::get<Split>(actionOf("{split: [1, 33], pause: 200ms}"));
    EXPECT_EQ(split.at, (std::vector<std::size_t>{1, 33}));
    EXPECT_EQ(split.pause, Duration(200ms));
    EXPECT_EQ(std::get<Truncate>(actionOf("{truncate: 40}")).length, 40U);
    EXPECT_EQ(std::get<StateLength>(actionOf("{frame-length: 4294967295}")).length, 0xFFFFFFFFU);
    EXPECT_EQ(std::get<StateCount>(actionOf("{record-count: 7}")).count, 7U);
    EXPECT_EQ(std::get<Garbage>(actionOf("{garbage: 64}")).size, 64U);
    EXPECT_EQ(std::get<StateSimulatorId>(actionOf("{simulator-id: 9}")).id, 9);
    EXPECT_TRUE(std::get<Drop>(actionOf("{drop: reset}")).isReset);
    EXPECT_FALSE(std::get<Drop>(actionOf("{drop: close}")).isReset);
    EXPECT_FALSE(std::get<Drop>(actionOf("drop")).isReset);
    EXPECT_TRUE(std::holds_alternative<StopReading>(actionOf("stop-reading")));
    EXPECT_TRUE(std::holds_alternative<StopAnswering>(actionOf("stop-answering")));
    EXPECT_EQ(std::get<Hang>(actionOf("{hang: 2s}")).time, Duration(2s));
    EXPECT_EQ(std::get<Refuse>(actionOf("{refuse: 2s}")).time, Duration(2s));
    EXPECT_EQ(std::get<Restart>(actionOf("{restart: {down: 1s}}")).down, Duration(1s));
    EXPECT_EQ(std::get<Restart>(actionOf("restart")).down, Duration(0s));
    EXPECT_EQ(std::get<AssignId>(actionOf("{assign-id: 9}")).id, 9);
    const SetValue set = std::get<SetValue>(actionOf("{set: {name: A, value: i:3}}"));
    EXPECT_EQ(set.name, "A");
    EXPECT_EQ(set.value, HostValue::integer(3));
}

TEST(ScenarioFile, SeveralActionsHaveTheSameTrigger) {
    const ScenarioFile file = valid("faults: [{on: {send: update, nth: 2}, do: [{delay: 1s}, {change-ids: 5}]}]");
    ASSERT_EQ(file.scenario.faults.size(), 2U);
    EXPECT_EQ(file.scenario.faults[1].trigger.nth, 2U);
}

TEST(ScenarioFile, TheTimelineAndExpectations) {
    const ScenarioFile file = valid(
        "timeline: [{at: 2s, do: drop}, {at: 3s, do: restart, label: first restart}]\n"
        "expect:\n"
        "  - {client: registers, inputs: [lamp], outputs: [switch], after: first restart, within: 3s}\n"
        "  - {published: {name: switch, value: 1, tolerance: 0.5}, at-least: 2}\n"
        "  - {published: {name: switch, rate: 50Hz, for: 2s}, then: [{client: disconnects}, {never: connects}]}\n"
        "  - {never: {published: {name: alarm, value: 1}}}\n"
        "  - {client: connects, times: 1, at-most: 3}\n"
        "  - published: switch");
    EXPECT_EQ(file.scenario.timeline[1].label, "first restart");
    const auto& all = file.scenario.expectations;
    ASSERT_EQ(all.size(), 6U);
    EXPECT_EQ(all[0].kind, Expectation::Kind::REGISTERS);
    EXPECT_EQ(all[0].after, "first restart");
    EXPECT_EQ(all[0].within, Duration(3s));
    EXPECT_EQ(all[0].inputs, std::vector<std::string>{"lamp"});
    EXPECT_EQ(all[0].outputs, std::vector<std::string>{"switch"});
    EXPECT_EQ(all[0].line, 5U);
    EXPECT_EQ(all[1].value, 1);
    EXPECT_EQ(all[1].tolerance, 0.5);
    EXPECT_EQ(all[1].atLeast, 2U);
    EXPECT_EQ(all[2].rate, 50);
    EXPECT_EQ(all[2].lasting, Duration(2s));
    ASSERT_EQ(all[2].then.size(), 2U);
    EXPECT_TRUE(all[2].then[1].isNever);
    EXPECT_TRUE(all[3].isNever);
    EXPECT_EQ(all[3].name, "alarm");
    EXPECT_EQ(all[4].exactly, 1U);
    EXPECT_EQ(all[4].atMost, 3U);
    EXPECT_EQ(all[5].name, "switch");
}

TEST(ScenarioFile, UnknownWordsAreNamedWithTheNearest) {
    EXPECT_EQ(flawOf("sed: 4"), "3:1: unknown key \"sed\"; did you mean \"seed\"?\n");
    EXPECT_EQ(flawOf("host: {protocl: 3}"), "3:8: unknown key \"protocl\"; did you mean \"protocol\"?\n");
    EXPECT_EQ(flawOf("faults: [{on: {send: udpate}, do: withhold}]"),
              "3:22: \"udpate\" is no message; did you mean \"update\"?\n");
    EXPECT_EQ(flawOf("faults: [{on: {send: update}, do: {slit: [1]}}]"),
              "3:36: unknown action \"slit\"; did you mean \"split\"?\n");
    EXPECT_EQ(flawOf("expect: [{client: xyz}]"),
              "3:19: \"xyz\" is no event; it is one of asks-version, bad-request, connects, disconnects, registers, "
              "unknown-id, unregisters\n");
}

TEST(ScenarioFile, EveryFlawIsFound) {
    EXPECT_EQ(
        flawsOf(
            "name: x\nend: 5\nhost: {protocol: -1, assign-id: 65536}\nfaults:\n  - {on: {send: publish}, do: delay}\n"),
        "2:6: end is a duration such as 250ms, 5s or 2m, not \"5\"\n"
        "3:18: protocol is an integer from 0 to 4294967295, not \"-1\"\n"
        "3:33: assign-id is an integer from 0 to 65535, not \"65536\"\n"
        "5:17: \"publish\" is no message; it is one of any, version, inputs-confirmed, outputs-confirmed, update\n"
        "5:31: the action delay needs a value\n");
}

TEST(ScenarioFile, WhatDoesNotBelongTogetherIsRefused) {
    const std::pair<const char*, const char*> cases[] = {
        {"faults: [{on: {receive: publish}, do: {truncate: 4}}]",
         "the action truncate does not apply to a message that the host receives"},
        {"faults: [{on: {accept: any}, do: withhold}]",
         "the action withhold does not apply to a connection that the host accepts"},
        {"faults: [{on: {accept: any, name: A}, do: drop}]", "a connection has no name of a parameter"},
        {"faults: [{on: {send: any, receive: any}, do: drop}]", "a fault is on one of send, receive and accept"},
        {"faults: [{on: {send: any, chance: 0.5}, do: drop}]", "a chance needs a seed"},
        {"faults: [{do: drop}]", "a fault has the keys on and do"},
        {"timeline: [{at: 1s, do: {delay: 1s}}]", "the action delay does not apply to the timeline"},
        {"timeline: [{do: drop}]", "an entry of the timeline has the keys at and do"},
        {"expect: [{client: connects, published: A}]",
         "an expectation has one of the keys client, published and never"},
        {"expect: [{within: 1s}]", "an expectation has one of the keys client, published and never"},
        {"expect: [{client: connects, inputs: [A]}]", "only registers and unregisters have inputs and outputs"},
        {"expect: [{never: unknown-id, times: 1}]", "never, rate and for permit no count"},
        {"expect: [{client: connects, after: drop}]", "there is no timeline whose actions after could name"},
        {"expect: [{published: {value: 1}}]", "published has a name"},
        {"expect: [{published: {name: A, tolerance: 1}}]", "a tolerance needs a value"},
        {"expect: [{published: {name: A, value: 1, tolerance: -1}}]", "a tolerance is not negative"},
        {"values: {A: {type: int}}", "has one of the keys ramp, sine, steps and from"},
        {"values: {A: {steps: [[2s, 1], [1s, 2]]}}", "the times of steps ascend"},
        {"values: {A: {steps: [[2s]]}}", "a step is a time and a value"},
        {"values: {A: {ramp: {over: 0s}}}", "a ramp takes more than no time"},
        {"values: {A: {sine: {period: 0s}}}", "a period is longer than no time"},
        {"values: {A: {from: /no/such/file.csv}}", "cannot read /no/such/file.csv"},
        {"values: {A: 1, A: 2}", "the name \"A\" occurs twice"},
        {"values: {'': 1}", "a name is empty"},
        {"values: [1]", "values is a map of names"},
        {"faults: {}", "faults is a list"},
        {"host: 3", "expected a map with the keys version, protocol"},
        {"faults: [{on: {send: any}, do: {split: [33, 1]}}]", "the offsets of split ascend"},
        {"faults: [{on: {send: any}, do: {delay: 1s, pause: 1s}}]", "unknown key \"pause\""},
    };
    for (const auto& [line, flaw] : cases) {
        const std::string found = flawOf(line);
        EXPECT_NE(found.find(flaw), std::string::npos) << line << '\n' << found;
        EXPECT_EQ(found.rfind("3:", 0), 0U) << found;
    }
}

TEST(ScenarioFile, WhatIsNoYamlIsAFlaw) {
    EXPECT_EQ(flawsOf("name: [x\n").find("no valid YAML"), 5U) << flawsOf("name: [x\n");
    EXPECT_NE(flawsOf(""), "");
    EXPECT_NE(flawsOf("- a\n"), "");
    EXPECT_NE(flawsOf("&a [*a]\n"), "");
}

TEST(ScenarioFile, AFileThatIsNotThereIsAFlaw) {
    std::vector<Flaw> flaws;
    readScenarioFile("/no/such/file.yaml", flaws);
    ASSERT_EQ(flaws.size(), 1U);
    EXPECT_EQ(flaws[0].text, "cannot read the file");
}

TEST(Flaws, TheNearestWordIsNearEnough) {
    EXPECT_EQ(nearestWord("udpate", {"update", "version"}), "update");
    EXPECT_EQ(nearestWord("versio", {"update", "version"}), "version");
    EXPECT_EQ(nearestWord("no", {"on"}), "on");
    EXPECT_EQ(nearestWord("x", {"update", "version"}), "");
    EXPECT_EQ(nearestWord("", {"update"}), "");
}

}  // namespace
}  // namespace com_tesk::scenario
