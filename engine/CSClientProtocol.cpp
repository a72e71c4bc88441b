#include "engine/CSClientProtocol.h"

#include <utility>

#include "comms/CSCommsInterfaceTCP.h"
#include "comms/CSLockGuard.h"
#include "comms/CancellationDisabled.h"
#include "engine/EngineLocks.h"

namespace com_tesk {

CSClientProtocol::CSClientProtocol(unsigned int optionFlags)
    : options(optionFlags), serverVersion("UNKNOWN"), callbackList(std::make_shared<CallbackList>()) {
    CSCommsInterfaceTCP::Options transportOptions;
    transportOptions.quiet = isSilent();
    comms = new CSCommsInterfaceTCP(transportOptions);
}

CSClientProtocol::~CSClientProtocol() {
    const CancellationDisabled untilDestroyed;
    {
        // The worker announces the end before it releases this lock for the last time.
        const ConnectionLock untilTheWorkerHasReleased(*this);
    }
    unregisterAllLocalParameters();
    delete comms;
    comms = nullptr;
}

unsigned int CSClientProtocol::getOptions() const {
    return options;
}

bool CSClientProtocol::hasOptions(unsigned int mask) const {
    return (options & mask) == mask;
}

CSClient::State CSClientProtocol::getState() const {
    const CSClient::State current = state;
    if (current == CSClient::STATE_DISCONNECTED) {
        const pthread_t worker = announcingEnd;
        if (worker != 0 && pthread_equal(worker, pthread_self()) == 0) {
            return CSClient::STATE_DISCONNECTING;
        }
    }
    return current;
}

std::string CSClientProtocol::getServerVersion() const {
    const CSLockGuard lock(versionMutex);
    return serverVersion;
}

void CSClientProtocol::storeServerVersion(std::string version) {
    const CSLockGuard lock(versionMutex);
    serverVersion = std::move(version);
}

unsigned int CSClientProtocol::getProtocolVersion() const {
    return protocolVersion;
}

std::string CSClientProtocol::getServerIPAddress() const {
    return CSCommsInterfaceTCP::convertIPOctetToAddress(serverAddress);
}

unsigned int CSClientProtocol::getServerPort() const {
    return serverPort;
}

}  // namespace com_tesk
