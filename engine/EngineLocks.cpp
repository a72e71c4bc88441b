#include "engine/EngineLocks.h"

#include <chrono>
#include <utility>

#include "comms/CSCommsInterfaceTCP.h"

namespace com_tesk {

CSClientProtocol::ConnectionLock::ConnectionLock(CSClientProtocol& lockedEngine) : engine(lockedEngine) {
    engine.connectionMutex.lock();
}

CSClientProtocol::ConnectionLock::ConnectionLock(CSClientProtocol& lockedEngine, Adopt /*adopt*/)
    : engine(lockedEngine) {}

// The analysis does not connect the member `engine` with the constructor's argument, here and below.
CSClientProtocol::ConnectionLock::~ConnectionLock() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    const std::uint32_t owed = std::exchange(engine.closeOwedByConnectionHolder, kNoConnection);
    engine.connectionMutex.unlock();
    engine.closeIfRequested();
    if (owed != kNoConnection) {
        engine.closeAfterFailedWrite(owed);
    }
}

CSClientProtocol::ParameterLock::ParameterLock(CSClientProtocol& lockedEngine) : engine(lockedEngine) {
    engine.parameterMutex.lock();
}

CSClientProtocol::ParameterLock::~ParameterLock() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    const std::uint32_t owed = std::exchange(engine.closeOwedByParameterHolder, kNoConnection);
    engine.parameterMutex.unlock();
    if (owed != kNoConnection) {
        engine.closeAfterFailedWrite(owed);
    }
}

void CSClientProtocol::requestClose() {
    // Counted first, looked second: a new connection begins only when nobody is left who saw the one before.
    const CSUseCount::Use requesting(closeRequesters);
    if (state != CSClient::STATE_DISCONNECTED) {
        isCloseRequested = true;
        transport().setInterrupted(true);
    }
}

void CSClientProtocol::closeIfRequested() {
    // Whoever has noted a request and then finds the lock held leaves it to the holder, who looks here after releasing.
    while (isCloseRequested && connectionMutex.lockWithin(std::chrono::milliseconds(0))) {
        isCloseRequested = false;
        beginDisconnecting();
        connectionMutex.unlock();
    }
}

void CSClientProtocol::closeAfterFailedWrite(std::uint32_t failedConnection) {
    if (parameterMutex.isHeldByThisThread()) {
        parameterMutex.assertHeld();
        closeOwedByParameterHolder = failedConnection;
    } else if (connectionMutex.isHeldByThisThread()) {
        connectionMutex.assertHeld();
        closeOwedByConnectionHolder = failedConnection;
    } else {
        closeOrReconnect(failedConnection);
    }
}

bool CSClientProtocol::owesClose() const {
    if (parameterMutex.isHeldByThisThread()) {
        parameterMutex.assertHeld();
        if (closeOwedByParameterHolder != kNoConnection) {
            return true;
        }
    }
    if (connectionMutex.isHeldByThisThread()) {
        connectionMutex.assertHeld();
        return closeOwedByConnectionHolder != kNoConnection;
    }
    return false;
}

}  // namespace com_tesk
