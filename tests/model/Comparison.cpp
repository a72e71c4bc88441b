#include "tests/model/Comparison.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>

#include "tests/model/Model.h"
#include "tests/model/Subject.h"

namespace com_tesk::test {

namespace {

constexpr std::size_t kFullLookEvery = 64;
constexpr std::size_t kFewNames = 3;

template <typename Number>
std::string numbers(const char* what, Number engine, Number model) {
    return std::string(what) + ": " + std::to_string(engine) + ", the model: " + std::to_string(model);
}

std::uint32_t bitsOf(const CSClient::Value& value) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

void collectNames(const Step& step, std::set<std::string>& names) {
    for (const Step::Record& record : step.records) {
        if (step.kind != Step::BODY && step.kind != Step::SEND) {
            names.insert(record.name);
        }
    }
    for (const Step& inner : step.inside) {
        collectNames(inner, names);
    }
}

class Comparison {
  public:
    explicit Comparison(const Life& life)
        : model(life.simulatorId, life.options), subject(life.simulatorId, life.options) {
        std::set<std::string> sorted{"", "never named"};
        for (const Step& step : life.steps) {
            collectNames(step, sorted);
        }
        names.assign(sorted.begin(), sorted.end());
    }

    std::string takeStep(const Step& step, std::size_t index, bool isLast) {
        model.apply(step);
        subject.apply(step);
        if (subject.engine.holdsAnyLock()) {
            // Not even the end of the test would come; and standard error is the subject's.
            std::fprintf(stderr, "a lock was left held by: %s\n", textOf(step).c_str());
            std::_Exit(EXIT_FAILURE);
        }
        std::string found = compareEvents();
        const auto add = [&found](const std::string& text) {
            if (!text.empty()) {
                found += (found.empty() ? "" : "\n") + text;
            }
        };
        add(compareInputTables());
        add(compareOutputTables());
        add(compareCounters());
        const bool all = isLast || index % kFullLookEvery == 0;
        for (std::size_t i = 0; i < (all ? names.size() : kFewNames); ++i) {
            add(compareQueries(names[(index * kFewNames + i) % names.size()]));
        }
        if (all) {
            add(compareListing());
        }
        return found;
    }

  private:
    std::string compareEvents() {
        std::string text;
        if (subject.log != model.log) {
            text = "the engine:" + listed(subject.log) + "\nthe model:" + listed(model.log);
        }
        subject.log.clear();
        model.log.clear();
        return text;
    }

    static std::string listed(const EventLog& log) {
        std::string text;
        for (const std::string& event : log) {
            const bool isFrame = event.compare(0, 5, "sent ") == 0;
            text += "\n    " + (isFrame ? "sent " + escaped(event.substr(5)) : event);
        }
        return text;
    }

    std::string compareInputTables() const {
        const auto sameEntry = [](const auto& ours, const auto& theirs) {
            const CSClientProtocol::InputParameterEntry& entry = *ours.second;
            const Model::Input& input = theirs.second;
            return ours.first == theirs.first && entry.name == theirs.first && entry.type == input.type &&
                   entry.subscriptionMode == input.mode && entry.serverId == input.id;
        };
        const auto& table = subject.engine.inputsByName();
        if (!std::equal(table.begin(), table.end(), model.inputs.begin(), model.inputs.end(), sameEntry)) {
            std::string text = "inputs by name:";
            for (const auto& nameAndEntry : table) {
                text += inputText(nameAndEntry.second->name, nameAndEntry.second->type,
                                  nameAndEntry.second->subscriptionMode, nameAndEntry.second->serverId);
            }
            text += ", the model:";
            for (const auto& nameAndInput : model.inputs) {
                const Model::Input& input = nameAndInput.second;
                text += inputText(nameAndInput.first, input.type, input.mode, input.id);
            }
            return text;
        }
        if (subject.engine.inputNamesById() != model.inputIds) {
            std::string text = "input names by id:";
            for (const auto& idAndName : subject.engine.inputNamesById()) {
                text += ' ' + std::to_string(idAndName.first) + '=' + escaped(idAndName.second);
            }
            text += ", the model:";
            for (const auto& idAndName : model.inputIds) {
                text += ' ' + std::to_string(idAndName.first) + '=' + escaped(idAndName.second);
            }
            return text;
        }
        return "";
    }

    static std::string inputText(const std::string& name, std::uint32_t type, std::uint32_t mode, std::uint32_t id) {
        return ' ' + escaped(name) + ",type " + std::to_string(type) + ",mode " + std::to_string(mode) + ",id " +
               std::to_string(id);
    }

    std::string compareOutputTables() const {
        const auto sameEntry = [](const auto& ours, const auto& theirs) {
            const CSClientProtocol::OutputParameterEntry& entry = *ours.second;
            const Model::Output& output = theirs.second;
            return ours.first == theirs.first && entry.name == theirs.first && entry.type == output.type &&
                   entry.serverId == output.id && entry.published == output.published &&
                   bitsOf(entry.value) == output.bits;
        };
        const auto& table = subject.engine.outputsByName();
        if (!std::equal(table.begin(), table.end(), model.outputs.begin(), model.outputs.end(), sameEntry)) {
            std::string text = "outputs by name:";
            for (const auto& nameAndEntry : table) {
                const CSClientProtocol::OutputParameterEntry& entry = *nameAndEntry.second;
                text += outputText(entry.name, {entry.type, entry.serverId, entry.published, bitsOf(entry.value), 0});
            }
            text += ", the model:";
            for (const auto& nameAndOutput : model.outputs) {
                text += outputText(nameAndOutput.first, nameAndOutput.second);
            }
            return text;
        }
        const auto& ids = subject.engine.outputsById();
        const auto sameReference = [this, &table](const auto& ours, const auto& theirs) {
            const auto output = model.outputs.find(theirs.second.name);
            // What stands under the id of an output that is gone is never looked at.
            const bool isGone = output == model.outputs.end() || output->second.serial != theirs.second.serial;
            return ours.first == theirs.first && (isGone || ours.second == table.at(theirs.second.name));
        };
        if (!std::equal(ids.begin(), ids.end(), model.outputIds.begin(), model.outputIds.end(), sameReference)) {
            std::string text = "ids of outputs:";
            for (const auto& idAndEntry : ids) {
                text += ' ' + std::to_string(idAndEntry.first);
            }
            text += ", the model:";
            for (const auto& idAndName : model.outputIds) {
                text += ' ' + std::to_string(idAndName.first) + '=' + escaped(idAndName.second.name);
            }
            return text;
        }
        return "";
    }

