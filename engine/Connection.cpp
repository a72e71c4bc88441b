// The life of a connection: opening, the worker thread, losing and closing, and every change of state.

#include <chrono>
#include <new>
#include <utility>

#include "comms/AtScopeEnd.h"
#include "comms/CSCommsInterfaceTCP.h"
#include "comms/Diagnostics.h"
#include "comms/SignalsBlocked.h"
#include "engine/CSClientProtocol.h"
#include "engine/EngineLocks.h"

namespace com_tesk {

namespace {

constexpr int kOk = 0;
constexpr int kFailed = 2;

/// Between connection attempts, and after a loss.
constexpr unsigned int kRetrySeconds = 1;

/// How long closing waits for a state change in progress. One that takes longer is stuck in a write or in a callback.
constexpr std::chrono::milliseconds kMaxStateChange{50};

}  // namespace

int CSClientProtocol::openConnection(unsigned int address, unsigned int port,
                                     const CSClient::ConnectionOptions* newOptions) {
    bool isRefused = false;
    bool isStarted = false;
    underConnectionLock([&]() CSCLIENT_REQUIRES(connectionMutex) {
        isRefused = state != CSClient::STATE_DISCONNECTED;
        if (isRefused) {
            return;
        }
        // A request made before this point belongs to the connection that has ended.
        closeRequesters.waitForUsers();
        isCloseRequested = false;
        comms->setInterrupted(false);
        retryPause.reset();
        beginConnecting();
        serverAddress = address;
        serverPort = port;
        connectionOptions = newOptions != nullptr ? *newOptions : CSClient::ConnectionOptions();
        isStarted = startWorker();
        if (!isStarted && !hasOptions(CSClient::OPTION_AUTO_RECONNECT)) {
            beginDisconnecting();
        }
    });
    if (isStarted) {
        return kOk;
    }
    // Without a worker no thread leaves the state that is left here: connecting, or disconnecting.
    if (!isRefused && hasOptions(CSClient::OPTION_AUTO_RECONNECT)) {
        closeConnection();
    }
    return kFailed;
}

void CSClientProtocol::beginConnecting() {
    bool isAnnounced = false;
    // A cancellation in a callback leaves the engine closed, as it was: without a worker it could not be closed again.
    const AtScopeEnd undoUnlessAnnounced([this, &isAnnounced] {
        if (!isAnnounced) {
            state = CSClient::STATE_DISCONNECTED;
        }
    });
    setState(CSClient::STATE_CONNECTING);
    isAnnounced = true;
}

bool CSClientProtocol::startWorker() {
    // The application's signals are delivered to the application's own threads.
    const SignalsBlocked inherited;
    return workerThread.create(&CSClientProtocol::mainThread, this);
}

void CSClientProtocol::forceCloseConnection() {
    const bool isCarriedOut = underConnectionLockWithin(
        kMaxStateChange, [this]() CSCLIENT_REQUIRES(connectionMutex) { beginDisconnecting(); });
    if (!isCarriedOut) {
        requestClose();
        closeIfRequested();
    }
}

void CSClientProtocol::beginDisconnecting() {
    if (state == CSClient::STATE_DISCONNECTED || state == CSClient::STATE_DISCONNECTING) {
        return;
    }
    // Also when a callback is cancelled.
    const AtScopeEnd endTheConnection([this]() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
        serverAddress = 0;
        serverPort = 0;
        comms->setInterrupted(true);
        retryPause.interrupt();
    });
    setState(CSClient::STATE_DISCONNECTING);
}

void CSClientProtocol::closeConnection() {
    closeOrReconnect(kNoConnection);
}

void CSClientProtocol::closeOrReconnect(std::uint32_t onlyConnection) {
    bool isPauseNeeded = false;
    underConnectionLock([&]() CSCLIENT_REQUIRES(connectionMutex) {
        const bool isAnotherConnection = onlyConnection != kNoConnection && onlyConnection != connectionNumber;
        if (!isAnotherConnection) {
            isPauseNeeded = beginReconnecting();
        }
    });
    if (isPauseNeeded) {
        retryPause.sleep(kRetrySeconds);
    }
}

bool CSClientProtocol::beginReconnecting() {
    if (!hasOptions(CSClient::OPTION_AUTO_RECONNECT)) {
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
            setState(CSClient::STATE_CONNECTING);
            break;
        case CSClient::STATE_READY:
            if (!isSilent()) {
                diagnostics::progress({"Attempting to reconnect..."});
            }
            setState(CSClient::STATE_RECONNECTING);
            setState(CSClient::STATE_CONNECTING);
            break;
    }
    return true;
}

