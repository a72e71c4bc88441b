// Registering and unregistering outputs.

#include "engine/CSClientProtocol.h"
#include "engine/EngineLocks.h"
#include "engine/RegistrationBatch.h"

namespace com_tesk {

int CSClientProtocol::registerOutputParameters(const CSClient::OutputDef* definitions, unsigned int count) {
    if (count == 0) {
        return 0;
    }
    return underParameterLock([&]() CSCLIENT_REQUIRES(parameterMutex) {
        std::vector<OutputParameterEntry*> batch;
        if (!registration::enter(definitions, count, isSilent(), checks::reportInvalidOutputType, outputsByName,
                                 namesMutex, batch)) {
            return checks::kRefused;
        }
        return isLeftToReregistration(outputsRegistered) ? 0 : sendOutputSubscriptionRequest(batch);
    });
}

int CSClientProtocol::unregisterOutputParameters(const std::vector<std::string>& names) {
    if (names.empty()) {
        return 0;
    }
    return underParameterLock([&]() CSCLIENT_REQUIRES(parameterMutex) {
        const auto found = registration::find(names, outputsByName);
        const int result = sendOutputUnsubscriptionRequest(found.batch);
        if (registration::isUnregistered(result)) {
            forgetPublished();
            registration::forget(found, outputsByName, outputsById, namesMutex);
        }
        return result;
    });
}

void CSClientProtocol::unregisterAllOutputParameters() {
    unregisterOutputParameters(outputNames());
}

}  // namespace com_tesk
