#include "tests/support/TestEngine.h"

#include <cstdio>

namespace com_tesk::test {

namespace {

std::string hexDigits(std::uint32_t bits) {
    char digits[9];
    std::snprintf(digits, sizeof digits, "%08X", static_cast<unsigned int>(bits));
    return digits;
}

std::string status(std::uint32_t serverId) {
    return serverId == 0xFFFFF ? "waiting" : "id " + std::to_string(serverId);
}

/// The name of an entry must be its key in the table.
std::string title(std::string_view key, const std::string& name) {
    return key == name ? name : "KEY " + std::string(key) + " NAME " + name;
}

}  // namespace

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

std::vector<std::string> TestEngine::inputTable() const {
    const CSLockGuard lock(parameterMutex());
    std::vector<std::string> lines;
    for (const auto& [key, entry] : inputsByName()) {
        lines.push_back(title(key, entry->name) + " type " + std::to_string(entry->type) + " mode " +
                        std::to_string(entry->subscriptionMode) + " " + status(entry->serverId));
    }
    return lines;
}

std::vector<std::string> TestEngine::outputTable() const {
    const CSLockGuard lock(parameterMutex());
    std::vector<std::string> lines;
    for (const auto& [key, entry] : outputsByName()) {
        lines.push_back(title(key, entry->name) + " type " + std::to_string(entry->type) + " " +
                        status(entry->serverId) + (entry->published ? " published " : " ") +
                        hexDigits(bitsOf(entry->value)));
    }
    return lines;
}

std::string TestEngine::inputIds() const {
    const CSLockGuard lock(parameterMutex());
    std::string ids;
    for (const auto& [id, name] : inputNamesById()) {
        ids += (ids.empty() ? "" : " ") + std::to_string(id) + "=" + name;
    }
    return ids;
}

std::string TestEngine::outputIds() const {
    const CSLockGuard lock(parameterMutex());
    std::string ids;
    for (const auto& idAndEntry : outputsById()) {
        std::string_view name = "gone";
        for (const auto& [key, entry] : outputsByName()) {
            if (entry == idAndEntry.second) {
                name = key;
            }
        }
        ids += (ids.empty() ? "" : " ") + std::to_string(idAndEntry.first) + "=" + std::string(name);
    }
    return ids;
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
