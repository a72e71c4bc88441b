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
    explicit TestEngine(unsigned int id = 1, unsigned int optionFlags = 0) : OpenEngine(id, optionFlags) {
        changeCommsInterface(fake);
    }

    /// Owned by the engine.
    FakeTransport& fakeTransport() { return *fake; }
    const FakeTransport& fakeTransport() const { return *fake; }

    /// Connects on this thread, without a worker: sends the version request and what is registered.
    int connect() {
        pretendAddress(0x0100007F, 55580);
        pretendState(CSClient::STATE_CONNECTING);
        return startConnection();
    }

    /// Passes a message body to the engine, as the worker does.
    void receive(const std::string& bodyHex) {
        const Bytes bytes = hex(bodyHex);
        RawMessage message(RawMessage::DATA);
        message.insert(message.end(), bytes.begin(), bytes.end());
        handleReceivedMessage(message);
    }

    /// Returns the bodies of the requests sent since the last `ignoreRequestsSoFar`.
    std::vector<std::string> requests() const {
        constexpr std::size_t kHeaderText = 32 * 3;
        const std::vector<std::string> frames = fake->written();
        std::vector<std::string> found;
        for (std::size_t i = ignored; i < frames.size(); ++i) {
            found.push_back(frames[i].size() > kHeaderText ? frames[i].substr(kHeaderText) : "no body");
        }
        return found;
    }
    void ignoreRequestsSoFar() { ignored = fake->written().size(); }

    /// Returns the bodies received, each as its type and hex text, for example "1: 01 02".
    std::vector<std::string> received() const {
        const std::lock_guard<std::mutex> lock(receivedMutex);
        return receivedBodies;
    }

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

    void handleReceivedMessage(const RawMessage& message) override {
        {
            const std::lock_guard<std::mutex> lock(receivedMutex);
            receivedBodies.push_back(std::to_string(message.getType()) + ": " + hexText(message));
        }
        if (onMessage) {
            onMessage();
        }
        OpenEngine::handleReceivedMessage(message);
    }
    void handleConnectionStateChange(CSClient::State oldState, CSClient::State newState) override {
        if (onStateChange) {
            onStateChange(oldState, newState);
        }
        OpenEngine::handleConnectionStateChange(oldState, newState);
    }
    int requestSimulatorVersion() override {
        if (onVersionRequest) {
            onVersionRequest();
        }
        return OpenEngine::requestSimulatorVersion();
    }
    int sendInputSubscriptionRequest(const std::vector<InputParameterEntry*>& entries) override {
        return onSend ? callOnSend("register inputs", entries) : OpenEngine::sendInputSubscriptionRequest(entries);
    }
    int sendInputUnsubscriptionRequest(const std::vector<InputParameterEntry*>& entries) override {
        return onSend ? callOnSend("unregister inputs", entries) : OpenEngine::sendInputUnsubscriptionRequest(entries);
    }
    int sendOutputSubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) override {
        return onSend ? callOnSend("register outputs", entries) : OpenEngine::sendOutputSubscriptionRequest(entries);
    }
    int sendOutputUnsubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) override {
        return onSend ? callOnSend("unregister outputs", entries)
                      : OpenEngine::sendOutputUnsubscriptionRequest(entries);
    }
    int sendParameterPublishRequest(const std::vector<OutputParameterEntry*>& entries, PublishMode mode) override {
        return onSend ? callOnSend("publish mode " + std::to_string(mode), entries)
                      : OpenEngine::sendParameterPublishRequest(entries, mode);
    }

  private:
    template <typename Entry>
    int callOnSend(std::string call, const std::vector<Entry*>& entries) {
        for (const Entry* const entry : entries) {
            call += " " + entry->name;
        }
        return onSend(holdsParameterMutex() ? call : call + " UNLOCKED");
    }

    FakeTransport* const fake = new FakeTransport;
    std::size_t ignored = 0;
    mutable std::mutex receivedMutex;
    std::vector<std::string> receivedBodies;
};

}  // namespace com_tesk::test
