#include "host/Scenario.h"

#include <algorithm>

namespace com_tesk {

Scenario& Scenario::when(scenario::Trigger trigger, scenario::Action action) {
    faults.push_back({std::move(trigger), std::move(action)});
    return *this;
}

Scenario& Scenario::at(Duration time, scenario::Action action, std::string label) {
    timeline.push_back({time, std::move(action), std::move(label)});
    return *this;
}

Scenario& Scenario::give(std::string valueName, decltype(scenario::ValueSource::shape) shape, bool isInteger) {
    values.push_back({std::move(valueName), std::move(shape), isInteger});
    return *this;
}

Scenario& Scenario::expect(scenario::Expectation expectation) {
    expectations.push_back(std::move(expectation));
    return *this;
}

Scenario& Scenario::ends(Duration time) {
    end = time;
    return *this;
}

bool ScenarioVerdict::hasPassed() const {
    return !wasInterrupted &&
           std::all_of(results.begin(), results.end(), [](const Result& result) { return result.isMet; });
}

std::string ScenarioVerdict::text() const {
    std::string text = wasInterrupted ? "the host was stopped before the end\n" : "";
    for (const Result& result : results) {
        if (result.isMet) {
            continue;
        }
        text += (result.line != 0 ? "line " + std::to_string(result.line) + ": " : "") +
                "not met: " + result.expectation + "; " + result.reason + '\n';
        for (const std::string& event : result.lastEvents) {
            text += "    " + event + '\n';
        }
    }
    return text;
}

namespace scenario {

TriggerBuilder& TriggerBuilder::of(std::string recordName) {
    name = std::move(recordName);
    return *this;
}

TriggerBuilder& TriggerBuilder::nthTime(unsigned number) {
    nth = number;
    return *this;
}

TriggerBuilder& TriggerBuilder::everyNth(unsigned number) {
    every = number;
    return *this;
}

TriggerBuilder& TriggerBuilder::onConnection(unsigned number) {
    connection = number;
    return *this;
}

TriggerBuilder& TriggerBuilder::withChance(double probability) {
    chance = probability;
    return *this;
}

namespace {

TriggerBuilder triggerOf(Trigger::Moment moment, Message message) {
    TriggerBuilder trigger;
    trigger.moment = moment;
    trigger.message = message;
    return trigger;
}

ExpectationBuilder expectationOf(Expectation::Kind kind) {
    ExpectationBuilder expectation;
    expectation.kind = kind;
    return expectation;
}

}  // namespace

TriggerBuilder sending(Message message) {
    return triggerOf(Trigger::Moment::SEND, message);
}

TriggerBuilder receiving(Message message) {
    return triggerOf(Trigger::Moment::RECEIVE, message);
}

TriggerBuilder accepting() {
    return triggerOf(Trigger::Moment::ACCEPT, Message::ANY);
}

ExpectationBuilder& ExpectationBuilder::in(Duration time) {
    within = time;
    return *this;
}

ExpectationBuilder& ExpectationBuilder::afterAction(std::string label) {
    after = std::move(label);
    return *this;
}

ExpectationBuilder& ExpectationBuilder::times(unsigned count) {
    exactly = count;
    return *this;
}

ExpectationBuilder& ExpectationBuilder::atLeastTimes(unsigned count) {
    atLeast = count;
    return *this;
}

ExpectationBuilder& ExpectationBuilder::atMostTimes(unsigned count) {
    atMost = count;
    return *this;
}

ExpectationBuilder& ExpectationBuilder::atRate(double perSecond, Duration time) {
    rate = perSecond;
    lasting = time;
    return *this;
}

ExpectationBuilder& ExpectationBuilder::lastingFor(Duration time) {
    lasting = time;
    return *this;
}

ExpectationBuilder& ExpectationBuilder::thenAlso(Expectation next) {
    then.push_back(std::move(next));
    return *this;
}

ExpectationBuilder connects() {
    return expectationOf(Expectation::Kind::CONNECTS);
}

ExpectationBuilder disconnects() {
    return expectationOf(Expectation::Kind::DISCONNECTS);
}

ExpectationBuilder asksVersion() {
    return expectationOf(Expectation::Kind::ASKS_VERSION);
}

ExpectationBuilder registers(std::vector<std::string> inputs, std::vector<std::string> outputs) {
    ExpectationBuilder expectation = expectationOf(Expectation::Kind::REGISTERS);
    expectation.inputs = std::move(inputs);
    expectation.outputs = std::move(outputs);
    return expectation;
}

ExpectationBuilder unregisters(std::vector<std::string> inputs, std::vector<std::string> outputs) {
    ExpectationBuilder expectation = registers(std::move(inputs), std::move(outputs));
    expectation.kind = Expectation::Kind::UNREGISTERS;
    return expectation;
}

ExpectationBuilder publishes(std::string name) {
    ExpectationBuilder expectation = expectationOf(Expectation::Kind::PUBLISHES);
    expectation.name = std::move(name);
    return expectation;
}

ExpectationBuilder publishes(std::string name, double value, double tolerance) {
    ExpectationBuilder expectation = publishes(std::move(name));
    expectation.value = value;
    expectation.tolerance = tolerance;
    return expectation;
}

ExpectationBuilder usesUnknownId() {
    return expectationOf(Expectation::Kind::UNKNOWN_ID);
}

ExpectationBuilder sendsBadRequest() {
    return expectationOf(Expectation::Kind::BAD_REQUEST);
}

ExpectationBuilder never(ExpectationBuilder expectation) {
    expectation.isNever = true;
    return expectation;
}

}  // namespace scenario

}  // namespace com_tesk
