#include "tests/engine/parameters/ParameterTest.h"

#include <utility>

namespace com_tesk::test {

namespace {

std::string words(const std::vector<unsigned int>& numbers) {
    std::string text;
    for (const unsigned int number : numbers) {
        text += hexWord(number);
    }
    return text;
}

/// `head` is what a request has before the count of its records.
Requests counted(unsigned int code, const std::string& head, std::size_t count, const std::string& records) {
    const std::string rest =
        "00 7F" + hexWord(code).substr(6) + head + words({static_cast<unsigned int>(count)}) + records;
    return requestOf("04 02 7F FF" + words({static_cast<unsigned int>(8 + hex(rest).size())}) + rest);
}

/// The word with the id of the simulator.
const char kSimulator[] = "00 01 00 00";

std::string rate(unsigned int mode) {
    switch (mode) {
        case 1:
            return "00 00 2E E0";
        case 3:
            return "00 01 D4 C0";
        default:
            return "00 00 00 00";
    }
}

std::string integerFlag(CSClient::ParameterType type) {
    return type == CSClient::TYPE_INT ? "00 00 00 01" : "00 00 00 00";
}

}  // namespace

Requests operator+(Requests first, const Requests& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Requests requestOf(const std::string& bodyHex) {
    return {hexText(hex(bodyHex))};
}

Requests versionRequest() {
    return {"04 02 7F FF 00 00 00 14 00 7F 00 06 00 01 00 00 00 00 00 00"};
}

Requests inputRequest(const std::vector<CSClient::InputDef>& inputs) {
    std::string records;
    for (const CSClient::InputDef& each : inputs) {
        records +=
            rate(each.subscriptionMode) + rate(each.subscriptionMode) + integerFlag(each.type) + hexField(each.name);
    }
    return inputs.empty() ? Requests() : counted(1, kSimulator, inputs.size(), records);
}

Requests outputRequest(const std::vector<CSClient::OutputDef>& outputs) {
    std::string records;
    for (const CSClient::OutputDef& each : outputs) {
        records += "00 00 04 B0" + integerFlag(each.type) + hexField(each.name);
    }
    return outputs.empty() ? Requests() : counted(2, kSimulator, outputs.size(), records);
}

Requests inputEnd(const std::vector<unsigned int>& ids) {
    return counted(4, kSimulator, ids.size(), words(ids));
}

Requests outputEnd(const std::vector<unsigned int>& ids) {
    return counted(5, kSimulator, ids.size(), words(ids));
}

Requests publication(const std::vector<SentValue>& values, unsigned int mode) {
    std::string records;
    for (const SentValue& value : values) {
        records += words({value.id, value.integerFlag, value.bits});
    }
    return counted(3, kSimulator + words({mode}), values.size(), records);
}

std::string longName(char last) {
    return std::string(30, 'n') + last;
}

int DerivedEngine::registerInputParameters(const CSClient::InputDef* definitions, unsigned int count) {
    EXPECT_FALSE(holdsParameterMutex());
    // A copy, because the hook may replace itself.
    const auto replacement = onRegisterInputs;
    return replacement ? replacement(std::vector<CSClient::InputDef>(definitions, definitions + count))
                       : TestEngine::registerInputParameters(definitions, count);
}

int DerivedEngine::unregisterInputParameters(const std::vector<std::string>& names) {
    EXPECT_FALSE(holdsParameterMutex());
    if (onUnregisterInputs) {
        onUnregisterInputs(names);
    }
    return TestEngine::unregisterInputParameters(names);
}

int DerivedEngine::requestSimulatorVersion() {
    const int result = TestEngine::requestSimulatorVersion();
    if (onVersionRequested) {
        onVersionRequested();
    }
    return result;
}

void DerivedEngine::handleConnectionStateChange(CSClient::State oldState, CSClient::State newState) {
    const auto handle = [this, oldState, newState] { TestEngine::handleConnectionStateChange(oldState, newState); };
    if (onState) {
        onState(newState, handle);
    } else {
        handle();
    }
}

int DerivedEngine::registerAsTheEngine(const std::vector<CSClient::InputDef>& definitions) {
    return TestEngine::registerInputParameters(definitions.data(), static_cast<unsigned int>(definitions.size()));
}

std::string Inputs::row(const std::string& name, const std::string& status, CSClient::ParameterType type) {
    return name + " type " + std::to_string(type) + " mode 1 " + status;
}

std::string Inputs::invalidType(const std::string& name) {
    return "Subscription type of parameter id string '" + name + "' is invalid!\n";
}

std::string Outputs::row(const std::string& name, const std::string& status, CSClient::ParameterType type) {
    return name + " type " + std::to_string(type) + " " + status + " 00000000";
}

std::string Outputs::invalidType(const std::string& name) {
    return "Invalid parameter type for output id string '" + name + "'!\n";
}

}  // namespace com_tesk::test
