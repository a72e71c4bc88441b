#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/CapturedStreams.h"
#include "tests/support/TestEngine.h"

namespace com_tesk::test {

using testing::ElementsAre;
using testing::IsEmpty;

/// @name Requests
/// The bodies of requests of simulator 1, as `TestEngine::requests` returns them.
/// @{
using Requests = std::vector<std::string>;
Requests operator+(Requests first, const Requests& second);

/// One request with these bytes, whose blanks do not matter.
Requests requestOf(const std::string& bodyHex);
Requests versionRequest();
/// No request when there are no definitions.
Requests inputRequest(const std::vector<CSClient::InputDef>& inputs);
Requests outputRequest(const std::vector<CSClient::OutputDef>& outputs);
Requests inputEnd(const std::vector<unsigned int>& ids);
Requests outputEnd(const std::vector<unsigned int>& ids);

struct SentValue {
    unsigned int id;
    unsigned int integerFlag;
    std::uint32_t bits;
};
Requests publication(const std::vector<SentValue>& values, unsigned int mode = 0);
/// @}

/// The id that a request carries for an unconfirmed parameter.
constexpr unsigned int kUnassigned = 0xFFFFF;

/// A name that is longer than what a string keeps without an allocation.
std::string longName(char last);

/// A protocol that replaces operations of the engine. Hooks that are not set change nothing.
class DerivedEngine : public TestEngine {
  public:
    using TestEngine::TestEngine;

    std::function<int(const std::vector<CSClient::InputDef>&)> onRegisterInputs;    ///< Replaces the registration.
    std::function<void(const std::vector<std::string>& names)> onUnregisterInputs;  ///< Called before it.
    std::function<void()> onVersionRequested;                                       ///< Called after it.
    /// Replaces the handling of a change of state. `handle` is that of the engine.
    std::function<void(CSClient::State newState, const std::function<void()>& handle)> onState;

    int registerInputParameters(const CSClient::InputDef* definitions, unsigned int count) override;
    int unregisterInputParameters(const std::vector<std::string>& names) override;
    int requestSimulatorVersion() override;
    void handleConnectionStateChange(CSClient::State oldState, CSClient::State newState) override;

    int registerAsTheEngine(const std::vector<CSClient::InputDef>& definitions);
};

/// A definition of an input, with subscription mode 1, or of an output.
struct Definition {
    std::string name;
    CSClient::ParameterType type = CSClient::TYPE_FLOAT;

    operator CSClient::InputDef() const { return input(name, type); }
    operator CSClient::OutputDef() const { return output(name, type); }
};

// The two kinds of parameters, for tests of what they have in common. `row` returns a row of the table. Its status is,
// for example, "waiting" or "id 7".

struct Inputs {
    using Registered = CSClient::InputDef;
    static constexpr auto kRegister = &TestEngine::registerInputs;
    static constexpr auto kUnregister = &CSClientProtocol::unregisterInputParameters;
    static constexpr auto kUnregisterAll = &CSClientProtocol::unregisterAllInputParameters;
    static constexpr auto kReregister = &CSClientProtocol::reregisterAllInputParameters;
    static constexpr auto kNumber = &CSClientProtocol::getNumberOfInputParameters;
    static constexpr auto kUnconfirmed = &CSClientProtocol::getNumberOfInputParametersWaitingForConfirmation;
    static constexpr auto kHas = &CSClientProtocol::hasInputParameter;
    static constexpr auto kTable = &TestEngine::inputTable;
    static constexpr auto kIds = &TestEngine::inputIds;
    static constexpr auto kRequest = &inputRequest;
    static constexpr auto kEnd = &inputEnd;
    static constexpr auto kConfirmation = &inputsConfirmed;
    static constexpr const char* kWord = "input";

    static std::string row(const std::string& name, const std::string& status = "waiting",
                           CSClient::ParameterType type = CSClient::TYPE_FLOAT);
    static std::string invalidType(const std::string& name);
};

struct Outputs {
    using Registered = CSClient::OutputDef;
    static constexpr auto kRegister = &TestEngine::registerOutputs;
    static constexpr auto kUnregister = &CSClientProtocol::unregisterOutputParameters;
    static constexpr auto kUnregisterAll = &CSClientProtocol::unregisterAllOutputParameters;
    static constexpr auto kReregister = &CSClientProtocol::reregisterAllOutputParameters;
    static constexpr auto kNumber = &CSClientProtocol::getNumberOfOutputParameters;
    static constexpr auto kUnconfirmed = &CSClientProtocol::getNumberOfOutputParametersWaitingForConfirmation;
    static constexpr auto kHas = &CSClientProtocol::hasOutputParameter;
    static constexpr auto kTable = &TestEngine::outputTable;
    static constexpr auto kIds = &TestEngine::outputIds;
    static constexpr auto kRequest = &outputRequest;
    static constexpr auto kEnd = &outputEnd;
    static constexpr auto kConfirmation = &outputsConfirmed;
    static constexpr const char* kWord = "output";

    static std::string row(const std::string& name, const std::string& status = "waiting",
                           CSClient::ParameterType type = CSClient::TYPE_FLOAT);
    static std::string invalidType(const std::string& name);
};

using Kinds = testing::Types<Inputs, Outputs>;
struct KindNames {
    template <typename Kind>
    static std::string GetName(int /*index*/) {
        return std::is_same_v<Kind, Inputs> ? "Inputs" : "Outputs";
    }
};

/// An engine whose operations are those for one kind of parameters. It is ready, and it has no worker.
template <typename Kind>
class EngineOf : public TestEngine {
  public:
    explicit EngineOf(unsigned int options = 0, CSClient::State state = CSClient::STATE_READY)
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
    static Requests request(const std::vector<Definition>& definitions) {
        return Kind::kRequest(registered(definitions));
    }
    static std::vector<typename Kind::Registered> registered(const std::vector<Definition>& definitions) {
        return {definitions.begin(), definitions.end()};
    }
};

/// A test with an engine and the text that it prints.
template <typename Kind>
class ParameterTest : public testing::Test {
  protected:
    std::string printed() const { return streams.out() + streams.err(); }

    CapturedStreams streams;
    EngineOf<Kind> engine;
};

}  // namespace com_tesk::test
