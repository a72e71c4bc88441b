#include "tests/model/Model.h"

#include <algorithm>
#include <utility>

namespace com_tesk::test {

namespace {

constexpr std::uint32_t kRefused = 3;

bool isTooLong(const std::string& name) {
    return name.size() >= 32;
}

bool occursLater(const std::vector<Step::Record>& records, std::size_t index) {
    for (std::size_t i = index + 1; i < records.size(); ++i) {
        if (records[i].name == records[index].name) {
            return true;
        }
    }
    return false;
}

/// The line that says why a definition is refused; empty when it is not.
std::string refusal(const std::vector<Step::Record>& definitions, std::size_t index, bool isKnown,
                    const std::string& invalidType) {
    const std::string& name = definitions[index].name;
    if (definitions[index].values[0] == 0) {
        return invalidType;
    }
    if (isTooLong(name)) {
        return "Length of parameter id string '" + name + "' exceeds maximum 32";
    }
    if (isKnown) {
        return "Parameter '" + name + "' already registered.";
    }
    if (occursLater(definitions, index)) {
        return "Parameter '" + name + "' is requested more than once in the same subscription call.";
    }
    return "";
}

std::vector<std::string> namesOf(const std::vector<Step::Record>& records) {
    std::vector<std::string> names;
    for (const Step::Record& record : records) {
        names.push_back(record.name);
    }
    return names;
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

std::uint32_t Model::registerInputs(const std::vector<Step::Record>& definitions) {
    if (definitions.empty()) {
        return 0;
    }
    beginTableChange();
    for (std::size_t i = 0; i < definitions.size(); ++i) {
        const std::string& name = definitions[i].name;
        const std::string line = refusal(definitions, i, inputs.count(name) != 0,
                                         "Subscription type of parameter id string '" + name + "' is invalid!");
        if (!line.empty()) {
            print("err", line);
            endTableChange();
            return kRefused;
        }
        inputs[name] = {definitions[i].values[0], definitions[i].values[1], kWaiting};
    }
    const bool isLeft = leavesInputs && stateChanges == 0;
    const std::uint32_t result = isLeft ? 0 : sendInputSubscription(namesOf(definitions));
    endTableChange();
    return result;
}

std::uint32_t Model::registerOutputs(const std::vector<Step::Record>& definitions) {
    if (definitions.empty()) {
        return 0;
    }
    beginTableChange();
    for (std::size_t i = 0; i < definitions.size(); ++i) {
        const std::string& name = definitions[i].name;
        const std::string line = refusal(definitions, i, outputs.count(name) != 0,
                                         "Invalid parameter type for output id string '" + name + "'!");
        if (!line.empty()) {
            print("err", line);
            endTableChange();
            return kRefused;
        }
        outputs[name] = {definitions[i].values[0], kWaiting, false, 0, nextSerial++};
    }
    const bool isLeft = leavesOutputs && stateChanges == 0;
    const std::uint32_t result = isLeft ? 0 : sendOutputSubscription(namesOf(definitions));
    endTableChange();
    return result;
}

std::uint32_t Model::unregisterInputs(const std::vector<std::string>& names) {
    beginTableChange();
    std::vector<std::uint32_t> ids;
    for (const std::string& name : names) {
        if (inputs.count(name) != 0) {
            ids.push_back(inputs[name].id);
        }
    }
    const std::uint32_t result = sendUnsubscription(4, ids);
    if (result == 0) {
        for (const std::string& name : names) {
            if (inputs.count(name) != 0) {
                inputIds.erase(inputs[name].id);
                inputs.erase(name);
            }
        }
    }
    endTableChange();
    return result;
}

std::uint32_t Model::unregisterOutputs(const std::vector<std::string>& names) {
    beginTableChange();
    std::vector<std::uint32_t> ids;
    for (const std::string& name : names) {
        if (outputs.count(name) != 0) {
            ids.push_back(outputs[name].id);
        }
    }
    const std::uint32_t result = sendUnsubscription(5, ids);
    if (result == 0) {
        for (const std::string& name : names) {
            if (outputs.count(name) != 0) {
                outputIds.erase(outputs[name].id);
                outputs.erase(name);
            }
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
        if (value.values[0] == 0) {
            print("err", "Subscription type of parameter id string '" + value.name + "' is invalid!");
            return kRefused;
        }
        if (isTooLong(value.name)) {
            print("err", "Length of parameter id string '" + value.name + "' exceeds maximum 32");
            return kRefused;
        }
        if (outputs.count(value.name) == 0) {
            print("err", "Unknown parameter ID: " + value.name);
            return kRefused;
        }
    }
    beginTableChange();
    for (const Step::Record& value : values) {
        outputs[value.name].bits = value.values[1];
        outputs[value.name].published = true;
    }
    const std::uint32_t result = sendPublication(namesOf(values), mode);
    endTableChange();
    return result;
}

void Model::apply(const Step& step) {
    if (othersHoldTables && needsTables(step)) {
        return;
    }
    const auto result = [this](std::uint32_t value) { log.push_back("result " + std::to_string(value)); };
    switch (step.kind) {
        case Step::REGISTER_INPUTS:
            return result(registerInputs(step.records));
        case Step::REGISTER_OUTPUTS:
            return result(registerOutputs(step.records));
        case Step::UNREGISTER_INPUTS:
            return result(unregisterInputs(namesOf(step.records)));
        case Step::UNREGISTER_OUTPUTS:
            return result(unregisterOutputs(namesOf(step.records)));
        case Step::UNREGISTER_ALL_INPUTS:
            unregisterInputs(keysOf(inputs));
            return;
        case Step::UNREGISTER_ALL_OUTPUTS:
            unregisterOutputs(keysOf(outputs));
            return;
        case Step::PUBLISH:
            return result(publish(step.numbers[0], step.records));
        case Step::CONFIRM_INPUTS:
        case Step::CONFIRM_OUTPUTS:
        case Step::UPDATE:
        case Step::VERSION:
        case Step::BODY:
            return receive(hostMessage(step));
        case Step::LOSE:
            return lose(step.numbers[0]);
        case Step::OPEN:
            return open();
        case Step::CONNECT:
        case Step::REFUSE:
            return connect(step.kind == Step::CONNECT);
        case Step::FORCE_CLOSE:
            return forceClose();
        case Step::END:
            return end();
        case Step::FAIL_WRITE:
            writeFailures.push_back({static_cast<std::int32_t>(step.numbers[0]), step.numbers[1]});
            return;
        case Step::SEND:
            return result(sendRaw(step.numbers[0], step.records.empty() ? "" : step.records[0].name));
        case Step::SET_SIMULATOR_ID:
            if (step.numbers[0] >= 32768) {
                return result(kRefused);
            }
            simulatorId = step.numbers[0];
            return result(0);
        case Step::ADD:
            if (step.numbers[0] >= Step::kInterfaces || interfaces[step.numbers[0]]) {
                return result(0);
            }
            interfaces[step.numbers[0]] = true;
            return result(1);
        case Step::REMOVE:
            if (step.numbers[0] < Step::kInterfaces) {
                interfaces[step.numbers[0]] = false;
            }
            return result(0);
        case Step::WAIT:
            return wait(step.numbers[0], step.numbers[1]);
        case Step::DURING:
        case Step::MEANWHILE:
            insides[{step.numbers[0], step.numbers[1]}].push_back(step);
            return;
    }
}

void Model::print(const char* stream, const std::string& line) {
    if (!isSilent()) {
        log.push_back(std::string(stream) + ' ' + line);
    }
}

std::vector<std::uint32_t> Model::interfacesNow() const {
    std::vector<std::uint32_t> now;
    for (std::uint32_t i = 0; i < Step::kInterfaces; ++i) {
        if (interfaces[i]) {
            now.push_back(i);
        }
    }
    return now;
}

void Model::notify(Step::Event event, const std::string& what) {
    for (const std::uint32_t callback : interfacesNow()) {
        notifyOne(callback, event, what);
    }
}

void Model::notifyOne(std::uint32_t callback, Step::Event event, const std::string& what) {
    log.push_back(std::to_string(callback) + ' ' + what);
    happen(event, callback);
}

void Model::happen(Step::Event event, std::uint32_t number) {
    std::deque<Step>& waiting = insides[{event, number}];
    if (waiting.empty()) {
        return;
    }
    const Step next = waiting.front();
    waiting.pop_front();
    if (next.kind == Step::MEANWHILE) {
        return applyOnAnotherThread(next.inside);
    }
    for (const Step& step : next.inside) {
        apply(step);
    }
}

void Model::applyOnAnotherThread(const std::vector<Step>& steps) {
    const bool heldTables = std::exchange(othersHoldTables, othersHoldTables || tableChanges > 0);
    const bool heldChange = std::exchange(othersHoldChange, othersHoldChange || stateChanges > 0);
    const bool announcedEnd = std::exchange(othersAnnounceEnd, othersAnnounceEnd || announcesEnd);
    const unsigned int ownTableChanges = std::exchange(tableChanges, 0);
    const unsigned int ownStateChanges = std::exchange(stateChanges, 0);
    const bool owesItself = std::exchange(owesClose, false);
    const bool announcesItself = std::exchange(announcesEnd, false);
    for (const Step& step : steps) {
        apply(step);
    }
    othersHoldTables = heldTables;
    othersHoldChange = heldChange;
    tableChanges = ownTableChanges;
    stateChanges = ownStateChanges;
    owesClose = owesItself;
    othersAnnounceEnd = announcedEnd;
    announcesEnd = announcesItself;
}

}  // namespace com_tesk::test
