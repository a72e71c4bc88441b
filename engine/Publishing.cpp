// Publishing values of outputs, and reading back what was published.

#include "comms/CSLockGuard.h"
#include "engine/CSClientProtocol.h"
#include "engine/EngineLocks.h"
#include "engine/NameBytes.h"
#include "engine/RegistrationChecks.h"

namespace com_tesk {

namespace {

/// The longest publish call that is remembered.
constexpr unsigned int kMostRemembered = 4'096;

/// Any type but `TYPE_INT` is read as a float.
CSClient::ParameterType readableType(CSClient::ParameterType type) {
    return type == CSClient::TYPE_INT ? CSClient::TYPE_INT : CSClient::TYPE_FLOAT;
}

}  // namespace

int CSClientProtocol::publishParameters(const CSClient::Parameter* parameters, unsigned int count, PublishMode mode) {
    if (count == 0) {
        return 0;
    }
    return underParameterLock([&]()
                                  CSCLIENT_REQUIRES(parameterMutex) { return publishLocked(parameters, count, mode); });
}

int CSClientProtocol::publishLocked(const CSClient::Parameter* parameters, unsigned int count, PublishMode mode) {
    // Everything is checked before anything is stored: all or nothing, unlike registration. Applications usually publish
    // the same outputs each cycle, so a call first tries the outputs of the previous call.
    std::vector<OutputParameterEntry*> hugeBatch;
    std::vector<OutputParameterEntry*>& batch = count > kMostRemembered ? hugeBatch : publishedBatch;
    batch.resize(count);
    for (unsigned int i = 0; i < count; ++i) {
        const CSClient::Parameter& parameter = parameters[i];
        OutputParameterEntry*& entry = batch[i];
        void (*report)(const std::string&) = nullptr;
        if (parameter.type == CSClient::TYPE_UNDEFINED) {
            report = checks::reportInvalidSubscriptionType;
        } else if (entry != nullptr && names::isSame(entry->name, parameter.name)) {
            continue;
        } else if (checks::isTooLong(parameter.name)) {
            report = checks::reportTooLong;
        } else {
            OutputParameterEntry* const found = findOutput(parameter.name);
            if (found != nullptr) {
                entry = found;
                continue;
            }
            report = checks::reportUnknown;
        }
        if (!isSilent()) {
            report(parameter.name);
        }
        return checks::kRefused;
    }

    for (unsigned int i = 0; i < count; ++i) {
        batch[i]->value = parameters[i].value;
        batch[i]->published = true;
    }
    return sendParameterPublishRequest(batch, mode);
}

CSClientProtocol::OutputParameterEntry* CSClientProtocol::findOutput(const std::string& name) {
    OutputParameterEntry* const known = publishedIndex.find(name);
    if (known != nullptr) {
        return known;
    }
    const auto found = outputsByName.find(name);
    if (found == outputsByName.end()) {
        return nullptr;
    }
    publishedIndex.add(*found->second);
    return found->second;
}

void CSClientProtocol::forgetPublished() {
    publishedIndex.clear();
    publishedBatch.clear();
}

bool CSClientProtocol::findPublishedParameter(const std::string& name, CSClient::Parameter& parameter) const {
    const CSLockGuard lock(parameterMutex);
    const auto found = outputsByName.find(name);
    if (found == outputsByName.end()) {
        return false;
    }
    parameter.name = name;
    // The caller's type, not the output's, says how to read the value.
    parameter.type = readableType(parameter.type);
    parameter.value = found->second->value;
    return true;
}

void CSClientProtocol::getAllPublishedParameters(std::vector<CSClient::Parameter>& parameters) const {
    const CSLockGuard lock(parameterMutex);
    // Appends, on purpose: what the caller has gathered so far is kept.
    parameters.reserve(parameters.size() + outputsByName.size());
    for (const auto& nameAndEntry : outputsByName) {
        const OutputParameterEntry& entry = *nameAndEntry.second;
        parameters.push_back({entry.name, entry.value, readableType(entry.type), 0});
    }
}

}  // namespace com_tesk
