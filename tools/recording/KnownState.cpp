#include "tools/recording/KnownState.h"

#include <algorithm>
#include <utility>

namespace com_tesk::recording {

void KnownState::note(const Entry& entry) {
    if (const auto* state = std::get_if<State>(&entry.content)) {
        take(*state);
    } else if (const auto* version = std::get_if<Version>(&entry.content)) {
        versionText = version->text;
        protocolVersion = version->protocolVersion;
        connections[entry.connection].simulatorId = version->simulatorId;
    } else if (const auto* request = std::get_if<VersionRequest>(&entry.content)) {
        connections[entry.connection].simulatorId = request->simulatorId;
    } else if (std::holds_alternative<Connected>(entry.content)) {
        connections[entry.connection] = {};
    } else if (std::holds_alternative<Lost>(entry.content)) {
        connections.erase(entry.connection);
    } else if (const auto* update = std::get_if<Update>(&entry.content)) {
        take(update->values);
        takeInputs(entry.connection, update->values);
    } else if (const auto* publication = std::get_if<Publication>(&entry.content)) {
        take(publication->values);
    } else if (const auto* confirmation = std::get_if<Confirmation>(&entry.content)) {
        Connection& connection = connections[entry.connection];
        const bool areInputs = confirmation->direction == Direction::INPUTS;
        for (const Parameter& parameter : confirmation->parameters) {
            (areInputs ? connection.inputs : connection.outputs).insert_or_assign(parameter.name, parameter);
            if (areInputs) {
                values.insert_or_assign(parameter.name, parameter.value);
            }
        }
    } else if (const auto* unregistration = std::get_if<Unregistration>(&entry.content)) {
        Connection& connection = connections[entry.connection];
        for (const std::string& name : unregistration->names) {
            (unregistration->direction == Direction::INPUTS ? connection.inputs : connection.outputs).erase(name);
        }
    }
}

void KnownState::take(const std::vector<NamedValue>& entries) {
    for (const NamedValue& named : entries) {
        if (!named.name.empty()) {
            values.insert_or_assign(named.name, named.value);
        }
    }
}

void KnownState::takeInputs(std::uint32_t connection, const std::vector<NamedValue>& entries) {
    const auto known = connections.find(connection);
    if (known == connections.end()) {
        return;
    }
    for (const NamedValue& named : entries) {
        if (const auto input = known->second.inputs.find(named.name); input != known->second.inputs.end()) {
            input->second.value = named.value;
            input->second.isInteger = named.value.isInteger();
        }
    }
}

void KnownState::take(const State& state) {
    connections.clear();
    for (const State::Connection& connection : state.connections) {
        Connection& known = connections[connection.number];
        known.simulatorId = connection.simulatorId;
        for (const Parameter& input : connection.inputs) {
            known.inputs.insert_or_assign(input.name, input);
        }
        for (const Parameter& output : connection.outputs) {
            known.outputs.insert_or_assign(output.name, output);
        }
    }
    values.clear();
    for (const NamedValue& named : state.values) {
        values.insert_or_assign(named.name, named.value);
    }
    versionText = state.versionText;
    protocolVersion = state.protocolVersion;
}

State KnownState::state() const {
    const auto hasLowerName = [](const auto& one, const auto& other) { return one.name < other.name; };
    State result;
    for (const auto& [number, connection] : connections) {
        State::Connection known{number, connection.simulatorId, {}, {}};
        for (const auto& named : connection.inputs) {
            known.inputs.push_back(named.second);
        }
        for (const auto& named : connection.outputs) {
            known.outputs.push_back(named.second);
        }
        std::sort(known.inputs.begin(), known.inputs.end(), hasLowerName);
        std::sort(known.outputs.begin(), known.outputs.end(), hasLowerName);
        result.connections.push_back(std::move(known));
    }
    for (const auto& [name, value] : values) {
        result.values.push_back({name, 0, value});
    }
    std::sort(result.values.begin(), result.values.end(), hasLowerName);
    result.versionText = versionText;
    result.protocolVersion = protocolVersion;
    return result;
}

}  // namespace com_tesk::recording
