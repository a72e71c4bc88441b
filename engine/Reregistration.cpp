// Registering everything again, after a reconnection or under a new simulator id. Inputs and outputs are treated
// differently, which hosts rely on: inputs are rebuilt and wait for fresh ids, outputs are sent again as they are.

#include <utility>

#include "comms/CSLockGuard.h"
#include "comms/Diagnostics.h"
#include "engine/CSClientProtocol.h"
#include "engine/EngineLocks.h"
#include "engine/RegistrationBatch.h"

namespace com_tesk {

using diagnostics::Decimal;

bool CSClientProtocol::isLeftToReregistration(Registered& registered) {
    // The thread that makes the change sends at once: a callback may register, and then everything is sent again.
    if (registered.onConnection == connectionNumber || connectionMutex.isHeldByThisThread()) {
        return false;
    }
    registered.hasLeft = true;
    return true;
}

bool CSClientProtocol::markRegistered(Registered& registered) const {
    registered.onConnection = connectionNumber.load();
    return std::exchange(registered.hasLeft, false);
}

bool CSClientProtocol::isRegistered() const CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    return inputsRegistered.onConnection == connectionNumber && outputsRegistered.onConnection == connectionNumber;
}

void CSClientProtocol::registerWhatIsLeft() {
    // Usually the re-registration was made. Without the lock, which another thread may hold in a write that is stuck.
    if (isRegistered()) {
        return;
    }
    bool areInputsLeft = false;
    bool areOutputsLeft = false;
    {
        const ParameterLock lock(*this);
        areInputsLeft = markRegistered(inputsRegistered);
        areOutputsLeft = markRegistered(outputsRegistered);
    }
    if (areInputsLeft) {
        reregisterAllInputParameters();
    }
    if (areOutputsLeft) {
        reregisterAllOutputParameters();
    }
}

bool CSClientProtocol::isNothingRegistered() {
    const ParameterLock lock(*this);
    if (!inputsByName.empty() || !outputsByName.empty()) {
        return false;
    }
    // Decided under the same lock: what is registered from now on is sent by the thread that registers it.
    markRegistered(inputsRegistered);
    markRegistered(outputsRegistered);
    return true;
}

void CSClientProtocol::reregisterAllParameters() {
    if (isNothingRegistered()) {
        return;
    }
    if (!isSilent()) {
        diagnostics::progress({"Re-registering input/output parameters (", Decimal(getNumberOfInputParameters(false)),
                               "/", Decimal(getNumberOfOutputParameters(false)), ")..."});
    }
    reregisterAllInputParameters();
    reregisterAllOutputParameters();
}

void CSClientProtocol::reregisterAllInputParameters() {
    std::map<std::string_view, InputParameterEntry*> oldInputs;
    std::vector<CSClient::InputDef> definitions;
    {
        const ParameterLock lock(*this);
        markRegistered(inputsRegistered);
        if (inputsByName.empty()) {
            return;
        }
        if (!isSilent()) {
            diagnostics::progress({"Registering input parameters with server..."});
        }
        definitions.reserve(inputsByName.size());
        for (const auto& nameAndEntry : inputsByName) {
            definitions.push_back(nameAndEntry.second->definition());
        }
        inputNamesChange();
        inputNamesById.clear();
        const CSLockGuard namesLock(namesMutex);
        oldInputs.swap(inputsByName);
    }
    try {
        registerInputParameters(definitions.data(), static_cast<unsigned int>(definitions.size()));
    } catch (...) {
        restoreInputs(oldInputs);
        registration::destroyEntries(oldInputs);
        throw;
    }
    registration::destroyEntries(oldInputs);
}

void CSClientProtocol::restoreInputs(std::map<std::string_view, InputParameterEntry*>& oldInputs) {
    for (const auto& nameAndEntry : oldInputs) {
        nameAndEntry.second->serverId = kUnassignedId;
    }
    const ParameterLock lock(*this);
    const CSLockGuard namesLock(namesMutex);
    inputsByName.merge(oldInputs);
}

void CSClientProtocol::reregisterAllOutputParameters() {
    underParameterLock([this]() CSCLIENT_REQUIRES(parameterMutex) {
        markRegistered(outputsRegistered);
        if (outputsByName.empty()) {
            return 0;
        }
        if (!isSilent()) {
            diagnostics::progress({"Registering output parameters with server..."});
        }
        std::vector<OutputParameterEntry*> batch;
        batch.reserve(outputsByName.size());
        for (const auto& nameAndEntry : outputsByName) {
            batch.push_back(nameAndEntry.second);
        }
        return sendOutputSubscriptionRequest(batch);
    });
}

}  // namespace com_tesk
