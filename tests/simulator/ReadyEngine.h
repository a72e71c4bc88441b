#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "client/CSClient.h"
#include "comms/CSLockGuard.h"
#include "comms/ThreadSafety.h"
#include "tests/support/Hex.h"
#include "tests/support/TestEngine.h"

namespace com_tesk::test {

using Lines = std::vector<std::string>;

constexpr unsigned int kTalking = 0;

/// An engine whose connection stands, without a worker. It belongs to the test's thread.
class ReadyEngine : public TestEngine {
  public:
    explicit ReadyEngine(unsigned int id = 5, unsigned int optionFlags = kSilent) : TestEngine(id, optionFlags) {
        connect();
        forgetRequests();
    }

    /// Sends the version request, and what is registered.
    void connect() {
        pretendState(CSClient::STATE_CONNECTING);
        startConnection();
    }

    /// The bodies of the requests sent since the connection stood, or since they were last forgotten.
    Lines requests() {
        const Lines frames = fakeTransport().written();
        Lines bodies;
        for (std::size_t i = forgotten; i < frames.size(); ++i) {
            constexpr std::size_t kHeaderText = 32 * 3;
            bodies.push_back(frames[i].size() > kHeaderText ? frames[i].substr(kHeaderText) : "no body");
        }
        return bodies;
    }

    void forgetRequests() { forgotten = fakeTransport().written().size(); }

    int registerInput(const std::string& name, CSClient::ParameterType type = CSClient::TYPE_FLOAT,
                      std::uint32_t mode = 1) {
        const CSClient::InputDef definition{name, type, mode};
        return registerInputParameters(&definition, 1);
    }

    int registerOutput(const std::string& name, CSClient::ParameterType type = CSClient::TYPE_FLOAT) {
        const CSClient::OutputDef definition{name, type};
        return registerOutputParameters(&definition, 1);
    }

    int publish(const std::string& name, std::int32_t bits) {
        CSClient::Parameter parameter;
        parameter.name = name;
        parameter.type = CSClient::TYPE_INT;
        parameter.value.asInt = bits;
        return publishParameters(&parameter, 1, PUBLISH_DEFAULT);
    }

    // Looks at the tables without a lock: nothing else runs.

    std::map<std::uint32_t, std::string> inputIds() const { return inputNamesById(); }

    std::map<std::uint32_t, std::string> outputIds() const {
        std::map<std::uint32_t, std::string> names;
        for (const auto& confirmed : outputsById()) {
            names[confirmed.first] = confirmed.second->name;
        }
        return names;
    }

    InputParameterEntry input(const std::string& name) const { return *inputsByName().at(name); }

    OutputParameterEntry output(const std::string& name) const { return *outputsByName().at(name); }

    /// Puts parameters into the tables that a registration would refuse.
    void adoptInput(const std::string& name) {
        auto* const entry = new InputParameterEntry{name, CSClient::TYPE_FLOAT, 1, kUnassignedId};
        inputsByName()[entry->name] = entry;
    }
    void adoptOutput(const std::string& name) {
        auto* const entry = new OutputParameterEntry{name, CSClient::TYPE_FLOAT, kUnassignedId, false, {0.0F}};
        outputsByName()[entry->name] = entry;
    }

    bool isParameterMutexHeldHere() const { return holdsParameterMutex(); }

    bool isAnyMutexHeldHere() const {
        return holdsConnectionMutex() || holdsCallbackMutex() || isParameterMutexHeldHere();
    }

    /// An operation that takes a lock that it must not take never returns from these.
    void withConnectionMutexHeld(const std::function<void()>& action) { underConnectionLock(action); }
    void withParameterMutexHeld(const std::function<void()>& action) {
        const CSLockGuard lock(parameterMutex());
        action();
    }

  private:
    std::size_t forgotten = 0;
};

/// Writes every callback down in a log that several may share, with every field: "inputs confirmed A(type 1 mode 3)",
/// "updated A(type 2)=FF FF FF FE". May act inside each callback, after it has been written down. Not synchronised.
class ActingCallbacks : public CSClient::CallbackIface {
  public:
    explicit ActingCallbacks(Lines& sharedLog, std::string prefix = "") : log(sharedLog), label(std::move(prefix)) {}

    std::function<void()> onInputsConfirmed;
    std::function<void()> onUpdated;
    std::function<void()> onOutputsConfirmed;

    void connectionStateChanged(CSClient::State /*oldState*/, CSClient::State newState) override {
        log.push_back(label + "state " + std::to_string(newState));
    }

    void inputParametersConfirmed(const std::vector<CSClient::InputDef>& inputs) override {
        std::string line = "inputs confirmed";
        for (const CSClient::InputDef& input : inputs) {
            line += ' ' + input.name + "(type " + std::to_string(input.type) + " mode " +
                    std::to_string(input.subscriptionMode) + ')';
        }
        finish(line, onInputsConfirmed);
    }

    void inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) override {
        std::string line = "updated";
        for (const CSClient::Parameter& parameter : parameters) {
            line += ' ' + parameter.name + "(type " + std::to_string(parameter.type) +
                    (parameter.reserved == 0 ? "" : " reserved " + std::to_string(parameter.reserved)) +
                    ")=" + hexWord(static_cast<unsigned int>(parameter.value.asInt));
        }
        finish(line, onUpdated);
    }

    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& outputs) override {
        std::string line = "outputs confirmed";
        for (const CSClient::OutputDef& output : outputs) {
            line += ' ' + output.name + "(type " + std::to_string(output.type) + ')';
        }
        finish(line, onOutputsConfirmed);
    }

  private:
    void finish(const std::string& line, const std::function<void()>& action) {
        log.push_back(label + line);
        if (action) {
            action();
        }
    }

    Lines& log;
    std::string label;
};

}  // namespace com_tesk::test