int CSClientProtocol::startConnection() {
    CSCommsInterfaceTCP* opening = nullptr;
    unsigned int address = 0;
    unsigned int port = 0;
    underConnectionLock([&]() CSCLIENT_REQUIRES(connectionMutex) {
        if (state == CSClient::STATE_CONNECTING) {
            opening = comms;
            address = serverAddress;
            port = serverPort;
            CSCommsInterfaceTCP::Options transportOptions;
            // Not quiet, whatever OPTION_SILENT says: what the system refuses is worth a line.
            transportOptions.quiet = false;
            transportOptions.receiveBufferSize = connectionOptions.receiveBufferSize;
            transportOptions.sendBufferSize = connectionOptions.sendBufferSize;
            opening->setOptions(transportOptions);
        }
    });
    // Without the lock: a host that does not answer must not hold up threads that close or ask.
    const bool isConnected = opening != nullptr && opening->openConnection(address, port);
    bool isEntered = false;
    if (isConnected) {
        underConnectionLock([&]() CSCLIENT_REQUIRES(connectionMutex) {
            isEntered = state == CSClient::STATE_CONNECTING;
            if (isEntered) {
                countConnection();
                setState(CSClient::STATE_CONNECTED);
            }
        });
    }
    if (isEntered) {
        return kOk;
    }
    closeConnection();
    return kFailed;
}

void CSClientProtocol::countConnection() {
    ++connectionNumber;
    if (connectionNumber == kNoConnection) {
        ++connectionNumber;
    }
}

bool CSClientProtocol::changeCommsInterface(CSCommsInterfaceTCP* newComms) {
    if (newComms == nullptr) {
        return false;
    }
    bool isTaken = false;
    underConnectionLock([&]() CSCLIENT_REQUIRES(connectionMutex) {
        isTaken = state == CSClient::STATE_DISCONNECTED;
        if (isTaken && newComms != comms) {
            // A sender that saw the last connection may still use its transport. That one is closed, so it will return.
            senders.waitForUsers();
            closeRequesters.waitForUsers();
            delete std::exchange(comms, newComms);
        }
    });
    return isTaken;
}

void* CSClientProtocol::mainThread(void* engine) {
    if (engine != nullptr) {
        static_cast<CSClientProtocol*>(engine)->runWorker();
    }
    return nullptr;
}

void CSClientProtocol::runWorker() {
    bool running = true;
    while (running) {
        try {
            running = takeTurn();
        } catch (const std::bad_alloc&) {
            // Memory may be back at the next attempt; the registrations are still there.
            closeConnection();
        }
    }

    // The engine may be destroyed as soon as this lock is released, so nothing may follow the release. A request to close
    // has nothing left to do.
    const ConnectionLock lock(*this);
    comms->close();
    announcingEnd = pthread_self();
    setState(CSClient::STATE_DISCONNECTED);
    announcingEnd = 0;
    // The thread cancels itself, which must not take effect in the instructions that it still has to run.
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    workerThread.kill();
}

bool CSClientProtocol::takeTurn() {
    // Left by threads that were cancelled.
    closeIfRequested();
    closeIfAbandoned();
    switch (state) {
        case CSClient::STATE_CONNECTING:
            startConnection();
            return true;
        case CSClient::STATE_CONNECTED:
        case CSClient::STATE_READY:
            receiveMessage();
            return true;
        case CSClient::STATE_RECONNECTING:
            retryPause.sleep(kRetrySeconds);
            leaveReconnecting();
            return true;
        case CSClient::STATE_DISCONNECTED:
        case CSClient::STATE_DISCONNECTING:
            return false;
    }
    return false;
}

void CSClientProtocol::leaveReconnecting() {
    underConnectionLock([this]() CSCLIENT_REQUIRES(connectionMutex) {
        if (state == CSClient::STATE_RECONNECTING) {
            setState(CSClient::STATE_CONNECTING);
        }
    });
}

void CSClientProtocol::setState(CSClient::State newState) {
    const CSClient::State oldState = state;
    if (newState == oldState) {
        return;
    }
    state = newState;
    notifyCallbacks([oldState, newState](CSClient::CallbackIface& callbackInterface) {
        callbackInterface.connectionStateChanged(oldState, newState);
    });
    handleConnectionStateChange(oldState, newState);
    if (newState == CSClient::STATE_CONNECTED || newState == CSClient::STATE_READY) {
        registerWhatIsLeft();
    }
}

void CSClientProtocol::handleConnectionStateChange(CSClient::State /*oldState*/, CSClient::State newState) {
    switch (newState) {
        case CSClient::STATE_CONNECTED:
            setState(CSClient::STATE_READY);
            break;
        case CSClient::STATE_READY:
            requestSimulatorVersion();
            reregisterAllParameters();
            break;
        case CSClient::STATE_DISCONNECTED:
            unregisterAllLocalParameters();
            break;
        case CSClient::STATE_CONNECTING:
        case CSClient::STATE_DISCONNECTING:
        case CSClient::STATE_RECONNECTING:
            break;
    }
}

}  // namespace com_tesk
