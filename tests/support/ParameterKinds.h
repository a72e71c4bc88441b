#pragma once

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

#include "client/CSClient.h"
#include "tests/support/TestEngine.h"

namespace com_tesk::test {

// The two kinds of parameters, under names that both have, so that one test covers both. The members with a "k" are
// operations of an engine; the functions that take a client are those of a client. `row` returns a row of the engine's
// table. Its status is, for example, "waiting" or "id 7".

struct Inputs {
    using Definition = CSClient::InputDef;
    static constexpr const char* kWord = "input";
    static constexpr auto kRegister = &TestEngine::registerInputs;
    static constexpr auto kUnregister = &CSClientProtocol::unregisterInputParameters;
    static constexpr auto kUnregisterAll = &CSClientProtocol::unregisterAllInputParameters;
    static constexpr auto kReregister = &CSClientProtocol::reregisterAllInputParameters;
    static constexpr auto kNumber = &CSClientProtocol::getNumberOfInputParameters;
    static constexpr auto kUnconfirmed = &CSClientProtocol::getNumberOfInputParametersWaitingForConfirmation;
    static constexpr auto kHas = &CSClientProtocol::hasInputParameter;
    static constexpr auto kTable = &TestEngine::inputTable;
    static constexpr auto kIds = &TestEngine::inputIds;
    static constexpr auto kConfirmation = &inputsConfirmed;

    static std::string row(const std::string& name, const std::string& status = "waiting",
                           CSClient::ParameterType type = CSClient::TYPE_FLOAT) {
        return name + " type " + std::to_string(type) + " mode 1 " + status;
    }
    static std::string invalidType(const std::string& name) {
        return "Subscription type of parameter id string '" + name + "' is invalid!\n";
    }
    static Definition define(const std::string& name, CSClient::ParameterType type = CSClient::TYPE_FLOAT) {
        return input(name, type);
    }
    static int registerOne(CSClient& client, const Definition& one) { return client.registerInputParameter(one); }
    template <typename... Arguments>
    static int registerMany(CSClient& client, const Arguments&... arguments) {
        return client.registerInputParameters(arguments...);
    }
    static int unregisterOne(CSClient& client, const char* name) { return client.unregisterInputParameter(name); }
    template <typename... Arguments>
    static int unregisterMany(CSClient& client, const Arguments&... arguments) {
        return client.unregisterInputParameters(arguments...);
    }
    static void unregisterAll(CSClient& client) { client.unregisterAllInputParameters(); }
    static bool wait(CSClient& client, unsigned int seconds) { return client.waitForInputsToBeRegistered(seconds); }
    static int confirmed(CSClient& client) { return client.getNumberOfRegisteredInputParameters(); }
    static int unconfirmed(CSClient& client) { return client.getNumberOfUnregisteredInputParameters(); }
    static bool isConfirmed(CSClient& client, const char* name) { return client.isInputParameterRegistered(name); }
};

struct Outputs {
    using Definition = CSClient::OutputDef;
    static constexpr const char* kWord = "output";
    static constexpr auto kRegister = &TestEngine::registerOutputs;
    static constexpr auto kUnregister = &CSClientProtocol::unregisterOutputParameters;
    static constexpr auto kUnregisterAll = &CSClientProtocol::unregisterAllOutputParameters;
    static constexpr auto kReregister = &CSClientProtocol::reregisterAllOutputParameters;
    static constexpr auto kNumber = &CSClientProtocol::getNumberOfOutputParameters;
    static constexpr auto kUnconfirmed = &CSClientProtocol::getNumberOfOutputParametersWaitingForConfirmation;
    static constexpr auto kHas = &CSClientProtocol::hasOutputParameter;
    static constexpr auto kTable = &TestEngine::outputTable;
    static constexpr auto kIds = &TestEngine::outputIds;
    static constexpr auto kConfirmation = &outputsConfirmed;

    static std::string row(const std::string& name, const std::string& status = "waiting",
                           CSClient::ParameterType type = CSClient::TYPE_FLOAT) {
        return name + " type " + std::to_string(type) + " " + status + " 00000000";
    }
    static std::string invalidType(const std::string& name) {
        return "Invalid parameter type for output id string '" + name + "'!\n";
    }
    static Definition define(const std::string& name, CSClient::ParameterType type = CSClient::TYPE_FLOAT) {
        return output(name, type);
    }
    static int registerOne(CSClient& client, const Definition& one) { return client.registerOutputParameter(one); }
    template <typename... Arguments>
    static int registerMany(CSClient& client, const Arguments&... arguments) {
        return client.registerOutputParameters(arguments...);
    }
    static int unregisterOne(CSClient& client, const char* name) { return client.unregisterOutputParameter(name); }
    template <typename... Arguments>
    static int unregisterMany(CSClient& client, const Arguments&... arguments) {
        return client.unregisterOutputParameters(arguments...);
    }
    static void unregisterAll(CSClient& client) { client.unregisterAllOutputParameters(); }
    static bool wait(CSClient& client, unsigned int seconds) { return client.waitForOutputsToBeRegistered(seconds); }
    static int confirmed(CSClient& client) { return client.getNumberOfRegisteredOutputParameters(); }
    static int unconfirmed(CSClient& client) { return client.getNumberOfUnregisteredOutputParameters(); }
    static bool isConfirmed(CSClient& client, const char* name) { return client.isOutputParameterRegistered(name); }
};

using Kinds = testing::Types<Inputs, Outputs>;
struct KindNames {
    template <typename Kind>
    static std::string GetName(int /*index*/) {
        return std::is_same_v<Kind, Inputs> ? "Inputs" : "Outputs";
    }
};

/// A definition of an input, with subscription mode 1, or of an output.
struct Definition {
    std::string name;
    CSClient::ParameterType type = CSClient::TYPE_FLOAT;

    operator CSClient::InputDef() const { return input(name, type); }
    operator CSClient::OutputDef() const { return output(name, type); }
};

/// An engine whose operations are those for one kind of parameters. It is ready, and it has no worker.
template <typename Kind>
class EngineOfKind : public TestEngine {
  public:
    explicit EngineOfKind(unsigned int options = 0, CSClient::State state = CSClient::STATE_READY)
        : TestEngine(1, options) {
        pretendState(state);
    }

    int add(const std::vector<Definition>& definitions) { return (this->*Kind::kRegister)(registered(definitions)); }
    int remove(const std::vector<std::string>& names) { return (this->*Kind::kUnregister)(names); }
    void removeAll() { (this->*Kind::kUnregisterAll)(); }
    void reregister() { (this->*Kind::kReregister)(); }
    void confirm(const std::vector<IdAndName>& confirmed) { receive(Kind::kConfirmation(confirmed)); }
    unsigned int number(bool confirmed) const { return (this->*Kind::kNumber)(confirmed); }
    int unconfirmed() const { return (this->*Kind::kUnconfirmed)(); }
    bool has(const std::string& name, bool confirmed) const { return (this->*Kind::kHas)(name, confirmed); }
    std::vector<std::string> table() const { return (this->*Kind::kTable)(); }
    std::string ids() const { return (this->*Kind::kIds)(); }

    static std::vector<typename Kind::Definition> registered(const std::vector<Definition>& definitions) {
        return {definitions.begin(), definitions.end()};
    }
};

}  // namespace com_tesk::test
