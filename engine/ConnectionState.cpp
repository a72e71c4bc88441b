#include "engine/ConnectionState.h"

#include "comms/AtScopeEnd.h"
#include "comms/Diagnostics.h"
#include "comms/SignalsBlocked.h"

namespace com_tesk {

namespace {

/// The pause between connection attempts, and after a loss.
constexpr unsigned int kRetrySeconds = 1;

/// The longest wait of a close for a state change in progress. A change that takes longer is blocked in a write or
/// callback.
constexpr std::chrono::milliseconds kMaxStateChange{50};

}  // namespace

ConnectionState::Lock::Lock(ConnectionState& lockedState) : connection(lockedState) {
    connection.connectionMutex.lock();
}

ConnectionState::Lock::Lock(ConnectionState& lockedState, Adopt /*adopt*/) : connection(lockedState) {}

// The analysis does not connect the member `connection` with the constructor's argument.
ConnectionState::Lock::~Lock() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    const std::uint32_t deferred = connection.connectionMutex.takeDeferred();
    if (deferred != kNoConnection) {
        connection.abandon(deferred);
    }
    connection.connectionMutex.unlock();
}

ConnectionState::ConnectionState(Observer& observerOfChanges, unsigned int optionFlags)
    : observer(observerOfChanges), options(optionFlags) {}

CSClient::State ConnectionState::currentForThisThread() const {
    const CSClient::State seen = state;
    if (seen == CSClient::STATE_DISCONNECTED) {
        const pthread_t worker = announcingEnd;
        if (worker != 0 && pthread_equal(worker, pthread_self()) == 0) {
            return CSClient::STATE_DISCONNECTING;
        }
    }
    return seen;
}

bool ConnectionState::isConnected() const {
    const CSClient::State seen = state;
    return seen == CSClient::STATE_CONNECTED || seen == CSClient::STATE_READY;
}

bool ConnectionState::hasDeferredClose() const {
    if (!connectionMutex.isHeldByThisThread()) {
        return false;
    }
    connectionMutex.assertHeld();
    return connectionMutex.hasDeferred();
}

int ConnectionState::open(const Attempt& newAttempt, void* (*routine)(void*), void* argument) {
    bool isRefused = false;
    bool isStarted = false;
    underLock([&]() CSCLIENT_REQUIRES(connectionMutex) {
        isRefused = state != CSClient::STATE_DISCONNECTED;
        if (isRefused) {
            return;
        }
        // An earlier request belongs to the connection that has ended.
        closeRequesters.waitForUsers();
        isCloseRequested = false;
        observer.setInterrupted(false);
        retryPause.reset();
        beginConnecting();
        serverAddress = newAttempt.address;
        serverPort = newAttempt.port;
        connectionOptions = newAttempt.options;
        isStarted = startWorker(routine, argument);
        if (!isStarted && !hasOption(CSClient::OPTION_AUTO_RECONNECT)) {
            beginDisconnecting();
        }
    });
    if (isStarted) {
        return CSClient::RESULT_OK;
    }
    // Without a worker no thread changes the state that remains: connecting, or disconnecting.
    if (!isRefused && hasOption(CSClient::OPTION_AUTO_RECONNECT)) {
        closeOrReconnect();
    }
    return CSClient::RESULT_FAILED;
}

void ConnectionState::beginConnecting() {
    bool isAnnounced = false;
    // After a cancellation in a callback the state is disconnected again: without a worker no thread could leave
    // connecting.
    const AtScopeEnd undoUnlessAnnounced([this, &isAnnounced] {
        if (!isAnnounced) {
            state = CSClient::STATE_DISCONNECTED;
        }
    });
    change(CSClient::STATE_CONNECTING);
    isAnnounced = true;
}

bool ConnectionState::startWorker(void* (*routine)(void*), void* argument) {
    // The application's signals are delivered to the application's own threads.
    const SignalsBlocked inherited;
    return workerThread.create(routine, argument);
}

void ConnectionState::close() {
    const bool isCarriedOut =
        underLockWithin(kMaxStateChange, [this]() CSCLIENT_REQUIRES(connectionMutex) { beginDisconnecting(); });
    if (!isCarriedOut) {
        requestClose();
        closeIfRequested();
    }
}

void ConnectionState::beginDisconnecting() {
    if (state == CSClient::STATE_DISCONNECTED || state == CSClient::STATE_DISCONNECTING) {
        return;
    }
    // Runs also when a callback is cancelled.
    const AtScopeEnd endTheConnection([this] {
        serverAddress = 0;
        serverPort = 0;
        observer.setInterrupted(true);
        retryPause.interrupt();
    });
    change(CSClient::STATE_DISCONNECTING);
}

