// Registering and unregistering inputs.

#include "engine/CSClientProtocol.h"
#include "engine/EngineLocks.h"
#include "engine/RegistrationBatch.h"

namespace com_tesk {

int CSClientProtocol::registerInputParameters(const CSClient::InputDef* definitions, unsigned int count) {
    if (count == 0) {
        return 0;
    }
    return underParameterLock([&]() CSCLIENT_REQUIRES(parameterMutex) {
        std::vector<InputParameterEntry*> batch;
        // The line for a missing type speaks of the subscription type, and the subscription mode is never checked: both
        // are intended.
        if (!registration::enter(definitions, count, isSilent(), checks::reportInvalidSubscriptionType, inputsByName,
                                 namesMutex, batch)) {
            return checks::kRefused;
        }
        return isLeftToReregistration(inputsRegistered) ? 0 : sendInputSubscriptionRequest(batch);
    });
}

int CSClientProtocol::unregisterInputParameters(const std::vector<std::string>& names) {
    if (names.empty()) {
        return 0;
    }
    return underParameterLock([&]() CSCLIENT_REQUIRES(parameterMutex) {
        const auto found = registration::find(names, inputsByName);
        const int result = sendInputUnsubscriptionRequest(found.batch);
        if (registration::isUnregistered(result)) {
            inputNamesChange();
            registration::forget(found, inputsByName, inputNamesById, namesMutex);
        }
        return result;
    });
}

void CSClientProtocol::unregisterAllInputParameters() {
    unregisterInputParameters(inputNames());
}

}  // namespace com_tesk
