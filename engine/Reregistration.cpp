// Registering everything again, after a reconnection or under a new simulator id. Inputs and outputs are deliberately
// treated differently: inputs are rebuilt and wait for fresh ids, outputs are sent again as they are.

#include "comms/CSLockGuard.h"
#include "comms/Diagnostics.h"
#include "engine/CSClientProtocol.h"
#include "engine/EngineLocks.h"
#include "engine/RegistrationBatch.h"

namespace com_tesk {

using diagnostics::Decimal;

void CSClientProtocol::reregisterAllParameters() {
    if (getNumberOfInputParameters(false) == 0 && getNumberOfOutputParameters(false) == 0) {
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
    const ParameterLock lock(*this);
    if (outputsByName.empty()) {
        return;
    }
    if (!isSilent()) {
        diagnostics::progress({"Registering output parameters with server..."});
    }
    std::vector<OutputParameterEntry*> batch;
    batch.reserve(outputsByName.size());
    for (const auto& nameAndEntry : outputsByName) {
        batch.push_back(nameAndEntry.second);
    }
    sendOutputSubscriptionRequest(batch);
}

}  // namespace com_tesk
