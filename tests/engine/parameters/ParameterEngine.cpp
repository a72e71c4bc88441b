#include "tests/engine/parameters/ParameterEngine.h"

namespace com_tesk::test {

std::string frame(const std::string& bodyHex) {
    return hexText(hex(hexFrame(bodyHex)));
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
