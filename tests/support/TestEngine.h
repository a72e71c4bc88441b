#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "message/RawMessage.h"
#include "tests/support/FakeTransport.h"
#include "tests/support/Hex.h"
#include "tests/support/HostMessages.h"
#include "tests/support/OpenEngine.h"
#include "tests/support/Parameters.h"

namespace com_tesk::test {

constexpr unsigned int kSilent = CSClient::OPTION_SILENT;
constexpr unsigned int kReconnect = CSClient::OPTION_AUTO_RECONNECT;

/// The engine of the tests: a simulator engine on a `FakeTransport`, whose parts a test can read. It has no worker
/// unless the test opens a connection.
class TestEngine : public OpenEngine {
  public:
    explicit TestEngine(unsigned int id = 1, unsigned int optionFlags = 0);

    /// Owned by the engine.
    FakeTransport& fakeTransport() { return *fake; }
    const FakeTransport& fakeTransport() const { return *fake; }

    /// Connects on this thread, without a worker: sends the version request and what is registered.
    int connect();

    /// Passes a message body to the engine, as the worker does.
    void receive(const std::string& bodyHex);

    /// Returns the bodies of the requests sent since the last `ignoreRequestsSoFar`.
    std::vector<std::string> requests() const;
    void ignoreRequestsSoFar() { ignored = fake->written().size(); }

    /// Returns the bodies received, each as its type and hex text, for example "1: 01 02".
    std::vector<std::string> received() const;

    int registerInputs(const std::vector<CSClient::InputDef>& inputs) {
        return registerInputParameters(inputs.data(), static_cast<unsigned int>(inputs.size()));
    }
    int registerOutputs(const std::vector<CSClient::OutputDef>& outputs) {
        return registerOutputParameters(outputs.data(), static_cast<unsigned int>(outputs.size()));
    }
    int publish(const std::vector<CSClient::Parameter>& parameters, PublishMode mode = PUBLISH_DEFAULT) {
        return publishParameters(parameters.data(), static_cast<unsigned int>(parameters.size()), mode);
    }

    /// @name Hooks
    /// Set them before another thread uses the engine.
    /// @{
    std::function<void()> onMessage;         ///< Called before a received message is handled.
    std::function<void()> onVersionRequest;  ///< Called before a version request is sent.
    /// Called before a state change is handled.
    std::function<void(CSClient::State, CSClient::State)> onStateChange;
    /// Replaces the five senders of requests for batches. `call` is, for example, "register outputs A B" or "publish
    /// mode 0 A". It ends with "UNLOCKED" when `parameterMutex` is not held. Returns the result of the sender.
    std::function<int(const std::string& call)> onSend;
    /// @}

    void handleReceivedMessage(const RawMessage& message) override;
    void handleConnectionStateChange(CSClient::State oldState, CSClient::State newState) override;
    int requestSimulatorVersion() override;
    int sendInputSubscriptionRequest(const std::vector<InputParameterEntry*>& entries) override;
    int sendInputUnsubscriptionRequest(const std::vector<InputParameterEntry*>& entries) override;
    int sendOutputSubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) override;
    int sendOutputUnsubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) override;
    int sendParameterPublishRequest(const std::vector<OutputParameterEntry*>& entries, PublishMode mode) override;

  private:
    template <typename Entry>
    int callOnSend(std::string call, const std::vector<Entry*>& entries);

    FakeTransport* fake;
    std::size_t ignored = 0;
    mutable std::mutex receivedMutex;
    std::vector<std::string> receivedBodies;
};

}  // namespace com_tesk::test
