#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "client/CSClient.h"
#include "engine/CSClientProtocol.h"
#include "fuzz/Fuzzing.h"

namespace com_tesk::fuzz {

/// The expected contents of the parameter tables. The model uses plain containers and only the rules.
class TableModel {
  public:
    struct Input {
        CSClient::ParameterType type;
        std::uint32_t mode;
        std::uint32_t id = CSClientProtocol::kUnassignedId;
    };
    struct Output {
        CSClient::ParameterType type;
        std::uint32_t id = CSClientProtocol::kUnassignedId;
        bool published = false;
        std::int32_t value = 0;
    };

    /// The expected calls of the callback interfaces for one message, and the outputs to publish again after it.
    struct Answer {
        std::optional<std::vector<CSClient::InputDef>> inputs;
        std::optional<std::vector<CSClient::Parameter>> values;
        std::optional<std::vector<CSClient::OutputDef>> outputs;
        std::vector<std::string> toPublishAgain;
        bool isNewId = false;
    };

    std::map<std::string, Input> inputs;
    std::map<std::uint32_t, std::string> inputIds;
    std::map<std::string, Output> outputs;
    std::set<std::uint32_t> outputIds;
    std::uint32_t simulatorId = 1;
    std::uint32_t protocolVersion = 0;
    std::string hostVersion = "UNKNOWN";

    /// Inserts definitions until one is refused; those before it stay. @return true when all were inserted.
    template <typename Definition, typename Table>
    static bool insert(const std::vector<Definition>& definitions, Table& table) {
        for (auto definition = definitions.begin(); definition != definitions.end(); ++definition) {
            const bool isNamedAgain = std::any_of(definition + 1, definitions.end(), [&definition](const auto& other) {
                return other.name == definition->name;
            });
            if (definition->type == 0 || definition->name.size() > 31 || table.count(definition->name) != 0 ||
                isNamedAgain) {
                return false;
            }
            table[definition->name] = entryOf(*definition);
        }
        return true;
    }

    bool publish(const std::vector<CSClient::Parameter>& parameters) {
        for (const CSClient::Parameter& parameter : parameters) {
            if (parameter.type == 0 || outputs.count(parameter.name) == 0) {
                return false;
            }
        }
        for (const CSClient::Parameter& parameter : parameters) {
            outputs[parameter.name].value = parameter.value.asInt;
            outputs[parameter.name].published = true;
        }
        return true;
    }

    void eraseInput(const std::string& name) {
        if (const auto found = inputs.find(name); found != inputs.end()) {
            inputIds.erase(found->second.id);
            inputs.erase(found);
        }
    }

    void eraseOutput(const std::string& name) {
        if (const auto found = outputs.find(name); found != outputs.end()) {
            outputIds.erase(found->second.id);
            outputs.erase(found);
        }
    }

    void eraseAll() {
        inputs.clear();
        inputIds.clear();
        outputs.clear();
        outputIds.clear();
    }

    /// Makes all inputs unconfirmed, until they get new ids. Outputs stay as they are. When there are no inputs,
    /// nothing changes; even the ids of inputs that no longer exist stay.
    void reregister() {
        if (inputs.empty()) {
            return;
        }
        inputIds.clear();
        for (auto& nameAndInput : inputs) {
            nameAndInput.second.id = CSClientProtocol::kUnassignedId;
        }
    }

    Answer receive(const Bytes& body) {
        if (body.size() < 12 || body[0] != 4 || body[1] != 2) {
            return {};
        }
        switch (body[10] << 8U | body[11]) {
            case 0x0101:
                return confirmInputs(body);
            case 0x0102:
                return confirmOutputs(body);
            case 0x0003:
                return update(body);
            case 0x0106:
                return version(body);
            default:
                return {};
        }
    }

  private:
    static Input entryOf(const CSClient::InputDef& definition) {
        return {definition.type, definition.subscriptionMode, CSClientProtocol::kUnassignedId};
    }
    static Output entryOf(const CSClient::OutputDef& definition) {
        return {definition.type, CSClientProtocol::kUnassignedId, false, 0};
    }

    /// Returns the offsets of the records that are complete and announced.
    static std::vector<std::size_t> records(const Bytes& body, std::size_t countOffset, std::size_t length) {
        std::vector<std::size_t> offsets;
        std::size_t at = countOffset + 4;
        while (at + length <= body.size() && offsets.size() < wordAt(body, countOffset)) {
            offsets.push_back(at);
            at += length;
        }
        return offsets;
    }

    static std::string textAt(const Bytes& body, std::size_t at, std::size_t width) {
        const auto begin = body.begin() + static_cast<std::ptrdiff_t>(at);
        return {begin, std::find(begin, begin + static_cast<std::ptrdiff_t>(width), 0)};
    }

    static CSClient::Parameter parameter(const Bytes& body, std::string name, std::size_t flagAt) {
        CSClient::Parameter parameter;
        parameter.name = std::move(name);
        parameter.type = wordAt(body, flagAt) != 0 ? CSClient::TYPE_INT : CSClient::TYPE_FLOAT;
        parameter.value.asInt = static_cast<std::int32_t>(wordAt(body, flagAt + 4));
        return parameter;
    }

    Answer confirmInputs(const Bytes& body) {
        Answer answer;
        answer.inputs.emplace();
        answer.values.emplace();
        for (const std::size_t at : records(body, 16, 52)) {
            const std::string name = textAt(body, at + 20, 32);
            if (const auto found = inputs.find(name); found != inputs.end()) {
                found->second.id = wordAt(body, at);
                inputIds[found->second.id] = name;
                answer.inputs->push_back({name, found->second.type, found->second.mode});
                answer.values->push_back(parameter(body, name, at + 12));
            }
        }
        return answer;
    }

    Answer confirmOutputs(const Bytes& body) {
        Answer answer;
        answer.outputs.emplace();
        for (const std::size_t at : records(body, 16, 48)) {
            const std::string name = textAt(body, at + 16, 32);
            if (const auto found = outputs.find(name); found != outputs.end()) {
                found->second.id = wordAt(body, at);
                outputIds.insert(found->second.id);
                answer.outputs->push_back({name, found->second.type});
                if (found->second.published) {
                    answer.toPublishAgain.push_back(name);
                }
            }
        }
        return answer;
    }

    Answer update(const Bytes& body) const {
        std::vector<CSClient::Parameter> values;
        for (const std::size_t at : records(body, 20, 12)) {
            const std::uint32_t id = wordAt(body, at);
            if (const auto found = inputIds.find(id); id != 0 && found != inputIds.end()) {
                values.push_back(parameter(body, found->second, at + 4));
            }
        }
        Answer answer;
        if (!values.empty()) {
            answer.values = values;
        }
        return answer;
    }

    Answer version(const Bytes& body) {
        Answer answer;
        if (body.size() < 152 || wordAt(body, 148) != 1) {
            return answer;
        }
        hostVersion = textAt(body, 16, 128);
        protocolVersion = wordAt(body, 144);
        const std::uint32_t id = wordAt(body, 12) >> 16U;
        answer.isNewId = id != simulatorId;
        if (answer.isNewId) {
            simulatorId = id < 32768 ? id : simulatorId;
            reregister();
        }
        return answer;
    }
};

}  // namespace com_tesk::fuzz
