#include "tests/engine/parameters/ParameterEngine.h"

#include <cstdio>
#include <cstring>

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

/// An entry's name must be the key under which it stands.
std::string title(const std::string& key, const std::string& name) {
    return key == name ? name : "KEY " + key + " NAME " + name;
}

}  // namespace

CSClient::InputDef input(const std::string& name, CSClient::ParameterType type, std::uint32_t mode) {
    CSClient::InputDef definition;
    definition.name = name;
    definition.type = type;
    definition.subscriptionMode = mode;
    return definition;
}

CSClient::OutputDef output(const std::string& name, CSClient::ParameterType type) {
    CSClient::OutputDef definition;
    definition.name = name;
    definition.type = type;
    return definition;
}

CSClient::Parameter record(const std::string& name, CSClient::ParameterType type, std::uint32_t bits) {
    CSClient::Parameter parameter;
    parameter.name = name;
    parameter.type = type;
    std::memcpy(&parameter.value, &bits, sizeof bits);
    return parameter;
}

std::uint32_t bitsOf(const CSClient::Value& value) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

std::string text(const CSClient::Parameter& parameter) {
    return parameter.name + " type " + std::to_string(parameter.type) + " bits " + hexDigits(bitsOf(parameter.value)) +
           " reserved " + std::to_string(parameter.reserved);
}

std::vector<std::string> texts(const std::vector<CSClient::Parameter>& parameters) {
    std::vector<std::string> result;
    for (const CSClient::Parameter& parameter : parameters) {
        result.push_back(text(parameter));
    }
    return result;
}

std::string frame(const std::string& bodyHex) {
    return hexText(hex(hexFrame(bodyHex)));
}

std::string inputsConfirmed(const std::vector<IdAndName>& inputs) {
    std::string body = "04 02 7F FF 00 00 00 00 00 7F 01 01 00 01 00 00";
    body += hexWord(static_cast<unsigned int>(inputs.size()));
    for (const IdAndName& confirmed : inputs) {
        body +=
            hexWord(confirmed.first) + "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00" + hexField(confirmed.second);
    }
    return body;
}

std::string outputsConfirmed(const std::vector<IdAndName>& outputs) {
    std::string body = "04 02 7F FF 00 00 00 00 00 7F 01 02 00 01 00 00";
    body += hexWord(static_cast<unsigned int>(outputs.size()));
    for (const IdAndName& confirmed : outputs) {
        body += hexWord(confirmed.first) + "00 00 00 00 00 00 00 00 00 00 00 00" + hexField(confirmed.second);
    }
    return body;
}

std::vector<std::string> ParameterEngine::inputTable() const {
    const CSLockGuard lock(parameterMutex());
    std::vector<std::string> lines;
    for (const auto& keyAndEntry : inputsByName()) {
        const InputParameterEntry& entry = *keyAndEntry.second;
        lines.push_back(title(std::string(keyAndEntry.first), entry.name) + " type " + std::to_string(entry.type) +
                        " mode " + std::to_string(entry.subscriptionMode) + " " + status(entry.serverId));
    }
    return lines;
}

std::vector<std::string> ParameterEngine::outputTable() const {
    const CSLockGuard lock(parameterMutex());
    std::vector<std::string> lines;
    for (const auto& keyAndEntry : outputsByName()) {
        const OutputParameterEntry& entry = *keyAndEntry.second;
        lines.push_back(title(std::string(keyAndEntry.first), entry.name) + " type " + std::to_string(entry.type) +
                        " " + status(entry.serverId) + (entry.published ? " published " : " ") +
                        hexDigits(bitsOf(entry.value)));
    }
    return lines;
}

std::string ParameterEngine::inputIds() const {
    const CSLockGuard lock(parameterMutex());
    std::string ids;
    for (const auto& idAndName : inputNamesById()) {
        ids += (ids.empty() ? "" : " ") + std::to_string(idAndName.first) + "=" + idAndName.second;
    }
    return ids;
}

std::string ParameterEngine::outputIds() const {
    const CSLockGuard lock(parameterMutex());
    std::string ids;
    for (const auto& idAndEntry : outputsById()) {
        std::string name = "gone";
        for (const auto& keyAndEntry : outputsByName()) {
            if (keyAndEntry.second == idAndEntry.second) {
                name = keyAndEntry.first;
            }
        }
        ids += (ids.empty() ? "" : " ") + std::to_string(idAndEntry.first) + "=" + name;
    }
    return ids;
}

void ParameterEngine::connect() {
    pretendState(CSClient::STATE_CONNECTING);
    startConnection();
}

std::vector<std::string> ParameterEngine::requests() const {
    // The last word of the sub-header, behind 32 bytes of frame header and eight of body.
    constexpr std::size_t kCode = 40 * 3;
    const std::string versionRequest = "00 7F 00 06";
    std::vector<std::string> found;
    for (const std::string& written : const_cast<ParameterEngine*>(this)->fakeTransport().written()) {
        if (written.compare(kCode, versionRequest.size(), versionRequest) != 0) {
            found.push_back(written);
        }
    }
    return found;
}

template <typename Entry>
int SenderEngine::note(std::string call, const std::vector<Entry*>& entries) {
    for (const Entry* const entry : entries) {
        call += " " + entry->name;
    }
    if (!holdsParameterMutex()) {
        call += " UNLOCKED";
    }
    calls.push_back(call);
    if (onSend) {
        onSend();
    }
    return result;
}

int SenderEngine::sendInputSubscriptionRequest(const std::vector<InputParameterEntry*>& entries) {
    return note("register inputs", entries);
}

int SenderEngine::sendInputUnsubscriptionRequest(const std::vector<InputParameterEntry*>& entries) {
    return note("unregister inputs", entries);
}

int SenderEngine::sendOutputSubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) {
    return note("register outputs", entries);
}

int SenderEngine::sendOutputUnsubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) {
    return note("unregister outputs", entries);
}

int SenderEngine::sendParameterPublishRequest(const std::vector<OutputParameterEntry*>& entries, PublishMode mode) {
    return note("publish mode " + std::to_string(mode), entries);
}

}  // namespace com_tesk::test
