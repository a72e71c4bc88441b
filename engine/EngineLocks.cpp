#include "engine/EngineLocks.h"

#include <chrono>
#include <ctime>

#include "comms/CSCommsInterfaceTCP.h"

namespace com_tesk {

namespace {

/// How a thread that wants to send waits while the worker waits for the tables: at most 10 ms in all, because the worker
/// may itself wait for a third thread.
constexpr timespec kYield{0, 50'000};
constexpr int kMaxYields = 200;

}  // namespace

CSClientProtocol::ConnectionLock::ConnectionLock(CSClientProtocol& lockedEngine) : engine(lockedEngine) {
    engine.connectionMutex.lock();
}

CSClientProtocol::ConnectionLock::ConnectionLock(CSClientProtocol& lockedEngine, Adopt /*adopt*/)
    : engine(lockedEngine) {}

// The analysis does not connect the member `engine` with the constructor's argument, here and below.
CSClientProtocol::ConnectionLock::~ConnectionLock() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    const std::uint32_t deferred = takeDeferredClose();
    if (deferred != kNoConnection) {
        engine.abandon(deferred);
    }
    engine.connectionMutex.unlock();
}

CSClientProtocol::ParameterLock::ParameterLock(CSClientProtocol& lockedEngine) : engine(lockedEngine) {
    if (engine.connectionMutex.isHeldByThisThread()) {
        engine.lockParametersFirst();
        return;
    }
    for (int i = 0; i < kMaxYields && engine.waitingFirst.load(std::memory_order_relaxed) != 0; ++i) {
        nanosleep(&kYield, nullptr);
    }
    engine.parameterMutex.lock();
}

CSClientProtocol::ParameterLock::~ParameterLock() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    const std::uint32_t deferred = takeDeferredClose();
    if (deferred != kNoConnection) {
        engine.abandon(deferred);
    }
    engine.parameterMutex.unlock();
}

void CSClientProtocol::lockParametersFirst() {
    if (!parameterMutex.tryLock()) {
        ++waitingFirst;
        parameterMutex.lock();
        --waitingFirst;
    }
}

void CSClientProtocol::requestClose() {
    // Counted before the state is read: a new connection begins only after the threads that saw the one before.
    const CSUseCount::Use requesting(closeRequesters);
    if (state != CSClient::STATE_DISCONNECTED) {
        isCloseRequested = true;
        transport().setInterrupted(true);
        retryPause.interrupt();
    }
}

void CSClientProtocol::closeIfRequested() {
    // A thread that has noted a request and finds the lock held leaves it to the holder, who looks here after releasing.
    while (isCloseRequested && connectionMutex.tryLock()) {
        const ConnectionLock lock(*this, ConnectionLock::ADOPT);
        isCloseRequested = false;
        beginDisconnecting();
    }
}

void CSClientProtocol::closeAsDeferred(std::uint32_t deferredConnection) {
    closeIfRequested();
    if (deferredConnection != kNoConnection) {
        closeAfterFailedWrite(deferredConnection);
    }
}

void CSClientProtocol::closeAfterFailedWrite(std::uint32_t failedConnection) {
    if (parameterMutex.isHeldByThisThread()) {
        parameterMutex.assertHeld();
        closeDeferredByParameterHolder = failedConnection;
    } else if (connectionMutex.isHeldByThisThread()) {
        connectionMutex.assertHeld();
        closeDeferredByConnectionHolder = failedConnection;
    } else {
        closeOrReconnect(failedConnection);
    }
}

void CSClientProtocol::abandon(std::uint32_t connection) {
    std::uint32_t current = abandonedConnection;
    // A later connection stays noted: the earlier one has ended already. Numbers are compared across their wrap-around.
    while ((current == kNoConnection || static_cast<std::int32_t>(connection - current) > 0) &&
           !abandonedConnection.compare_exchange_weak(current, connection)) {
    }
}

void CSClientProtocol::closeIfAbandoned() {
    std::uint32_t abandoned = abandonedConnection;
    if (abandoned == kNoConnection) {
        return;
    }
    if (abandoned == connectionNumber && (state == CSClient::STATE_CONNECTED || state == CSClient::STATE_READY)) {
        closeOrReconnect(abandoned);
    }
    // Not before the close: until then nothing may be sent on that connection.
    abandonedConnection.compare_exchange_strong(abandoned, kNoConnection);
}

bool CSClientProtocol::hasDeferredClose() const {
    if (parameterMutex.isHeldByThisThread()) {
        parameterMutex.assertHeld();
        if (closeDeferredByParameterHolder != kNoConnection) {
            return true;
        }
    }
    if (connectionMutex.isHeldByThisThread()) {
        connectionMutex.assertHeld();
        return closeDeferredByConnectionHolder != kNoConnection;
    }
    return false;
}

}  // namespace com_tesk
