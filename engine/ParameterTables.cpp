// The four parameter tables: counting, looking up, listing names, forgetting everything.

#include "comms/CSLockGuard.h"
#include "engine/CSClientProtocol.h"
#include "engine/RegistrationBatch.h"

namespace com_tesk {

namespace {

template <typename ByName, typename ById>
int countWaiting(const ByName& byName, const ById& byId) {
    return static_cast<int>(byName.size()) - static_cast<int>(byId.size());
}

template <typename ByName>
bool has(const ByName& byName, const std::string& name, bool confirmed) {
    const auto found = byName.find(name);
    return found != byName.end() && (!confirmed || found->second->serverId != CSClientProtocol::kUnassignedId);
}

template <typename ByName>
std::vector<std::string> namesOf(const ByName& byName) {
    std::vector<std::string> names;
    names.reserve(byName.size());
    for (const auto& nameAndEntry : byName) {
        names.emplace_back(nameAndEntry.first);
    }
    return names;
}

}  // namespace

unsigned int CSClientProtocol::getNumberOfInputParameters(bool confirmed) const {
    const CSLockGuard lock(parameterMutex);
    return static_cast<unsigned int>(confirmed ? inputNamesById.size() : inputsByName.size());
}

unsigned int CSClientProtocol::getNumberOfOutputParameters(bool confirmed) const {
    const CSLockGuard lock(parameterMutex);
    return static_cast<unsigned int>(confirmed ? outputsById.size() : outputsByName.size());
}

int CSClientProtocol::getNumberOfInputParametersWaitingForConfirmation() const {
    const CSLockGuard lock(parameterMutex);
    return countWaiting(inputsByName, inputNamesById);
}

int CSClientProtocol::getNumberOfOutputParametersWaitingForConfirmation() const {
    const CSLockGuard lock(parameterMutex);
    return countWaiting(outputsByName, outputsById);
}

bool CSClientProtocol::hasInputParameter(const std::string& name, bool confirmed) const {
    const CSLockGuard lock(parameterMutex);
    return has(inputsByName, name, confirmed);
}

bool CSClientProtocol::hasOutputParameter(const std::string& name, bool confirmed) const {
    const CSLockGuard lock(parameterMutex);
    return has(outputsByName, name, confirmed);
}

const std::string* CSClientProtocol::findInputName(std::uint32_t id) {
    const auto* const known = updatedIndex.find(id);
    if (known != nullptr) {
        return &known->second;
    }
    const auto found = inputNamesById.find(id);
    if (found == inputNamesById.end()) {
        return nullptr;
    }
    updatedIndex.add(*found);
    return &found->second;
}

void CSClientProtocol::inputNamesChange() {
    ++inputNamesVersion;
    updatedIndex.clear();
}

void CSClientProtocol::unregisterAllLocalParameters() {
    const CSLockGuard lock(parameterMutex);
    const CSLockGuard namesLock(namesMutex);
    registration::destroyEntries(inputsByName);
    inputNamesChange();
    inputNamesById.clear();
    forgetPublished();
    outputsById.clear();
    registration::destroyEntries(outputsByName);
}

// Reads the keys under namesMutex alone, which every change of them takes beside the mutex that the analysis knows.
std::vector<std::string> CSClientProtocol::inputNames() const CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    const CSLockGuard lock(namesMutex);
    return namesOf(inputsByName);
}

// As inputNames.
std::vector<std::string> CSClientProtocol::outputNames() const CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    const CSLockGuard lock(namesMutex);
    return namesOf(outputsByName);
}

}  // namespace com_tesk
