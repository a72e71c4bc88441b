#pragma once

#include <string>
#include <vector>

#include "client/CSClient.h"
#include "comms/CSLockGuard.h"
#include "comms/ThreadSafety.h"
#include "tests/support/Hex.h"
#include "tests/support/TestEngine.h"

namespace com_tesk::test {

/// An engine that writes down what reaches it, and answers with what the test says.
///
/// Request senders are always written down and answered with `senderResult`: the engine hands that on unchanged. The
/// virtual operations on inputs are written down only when `interceptsInputs` is set, and then answered with
/// `inputResult` instead of being carried out.
class ProbeEngine : public TestEngine {
  public:
    explicit ProbeEngine(unsigned int optionFlags = CSClient::OPTION_SILENT) : TestEngine(1, optionFlags) {}

    std::vector<std::string> calls;
    int senderResult = 0;
    bool interceptsInputs = false;
    int inputResult = 0;
    const CSClient::InputDef* lastDefinitions = nullptr;

    /// Copies of entries; throw when there is none of that name.
    InputParameterEntry input(const std::string& name) {
        const CSLockGuard lock(parameterMutex());
        return *inputsByName().at(name);
    }
    OutputParameterEntry output(const std::string& name) {
        const CSLockGuard lock(parameterMutex());
        return *outputsByName().at(name);
    }
    bool knowsInput(const std::string& name) const { return hasInputParameter(name, false); }
    bool knowsOutput(const std::string& name) const { return hasOutputParameter(name, false); }

    int registerInputParameters(const CSClient::InputDef* definitions, unsigned int count) override {
        if (!interceptsInputs) {
            return TestEngine::registerInputParameters(definitions, count);
        }
        lastDefinitions = definitions;
        std::string line = "register inputs " + std::to_string(count) + ":";
        for (unsigned int i = 0; i < count; ++i) {
            line += ' ' + definitions[i].name;
        }
        calls.push_back(line);
        return inputResult;
    }

    int unregisterInputParameters(const std::vector<std::string>& names) override {
        if (!interceptsInputs) {
            return TestEngine::unregisterInputParameters(names);
        }
        std::string line = "unregister inputs " + std::to_string(names.size()) + ":";
        for (const std::string& name : names) {
            line += ' ' + name;
        }
        calls.push_back(line);
        return inputResult;
    }

    int sendInputSubscriptionRequest(const std::vector<InputParameterEntry*>& entries) override {
        return record("send inputs", entries);
    }
    int sendInputUnsubscriptionRequest(const std::vector<InputParameterEntry*>& entries) override {
        return record("send end of inputs", entries);
    }
    int sendOutputSubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) override {
        return record("send outputs", entries);
    }
    int sendOutputUnsubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) override {
        return record("send end of outputs", entries);
    }
    int sendParameterPublishRequest(const std::vector<OutputParameterEntry*>& entries, PublishMode mode) override {
        return record("publish in mode " + std::to_string(mode), entries);
    }

  private:
    template <typename Entry>
    int record(std::string line, const std::vector<Entry*>& entries) {
        line += ':';
        for (const Entry* const entry : entries) {
            line += ' ' + entry->name;
        }
        calls.push_back(line);
        return senderResult;
    }
};

/// A client around an engine whose insides the test can reach.
template <typename Engine>
class ClientOf : public CSClient {
  public:
    explicit ClientOf(unsigned int optionFlags = CSClient::OPTION_SILENT)
        : CSClient(optionFlags), probed(new Engine(optionFlags)) {
        engine = probed;
    }
    /// A state that is only pretended has no worker to end it.
    ~ClientOf() override {
        if (pretends) {
            probed->pretendState(STATE_DISCONNECTED);
        }
    }

    void pretendState(State state) {
        pretends = true;
        probed->pretendState(state);
    }

    Engine* const probed;

  private:
    bool pretends = false;
};

using ProbedClient = ClientOf<ProbeEngine>;

using Lines = std::vector<std::string>;

/// What a host sends to confirm one output, or one float input whose value is 1.5.
inline std::string outputConfirmation(unsigned int id, const std::string& name) {
    return "04 02 7F FF 00 00 00 44 00 7F 01 02 00 01 00 00 00 00 00 01 " + hexWord(id) +
           " 00 00 04 B0 00 00 00 00 00 00 00 00 " + hexField(name);
}
inline std::string inputConfirmation(unsigned int id, const std::string& name) {
    return "04 02 7F FF 00 00 00 48 00 7F 01 01 00 01 00 00 00 00 00 01 " + hexWord(id) +
           " 00 00 00 00 00 00 00 00 00 00 00 00 3F C0 00 00 " + hexField(name);
}

}  // namespace com_tesk::test