    static std::string outputText(const std::string& name, const Model::Output& output) {
        return ' ' + escaped(name) + ",type " + std::to_string(output.type) + ",id " + std::to_string(output.id) +
               (output.published ? ",published " : ",never published ") + std::to_string(output.bits);
    }

    std::string compareCounters() const {
        const SubjectEngine& engine = subject.engine;
        const auto size = [](const auto& table) { return static_cast<unsigned int>(table.size()); };
        const auto waiting = [](const auto& all, const auto& ids) {
            return static_cast<int>(all.size()) - static_cast<int>(ids.size());
        };
        const std::pair<long, long> pairs[] = {
            {engine.getNumberOfInputParameters(false), size(model.inputs)},
            {engine.getNumberOfInputParameters(true), size(model.inputIds)},
            {engine.getNumberOfOutputParameters(false), size(model.outputs)},
            {engine.getNumberOfOutputParameters(true), size(model.outputIds)},
            {engine.getNumberOfInputParametersWaitingForConfirmation(), waiting(model.inputs, model.inputIds)},
            {engine.getNumberOfOutputParametersWaitingForConfirmation(), waiting(model.outputs, model.outputIds)},
            {engine.getState(), model.state},
            {engine.getServerPort(), model.port},
            {engine.getSimulatorId(), model.simulatorId},
            {engine.getProtocolVersion(), model.protocolVersion},
            {engine.getNumCallbackInterfaces(),
             std::count(std::begin(model.interfaces), std::end(model.interfaces), true)},
        };
        static const char* const what[] = {"inputs",         "input ids",        "outputs",   "output ids",
                                           "waiting inputs", "waiting outputs",  "state",     "port",
                                           "simulator id",   "protocol version", "interfaces"};
        for (std::size_t i = 0; i < std::size(pairs); ++i) {
            if (pairs[i].first != pairs[i].second) {
                return numbers(what[i], pairs[i].first, pairs[i].second);
            }
        }
        if (engine.getServerIPAddress() != (model.address == 0 ? "0.0.0.0" : "127.0.0.1")) {
            return "server address: " + engine.getServerIPAddress();
        }
        return engine.getServerVersion() == model.versionText ? "" : "server version: " + engine.getServerVersion();
    }

    std::string compareQueries(const std::string& name) const {
        const SubjectEngine& engine = subject.engine;
        const auto input = model.inputs.find(name);
        const auto output = model.outputs.find(name);
        const bool hasInput = input != model.inputs.end();
        const bool hasOutput = output != model.outputs.end();
        if (engine.hasInputParameter(name, false) != hasInput ||
            engine.hasInputParameter(name, true) != (hasInput && input->second.id != kWaiting)) {
            return "hasInputParameter of " + escaped(name);
        }
        if (engine.hasOutputParameter(name, false) != hasOutput ||
            engine.hasOutputParameter(name, true) != (hasOutput && output->second.id != kWaiting)) {
            return "hasOutputParameter of " + escaped(name);
        }
        for (std::uint32_t type = 0; type <= 3; ++type) {
            CSClient::Parameter parameter{"old", {}, type, 99};
            parameter.value.asInt = 5;
            const bool found = engine.findPublishedParameter(name, parameter);
            const std::uint32_t expectedType = hasOutput && type != 2 ? 1 : type;
            if (found != hasOutput || parameter.name != (hasOutput ? name : "old") || parameter.type != expectedType ||
                bitsOf(parameter.value) != (hasOutput ? output->second.bits : 5U) || parameter.reserved != 99) {
                return "findPublishedParameter of " + escaped(name);
            }
        }
        return "";
    }

    std::string compareListing() const {
        std::vector<CSClient::Parameter> listed(1);
        subject.engine.getAllPublishedParameters(listed);
        const auto same = [](const CSClient::Parameter& parameter, const auto& nameAndOutput) {
            const Model::Output& output = nameAndOutput.second;
            return parameter.name == nameAndOutput.first && parameter.type == (output.type == 2 ? 2U : 1U) &&
                   bitsOf(parameter.value) == output.bits && parameter.reserved == 0;
        };
        return std::equal(listed.begin() + 1, listed.end(), model.outputs.begin(), model.outputs.end(), same)
                   ? ""
                   : "getAllPublishedParameters";
    }

    Model model;
    Subject subject;
    std::vector<std::string> names;
};

}  // namespace

std::optional<Difference> firstDifference(const Life& life) {
    Comparison comparison(life);
    for (std::size_t i = 0; i < life.steps.size(); ++i) {
        const std::string what = comparison.takeStep(life.steps[i], i, i + 1 == life.steps.size());
        if (!what.empty()) {
            return Difference{i, what};
        }
    }
    return std::nullopt;
}

}  // namespace com_tesk::test