void ConnectionState::closeOrReconnect(std::uint32_t onlyConnection) {
    bool isPauseNeeded = false;
    underLock([&]() CSCLIENT_REQUIRES(connectionMutex) {
        const bool isAnotherConnection = onlyConnection != kNoConnection && onlyConnection != connectionNumber;
        if (!isAnotherConnection) {
            isPauseNeeded = beginReconnecting();
        }
    });
    if (isPauseNeeded) {
        retryPause.sleep(kRetrySeconds);
    }
}

bool ConnectionState::beginReconnecting() {
    if (!hasOption(CSClient::OPTION_AUTO_RECONNECT)) {
        beginDisconnecting();
        return false;
    }
    switch (state) {
        case CSClient::STATE_DISCONNECTED:
        case CSClient::STATE_DISCONNECTING:
            return false;
        case CSClient::STATE_CONNECTING:
        case CSClient::STATE_RECONNECTING:
            break;
        case CSClient::STATE_CONNECTED:
            change(CSClient::STATE_CONNECTING);
            break;
        case CSClient::STATE_READY:
            if (!hasOption(CSClient::OPTION_SILENT)) {
                diagnostics::progress({"Attempting to reconnect..."});
            }
            change(CSClient::STATE_RECONNECTING);
            change(CSClient::STATE_CONNECTING);
            break;
    }
    return true;
}

bool ConnectionState::isAttemptWanted(Attempt& attempt) {
    bool isWanted = false;
    underLock([&]() CSCLIENT_REQUIRES(connectionMutex) {
        isWanted = state == CSClient::STATE_CONNECTING;
        if (isWanted) {
            attempt = {serverAddress, serverPort, connectionOptions};
        }
    });
    return isWanted;
}

bool ConnectionState::enterConnected() {
    bool isEntered = false;
    underLock([&]() CSCLIENT_REQUIRES(connectionMutex) {
        isEntered = state == CSClient::STATE_CONNECTING;
        if (isEntered) {
            if (++connectionNumber == kNoConnection) {
                ++connectionNumber;
            }
            change(CSClient::STATE_CONNECTED);
        }
    });
    return isEntered;
}

void ConnectionState::leaveReconnecting() {
    retryPause.sleep(kRetrySeconds);
    underLock([this]() CSCLIENT_REQUIRES(connectionMutex) {
        if (state == CSClient::STATE_RECONNECTING) {
            change(CSClient::STATE_CONNECTING);
        }
    });
}

void ConnectionState::announceEnd() {
    announcingEnd = pthread_self();
    change(CSClient::STATE_DISCONNECTED);
    announcingEnd = 0;
    // The thread cancels itself. The cancellation must not take effect in the instructions that it still has to run.
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    workerThread.kill();
}

void ConnectionState::change(CSClient::State newState) {
    const CSClient::State oldState = state;
    if (newState != oldState) {
        state = newState;
        observer.stateChanged(oldState, newState);
    }
}

bool ConnectionState::deferClose(std::uint32_t connection) {
    if (!connectionMutex.isHeldByThisThread()) {
        return false;
    }
    connectionMutex.assertHeld();
    connectionMutex.defer(connection);
    return true;
}

void ConnectionState::requestClose() {
    // Register before reading the state: a new connection waits for the threads that saw the previous one.
    const CSUseCount::Use requesting(closeRequesters);
    if (state != CSClient::STATE_DISCONNECTED) {
        isCloseRequested = true;
        observer.setInterrupted(true);
        retryPause.interrupt();
    }
}

void ConnectionState::closeIfRequested() {
    // When the lock is held, the requesting thread leaves the close to the holder, which polls here after unlocking.
    while (isCloseRequested && connectionMutex.tryLock()) {
        const Lock lock(*this, Lock::ADOPT);
        isCloseRequested = false;
        beginDisconnecting();
    }
}

void ConnectionState::closeAsDeferred(std::uint32_t deferredConnection) {
    closeIfRequested();
    if (deferredConnection != kNoConnection) {
        closeOrReconnect(deferredConnection);
    }
}

void ConnectionState::abandon(std::uint32_t connection) {
    std::uint32_t current = abandonedConnection;
    // A later connection stays stored: the earlier one has ended already. The comparison works across the numbers'
    // wrap-around.
    while ((current == kNoConnection || static_cast<std::int32_t>(connection - current) > 0) &&
           !abandonedConnection.compare_exchange_weak(current, connection)) {
    }
}

void ConnectionState::closeAsLeft() {
    closeIfRequested();
    std::uint32_t abandoned = abandonedConnection;
    if (abandoned == kNoConnection) {
        return;
    }
    if (abandoned == connectionNumber && isConnected()) {
        closeOrReconnect(abandoned);
    }
    // Clear it only after the close: until then nothing may be sent on that connection.
    abandonedConnection.compare_exchange_strong(abandoned, kNoConnection);
}

}  // namespace com_tesk
