#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/scenario/Actions.h"
#include "host/scenario/Expectation.h"
#include "host/scenario/Trigger.h"
#include "host/scenario/ValueSource.h"

namespace com_tesk {

/// What a host does, and what its clients must do. `LoopbackHost::play` plays it.
///
///     Scenario scenario("comes back after a reset");
///     scenario.when(scenario::sending(scenario::Message::UPDATE).of("altitude").nthTime(20), scenario::Split{{1, 33}})
///         .at(2s, scenario::Drop{true})
///         .expect(scenario::publishes("switch", 1).in(3s).afterAction("drop"))
///         .ends(10s);
struct Scenario {
    using Duration = scenario::Duration;

    /// A fault, with the occasions on which it acts.
    struct Fault {
        scenario::Trigger trigger;
        scenario::Action action;
    };
    /// An action at its time since the beginning.
    struct Step {
        Duration time{};
        scenario::Action action;
        std::string label;  ///< For `after`; by default the name of the action.
    };

    Scenario() = default;
    explicit Scenario(std::string scenarioName) : name(std::move(scenarioName)) {}

    /// Each adds to the scenario, and returns it.
    /// @{
    Scenario& when(scenario::Trigger trigger, scenario::Action action);
    Scenario& at(Duration time, scenario::Action action, std::string label = {});
    Scenario& give(std::string valueName, decltype(scenario::ValueSource::shape) shape, bool isInteger = false);
    Scenario& expect(scenario::Expectation expectation);
    Scenario& ends(Duration time);
    /// @}

    std::string name;
    std::uint64_t seed = 1;  ///< Of everything that is random.
    std::vector<scenario::ValueSource> values;
    std::vector<Fault> faults;
    std::vector<Step> timeline;
    std::vector<scenario::Expectation> expectations;
    /// When the scenario ends. Without it, the end is when every expectation is met or has failed.
    std::optional<Duration> end;
};

/// How a scenario has ended.
struct ScenarioVerdict {
    /// An expectation, in the order of the scenario.
    struct Result {
        std::string expectation;  ///< For example: client publishes switch = 1 within 3 s after drop
        unsigned line = 0;        ///< In the scenario's file; 0 without a file.
        bool isMet = false;
        /// What came instead, and the last ten events of the host; empty when it is met.
        std::string reason;
        std::vector<std::string> lastEvents;
        Scenario::Duration decidedAt{};  ///< Since the beginning.
    };
    std::vector<Result> results;
    Scenario::Duration duration{};
    bool wasInterrupted = false;  ///< The host was stopped before the end.

    /// True when the scenario was played to its end and every expectation was met.
    bool hasPassed() const;
    /// Returns one line for each expectation that was not met, and what came instead, with the last events.
    std::string text() const;
};

namespace scenario {

/// A trigger that is easy to write: `sending(Message::UPDATE).of("altitude").nthTime(3)`.
struct TriggerBuilder : Trigger {
    TriggerBuilder& of(std::string recordName);
    TriggerBuilder& nthTime(unsigned number);
    TriggerBuilder& everyNth(unsigned number);
    TriggerBuilder& onConnection(unsigned number);
    TriggerBuilder& withChance(double probability);
};
TriggerBuilder sending(Message message);
TriggerBuilder receiving(Message message);
TriggerBuilder accepting();

/// An expectation that is easy to write: `publishes("switch", 1).in(3s).afterAction("drop")`.
struct ExpectationBuilder : Expectation {
    ExpectationBuilder& in(Duration time);
    ExpectationBuilder& afterAction(std::string label);
    ExpectationBuilder& times(unsigned count);
    ExpectationBuilder& atLeastTimes(unsigned count);
    ExpectationBuilder& atMostTimes(unsigned count);
    ExpectationBuilder& atRate(double perSecond, Duration time);
    ExpectationBuilder& lastingFor(Duration time);
    ExpectationBuilder& thenAlso(Expectation next);
};
ExpectationBuilder connects();
ExpectationBuilder disconnects();
ExpectationBuilder asksVersion();
ExpectationBuilder registers(std::vector<std::string> inputs, std::vector<std::string> outputs);
ExpectationBuilder unregisters(std::vector<std::string> inputs, std::vector<std::string> outputs);
ExpectationBuilder publishes(std::string name);
ExpectationBuilder publishes(std::string name, double value, double tolerance = 0);
ExpectationBuilder usesUnknownId();
ExpectationBuilder sendsBadRequest();
/// The expectation is that it does not happen.
ExpectationBuilder never(ExpectationBuilder expectation);

}  // namespace scenario

}  // namespace com_tesk
