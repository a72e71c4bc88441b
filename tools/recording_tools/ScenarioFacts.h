#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/recording_tools/Connections.h"

namespace com_tesk::recording {

/// True for a name that a file of YAML and a scenario permit.
bool isScenarioName(const std::string& name);

/// Finds the values of a recording that a host of a scenario has to give: every update, and the values in confirmations
/// that differ from what was known.
class HostSteps {
  public:
    /// Calls `take(name, value)` for each value of the entry that is a step. Values that are not finite are none.
    template <typename Take>
    void forEach(const Entry& entry, const Take& take) {
        if (const auto* const update = std::get_if<Update>(&entry.content)) {
            for (const NamedValue& value : update->values) {
                step(value.name, value.value, true, take);
            }
        } else if (const auto* const confirmation = std::get_if<Confirmation>(&entry.content)) {
            if (confirmation->direction == Direction::INPUTS) {
                stepsOf(confirmation->parameters, take);
            }
        } else if (const auto* const state = std::get_if<State>(&entry.content)) {
            for (const State::Connection& connection : state->connections) {
                stepsOf(connection.inputs, take);
            }
        }
    }

  private:
    template <typename Take>
    void stepsOf(const std::vector<Parameter>& parameters, const Take& take) {
        for (const Parameter& parameter : parameters) {
            step(parameter.name, parameter.value, false, take);
        }
    }

    template <typename Take>
    void step(const std::string& name, const HostValue& value, bool isUpdate, const Take& take) {
        if (!isUsable(name, value)) {
            return;
        }
        const auto [known, isNew] = last.try_emplace(name, value);
        if (isUpdate || isNew || known->second != value) {
            known->second = value;
            take(name, value);
        }
    }

    static bool isUsable(const std::string& name, const HostValue& value);

    std::unordered_map<std::string, HostValue> last;
};

/// What a scenario says about a recording. The memory depends on the number of names and losses only.
class ScenarioFacts {
  public:
    static constexpr std::size_t kMaxLosses = 1000;

    struct Input {
        std::uint64_t steps = 0;
        HostValue first = HostValue::real(0);
        bool isInteger = true;  ///< All values are.
    };
    struct Output {
        HostValue first = HostValue::real(0);
        HostValue last = HostValue::real(0);
        Time firstAt{};
        Time lastAt{};
    };

    void note(const Entry& entry);

    /// Returns the time of the first connection; nothing without any.
    std::optional<Time> origin() const { return begin; }
    Time end() const { return latest; }
    const std::map<std::string, Input>& inputs() const { return byInput; }
    const std::map<std::string, Output>& outputs() const { return byOutput; }
    /// Returns what was confirmed on the first connection with confirmations.
    const std::set<std::string>& registered(Direction direction) const {
        return direction == Direction::INPUTS ? firstInputs : firstOutputs;
    }
    /// Returns the names that a client has asked for and the host has never confirmed.
    std::set<std::string> refused() const;
    const std::set<std::string>& confirmed() const { return confirmedNames; }
    /// Returns the first losses that the client has recovered from.
    const std::vector<Connections::Outage>& losses() const { return recovered; }
    const std::optional<Version>& version() const { return reported; }
    /// Returns the simulator id that the host gave to a client with another one.
    std::optional<std::uint16_t> assignedId() const { return assigned; }

  private:
    void noteConfirmed(std::uint32_t connection, Direction direction, const std::vector<Parameter>& parameters);
    void noteMessages(const Entry& entry);

    HostSteps steps;
    Connections connections;
    std::optional<Time> begin;
    Time latest{};
    std::map<std::string, Input> byInput;
    std::map<std::string, Output> byOutput;
    std::optional<std::uint32_t> firstConnection;
    std::set<std::string> firstInputs;
    std::set<std::string> firstOutputs;
    std::set<std::string> requestedNames;
    std::set<std::string> confirmedNames;
    std::vector<Connections::Outage> recovered;
    std::optional<Version> reported;
    std::uint16_t requestedId = 0;
    std::optional<std::uint16_t> assigned;
};

}  // namespace com_tesk::recording
