#include "tests/support/TestEngine.h"

namespace com_tesk::test {

TestEngine::TestEngine(unsigned int id, unsigned int optionFlags) : OpenEngine(id, optionFlags) {
    auto* const transport = new FakeTransport;
    changeCommsInterface(transport);
    fake = transport;
}

int TestEngine::connect() {
    pretendAddress(0x0100007F, 55580);
    pretendState(CSClient::STATE_CONNECTING);
    return startConnection();
}

void TestEngine::receive(const std::string& bodyHex) {
    const Bytes bytes = hex(bodyHex);
    RawMessage message(RawMessage::DATA);
    message.insert(message.end(), bytes.begin(), bytes.end());
    handleReceivedMessage(message);
}

std::vector<std::string> TestEngine::requests() const {
    constexpr std::size_t kHeaderText = 32 * 3;
    const std::vector<std::string> frames = fake->written();
    std::vector<std::string> found;
    for (std::size_t i = ignored; i < frames.size(); ++i) {
        found.push_back(frames[i].size() > kHeaderText ? frames[i].substr(kHeaderText) : "no body");
    }
    return found;
}

std::vector<std::string> TestEngine::received() const {
    const std::lock_guard<std::mutex> lock(receivedMutex);
    return receivedBodies;
}

void TestEngine::handleReceivedMessage(const RawMessage& message) {
    {
        const std::lock_guard<std::mutex> lock(receivedMutex);
        receivedBodies.push_back(std::to_string(message.getType()) + ": " + hexText(message));
    }
    if (onMessage) {
        onMessage();
    }
    OpenEngine::handleReceivedMessage(message);
}

void TestEngine::handleConnectionStateChange(CSClient::State oldState, CSClient::State newState) {
    if (onStateChange) {
        onStateChange(oldState, newState);
    }
    OpenEngine::handleConnectionStateChange(oldState, newState);
}

int TestEngine::requestSimulatorVersion() {
    if (onVersionRequest) {
        onVersionRequest();
    }
    return OpenEngine::requestSimulatorVersion();
}

template <typename Entry>
int TestEngine::callOnSend(std::string call, const std::vector<Entry*>& entries) {
    for (const Entry* const entry : entries) {
        call += " " + entry->name;
    }
    return onSend(holdsParameterMutex() ? call : call + " UNLOCKED");
}

int TestEngine::sendInputSubscriptionRequest(const std::vector<InputParameterEntry*>& entries) {
    return onSend ? callOnSend("register inputs", entries) : OpenEngine::sendInputSubscriptionRequest(entries);
}

int TestEngine::sendInputUnsubscriptionRequest(const std::vector<InputParameterEntry*>& entries) {
    return onSend ? callOnSend("unregister inputs", entries) : OpenEngine::sendInputUnsubscriptionRequest(entries);
}

int TestEngine::sendOutputSubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) {
    return onSend ? callOnSend("register outputs", entries) : OpenEngine::sendOutputSubscriptionRequest(entries);
}

int TestEngine::sendOutputUnsubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) {
    return onSend ? callOnSend("unregister outputs", entries) : OpenEngine::sendOutputUnsubscriptionRequest(entries);
}

int TestEngine::sendParameterPublishRequest(const std::vector<OutputParameterEntry*>& entries, PublishMode mode) {
    return onSend ? callOnSend("publish mode " + std::to_string(mode), entries)
                  : OpenEngine::sendParameterPublishRequest(entries, mode);
}

}  // namespace com_tesk::test
