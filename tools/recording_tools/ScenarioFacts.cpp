#include "tools/recording_tools/ScenarioFacts.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "tools/Json.h"
#include "tools/ParameterNames.h"
#include "tools/recording_tools/Texts.h"

namespace com_tesk::recording {

bool isScenarioName(const std::string& name) {
    return tools::nameError(name).empty() && tools::isUtf8(name);
}

bool HostSteps::isUsable(const std::string& name, const HostValue& value) {
    return isScenarioName(name) && std::isfinite(numberOf(value));
}

void ScenarioFacts::noteConfirmed(std::uint32_t connection, Direction direction,
                                  const std::vector<Parameter>& parameters) {
    const bool isFirst = firstConnection.value_or(connection) == connection;
    for (const Parameter& parameter : parameters) {
        if (isScenarioName(parameter.name)) {
            confirmedNames.insert(parameter.name);
            if (isFirst) {
                firstConnection = connection;
                (direction == Direction::INPUTS ? firstInputs : firstOutputs).insert(parameter.name);
            }
        }
    }
}

void ScenarioFacts::noteMessages(const Entry& entry) {
    if (const auto* const confirmation = std::get_if<Confirmation>(&entry.content)) {
        noteConfirmed(entry.connection, confirmation->direction, confirmation->parameters);
    } else if (const auto* const registration = std::get_if<Registration>(&entry.content)) {
        for (const Parameter& parameter : registration->parameters) {
            if (isScenarioName(parameter.name)) {
                requestedNames.insert(parameter.name);
            }
        }
    } else if (const auto* const request = std::get_if<VersionRequest>(&entry.content)) {
        requestedId = request->simulatorId;
    } else if (const auto* const version = std::get_if<Version>(&entry.content)) {
        reported = *version;
        if (version->simulatorId != requestedId && requestedId != 0) {
            assigned = version->simulatorId;
        }
    } else if (const auto* const publication = std::get_if<Publication>(&entry.content)) {
        for (const NamedValue& value : publication->values) {
            if (isScenarioName(value.name)) {
                Output& output =
                    byOutput.try_emplace(value.name, Output{value.value, value.value, entry.time, {}}).first->second;
                output.last = value.value;
                output.lastAt = entry.time;
            }
        }
    }
}

void ScenarioFacts::note(const Entry& entry) {
    latest = entry.time;
    const auto* const state = std::get_if<State>(&entry.content);
    if (!begin && (entry.connection != 0 || (state != nullptr && !state->connections.empty()))) {
        begin = entry.time;
    }
    if (state != nullptr) {
        for (const State::Connection& connection : state->connections) {
            noteConfirmed(connection.number, Direction::INPUTS, connection.inputs);
            noteConfirmed(connection.number, Direction::OUTPUTS, connection.outputs);
        }
        if (!reported && !state->versionText.empty()) {
            reported = Version{state->versionText, state->protocolVersion};
        }
    }
    if (const auto outage = connections.note(entry); outage && recovered.size() < kMaxLosses) {
        recovered.push_back(*outage);
    }
    noteMessages(entry);
    steps.forEach(entry, [this](const std::string& name, const HostValue& value) {
        Input& input = byInput.try_emplace(name, Input{0, value}).first->second;
        ++input.steps;
        input.isInteger = input.isInteger && value.isInteger();
    });
}

std::set<std::string> ScenarioFacts::refused() const {
    std::set<std::string> names;
    std::set_difference(requestedNames.begin(), requestedNames.end(), confirmedNames.begin(), confirmedNames.end(),
                        std::inserter(names, names.end()));
    return names;
}

}  // namespace com_tesk::recording
