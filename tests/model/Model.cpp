#include "tests/model/Model.h"

#include <algorithm>
#include <utility>

namespace com_tesk::test {

namespace {

constexpr std::uint32_t kRefused = 3;

std::string tooLong(const std::string& name) {
    return name.size() < 32 ? "" : "Length of parameter id string '" + name + "' exceeds maximum 32";
}

template <typename Value>
std::vector<std::string> keysOf(const std::map<std::string, Value>& table) {
    std::vector<std::string> names;
    for (const auto& entry : table) {
        names.push_back(entry.first);
    }
    return names;
}

}  // namespace

/// The line that says why a definition is refused; empty when it is not.
std::string Model::refusal(Side side, const std::vector<Step::Record>& definitions, std::size_t index) {
    const std::string& name = definitions[index].name;
    if (definitions[index].values[0] == 0) {
        return (side == INPUTS ? "Subscription type of parameter id string '"
                               : "Invalid parameter type for output id string '") +
               name + (side == INPUTS ? "' is invalid!" : "'!");
    }
    if (!tooLong(name).empty()) {
        return tooLong(name);
    }
    if (table(side).entries.count(name) != 0) {
        return "Parameter '" + name + "' already registered.";
    }
    for (std::size_t later = index + 1; later < definitions.size(); ++later) {
        if (definitions[later].name == name) {
            return "Parameter '" + name + "' is requested more than once in the same subscription call.";
        }
    }
    return "";
}

std::uint32_t Model::registerAll(Side side, const std::vector<Step::Record>& definitions) {
    if (definitions.empty()) {
        return 0;
    }
    beginTableChange();
    for (std::size_t i = 0; i < definitions.size(); ++i) {
        const std::string line = refusal(side, definitions, i);
        if (!line.empty()) {
            print("err", line);
            endTableChange();
            return kRefused;
        }
        const auto& values = definitions[i].values;
        table(side).entries[definitions[i].name] = {values[0], values[1], kUnassigned, false, 0};
    }
    const bool isLeft = table(side).isLeft && own.stateChanges == 0;
    const std::uint32_t result = isLeft ? 0 : sendRegistration(side, namesOf(definitions));
    endTableChange();
    return result;
}

std::uint32_t Model::unregister(Side side, const Names& names) {
    Table& from = table(side);
    beginTableChange();
    std::vector<std::uint32_t> ids;
    for (const std::string& name : names) {
        if (from.entries.count(name) != 0) {
            ids.push_back(from.entries[name].id);
        }
    }
    const std::uint32_t result = sendUnregistration(side, ids);
    for (const std::string& name : result == 0 ? names : Names()) {
        if (from.entries.count(name) != 0) {
            from.ids.erase(from.entries[name].id);
            from.entries.erase(name);
        }
    }
    endTableChange();
    return result;
}

std::uint32_t Model::publish(std::uint32_t mode, const std::vector<Step::Record>& values) {
    if (values.empty()) {
        return 0;
    }
    for (const Step::Record& value : values) {
        const std::string line = value.values[0] == 0
                                     ? "Subscription type of parameter id string '" + value.name + "' is invalid!"
                                 : !tooLong(value.name).empty()           ? tooLong(value.name)
                                 : outputs.entries.count(value.name) == 0 ? "Unknown parameter ID: " + value.name
                                                                          : "";
        if (!line.empty()) {
            print("err", line);
            return kRefused;
        }
    }
    beginTableChange();
    for (const Step::Record& value : values) {
        outputs.entries[value.name].bits = value.values[1];
        outputs.entries[value.name].published = true;
    }
    const std::uint32_t result = sendPublication(namesOf(values), mode);
    endTableChange();
    return result;
}

std::optional<std::uint32_t> Model::perform(const Step& step) {
    const std::uint32_t number = step.numbers[0];
    switch (step.kind) {
        case Step::REGISTER_INPUTS:
            return registerAll(INPUTS, step.records);
        case Step::REGISTER_OUTPUTS:
            return registerAll(OUTPUTS, step.records);
        case Step::UNREGISTER_INPUTS:
            return unregister(INPUTS, namesOf(step.records));
        case Step::UNREGISTER_OUTPUTS:
            return unregister(OUTPUTS, namesOf(step.records));
        case Step::UNREGISTER_ALL_INPUTS:
            unregister(INPUTS, keysOf(inputs.entries));
            break;
        case Step::UNREGISTER_ALL_OUTPUTS:
            unregister(OUTPUTS, keysOf(outputs.entries));
            break;
        case Step::PUBLISH:
            return publish(number, step.records);
        case Step::REREGISTER:
            reregisterInputs();
            reregisterOutputs();
            break;
        case Step::CONFIRM_INPUTS:
        case Step::CONFIRM_OUTPUTS:
        case Step::UPDATE:
        case Step::VERSION:
        case Step::BODY:
            if (isConnected()) {
                receive(hostMessage(step));
            }
            break;
        case Step::DISPATCH:
            receive(hostMessage(step));
            break;
        case Step::LOSE:
            lose(number);
            break;
        case Step::OPEN:
            if (state != 0) {
                return 2;
            }
            open();
            break;
        case Step::CONNECT:
        case Step::REFUSE:
            connect(step.kind == Step::CONNECT);
            break;
        case Step::FORCE_CLOSE:
            forceClose();
            break;
        case Step::END:
            end();
            break;
        case Step::FAIL_WRITE:
            writeFailures.push_back({static_cast<std::int32_t>(number), step.numbers[1]});
            break;
        case Step::SEND:
            return send(number, hostMessage(step));
        case Step::SET_SIMULATOR_ID:
            simulatorId = number < 32768 ? number : simulatorId;
            return number < 32768 ? 0 : kRefused;
        case Step::ADD:
            return number < Step::kInterfaces && interfaces.insert(number).second ? 1 : 0;
        case Step::REMOVE:
            interfaces.erase(number);
            return 0;
        case Step::WAIT:
            return wait(number, step.numbers[1]);
        case Step::QUERY:
        case Step::DURING:
        case Step::MEANWHILE:
            break;
    }
    return std::nullopt;
}

void Model::performOnAnotherThread(const std::vector<Step>& steps) {
    const bool announcedEnd = std::exchange(othersAnnounceEnd, othersAnnounceEnd || own.announcesEnd);
    const ThreadState ours = std::exchange(own, {});
    applyAll(steps);
    own = ours;
    othersAnnounceEnd = announcedEnd;
}

std::string Model::answers(const std::vector<std::string>& names) const {
    std::string text;
    for (const Table* const table : {&inputs, &outputs}) {
        const auto all = static_cast<std::uint32_t>(table->entries.size());
        const auto confirmed = static_cast<std::uint32_t>(table->ids.size());
        appendItem(text, "\ncounts", {all, confirmed, all - confirmed});
    }
    appendItem(text, "\nhost " + versionText,
               {protocolVersion, simulatorId, seenState(), port, static_cast<std::uint32_t>(interfaces.size())});
    text += port == 0 ? "\n0.0.0.0" : "\n127.0.0.1";
    for (const std::string& name : names) {
        for (const Table* const table : {&inputs, &outputs}) {
            const auto found = table->entries.find(name);
            const bool isKnown = found != table->entries.end();
            appendItem(text, "\nhas ", {isKnown, isKnown && found->second.id != kUnassigned});
        }
        const auto output = outputs.entries.find(name);
        const bool isKnown = output != outputs.entries.end();
        const std::uint32_t bits = isKnown ? output->second.bits : 5;
        for (std::uint32_t type = 0; type <= 3; ++type) {
            appendItem(text, isKnown ? name : "old", {isKnown, isKnown && type != 2 ? 1U : type, bits, 99});
        }
    }
    return text;
}

std::string Model::tables() const {
    std::string text;
    for (const auto& [name, entry] : inputs.entries) {
        appendItem(text += "\ninput ", name, {entry.type, entry.mode, entry.id});
    }
    for (const auto& [id, name] : inputs.ids) {
        appendItem(text += "\ninput id ", name, {id});
    }
    for (const auto& [name, entry] : outputs.entries) {
        appendItem(text += "\noutput ", name, {entry.type, entry.id, entry.published, entry.bits});
    }
    for (const auto& idAndName : outputs.ids) {
        appendItem(text, "\noutput id", {idAndName.first});
    }
    for (const auto& [name, entry] : outputs.entries) {
        appendItem(text += "\npublished ", name, {entry.type == 2 ? 2U : 1U, entry.bits, 0});
    }
    return text;
}

void Model::print(const char* stream, const std::string& line) {
    if ((options & 2U) == 0) {
        log.push_back(std::string(stream) + ' ' + line);
    }
}

void Model::notify(Step::Event event, const std::string& what) {
    // A callback that adds or removes others does so for the next event.
    for (const std::uint32_t callback : std::set<std::uint32_t>(interfaces)) {
        callBack(callback, event, what);
    }
}

}  // namespace com_tesk::test
