#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/TestEngine.h"

namespace com_tesk::test {

/// The longest name, and two that are too long.
inline const std::string kName31(31, 'x');
inline const std::string kName32(32, 'x');
inline const std::string kName33(33, 'x');

CSClient::InputDef input(const std::string& name, CSClient::ParameterType type = 1, std::uint32_t mode = 1);
CSClient::OutputDef output(const std::string& name, CSClient::ParameterType type = 1);

/// A record to publish, by the bits of its value.
CSClient::Parameter record(const std::string& name, CSClient::ParameterType type, std::uint32_t bits);

/// The 32 bits of a value, moved as bytes so that no float register touches them.
std::uint32_t bitsOf(const CSClient::Value& value);

/// A record as text: "A type 1 bits 3F800000 reserved 0".
std::string text(const CSClient::Parameter& parameter);
std::vector<std::string> texts(const std::vector<CSClient::Parameter>& parameters);

/// The hex text of a data frame around a body in which blanks are free.
std::string frame(const std::string& bodyHex);

using IdAndName = std::pair<unsigned int, std::string>;

/// The body of a host's answer that confirms these inputs, each with the float value 0.
std::string inputsConfirmed(const std::vector<IdAndName>& inputs);

/// The body of a host's answer that confirms these outputs.
std::string outputsConfirmed(const std::vector<IdAndName>& outputs);

/// A test engine whose tables read as text. Each of them takes `parameterMutex`.
class ParameterEngine : public TestEngine {
  public:
    using TestEngine::TestEngine;

    /// In table order, for example "A type 1 mode 2 waiting", "B type 2 mode 0 id 7".
    std::vector<std::string> inputTable() const;

    /// In table order, for example "A type 1 waiting 00000000", "B type 2 id 7 published 00000005".
    std::vector<std::string> outputTable() const;

    /// "7=A 9=B"
    std::string inputIds() const;

    /// "7=A 9=B"; "7=gone" when the entry is no output of the table.
    std::string outputIds() const;

    /// One attempt to connect, as the worker makes it: after it the connection stands, on the fake transport.
    void connect();

    /// The frames written, without the version requests.
    std::vector<std::string> requests() const;

    int registerOutputs(const std::vector<CSClient::OutputDef>& outputs) {
        return registerOutputParameters(outputs.data(), static_cast<unsigned int>(outputs.size()));
    }
    int registerInputs(const std::vector<CSClient::InputDef>& inputs) {
        return registerInputParameters(inputs.data(), static_cast<unsigned int>(inputs.size()));
    }
    int publish(const std::vector<CSClient::Parameter>& parameters, PublishMode mode = PUBLISH_DEFAULT) {
        return publishParameters(parameters.data(), static_cast<unsigned int>(parameters.size()), mode);
    }
};

/// An engine whose senders write nothing: they note the call and give the result that the test has set.
class SenderEngine : public ParameterEngine {
  public:
    using ParameterEngine::ParameterEngine;

    int result = 0;

    /// Called in every sender, inside the critical section.
    std::function<void()> onSend;

    /// For example "register outputs A B", "publish mode 0 A". Ends with "UNLOCKED" when `parameterMutex` was not held.
    std::vector<std::string> calls;

    int sendInputSubscriptionRequest(const std::vector<InputParameterEntry*>& entries) override;
    int sendInputUnsubscriptionRequest(const std::vector<InputParameterEntry*>& entries) override;
    int sendOutputSubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) override;
    int sendOutputUnsubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) override;
    int sendParameterPublishRequest(const std::vector<OutputParameterEntry*>& entries, PublishMode mode) override;

  private:
    template <typename Entry>
    int note(std::string call, const std::vector<Entry*>& entries);
};

}  // namespace com_tesk::test
