// The life of a connection: opening, the worker thread, losing and closing, and every change of state.

#include <chrono>
#include <new>

#include "comms/CSCommsInterfaceTCP.h"
#include "comms/CSLockGuard.h"
#include "comms/Diagnostics.h"
#include "comms/WholeSeconds.h"
#include "engine/CSClientProtocol.h"
#include "engine/EngineLocks.h"

namespace com_tesk {

namespace {

constexpr int kOk = 0;
constexpr int kFailed = 2;

/// Between connection attempts, and after a loss.
constexpr unsigned int kRetrySeconds = 1;

/// How long closing waits for a change of state under way. What takes longer is stuck in a write or in a callback.
constexpr std::chrono::milliseconds kLongestStateChange{100};

}  // namespace

int CSClientProtocol::openConnection(unsigned int address, unsigned int port,
                                     const CSClient::ConnectionOptions* newOptions) {
    {
        const ConnectionLock lock(*this);
        if (state != CSClient::STATE_DISCONNECTED) {
            return kFailed;
        }
        // Requests of before are for the connection that has ended.
        closeRequesters.waitUntilUnused();
        isCloseRequested = false;
        comms->setInterrupted(false);
        setState(CSClient::STATE_CONNECTING);
        serverAddress = address;
        serverPort = port;
        connectionOptions = newOptions != nullptr ? *newOptions : CSClient::ConnectionOptions();
        if (workerThread.create(&CSClientProtocol::mainThread, this)) {
            return kOk;
        }
        if (!hasOptions(CSClient::OPTION_AUTO_RECONNECT)) {
            beginDisconnecting();
        }
    }
    // Without a worker nobody leaves the state that is left here: connecting, or disconnecting.
    if (hasOptions(CSClient::OPTION_AUTO_RECONNECT)) {
        closeConnection();
    }
    return kFailed;
}

void CSClientProtocol::forceCloseConnection() {
    if (connectionMutex.lockWithin(kLongestStateChange)) {
        const ConnectionLock lock(*this, ConnectionLock::ADOPT);
        beginDisconnecting();
    } else {
        requestClose();
        closeIfRequested();
    }
}

void CSClientProtocol::beginDisconnecting() {
    if (state == CSClient::STATE_DISCONNECTED || state == CSClient::STATE_DISCONNECTING) {
        return;
    }
    setState(CSClient::STATE_DISCONNECTING);
    serverAddress = 0;
    serverPort = 0;
    comms->setInterrupted(true);
}

void CSClientProtocol::closeConnection() {
    closeOrReconnect(kNoConnection);
}

void CSClientProtocol::closeOrReconnect(std::uint32_t onlyConnection) {
    {
        const ConnectionLock lock(*this);
        if (onlyConnection != kNoConnection && onlyConnection != connectionNumber) {
            return;
        }
        if (!hasOptions(CSClient::OPTION_AUTO_RECONNECT)) {
            beginDisconnecting();
            return;
        }
        switch (state) {
            case CSClient::STATE_DISCONNECTED:
            case CSClient::STATE_DISCONNECTING:
                return;
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
    }
    sleepWholeSeconds(kRetrySeconds);
}

int CSClientProtocol::startConnection() {
    CSCommsInterfaceTCP* opening = nullptr;
    unsigned int address = 0;
    unsigned int port = 0;
    {
        const ConnectionLock lock(*this);
        if (state == CSClient::STATE_CONNECTING) {
            opening = comms;
            address = serverAddress;
            port = serverPort;
            CSCommsInterfaceTCP::Options transportOptions;
            // Deliberately not quiet, whatever OPTION_SILENT says: what the system refuses is worth a line.
            transportOptions.quiet = false;
            transportOptions.receiveBufferSize = connectionOptions.receiveBufferSize;
            transportOptions.sendBufferSize = connectionOptions.sendBufferSize;
            opening->setOptions(transportOptions);
        }
    }
    // Without the lock: a host that does not answer must not hold up those who close or ask.
    if (opening != nullptr && opening->openConnection(address, port)) {
        const ConnectionLock lock(*this);
        if (state == CSClient::STATE_CONNECTING) {
            countConnection();
            setState(CSClient::STATE_CONNECTED);
            return kOk;
        }
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
    const ConnectionLock lock(*this);
    if (state != CSClient::STATE_DISCONNECTED) {
        return false;
    }
    // A sender that saw the last connection may not have let go of its transport yet; that one is closed, so it will.
    senders.waitUntilUnused();
    closeRequesters.waitUntilUnused();
    delete comms;
    comms = newComms;
    return true;
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

    // Not a ConnectionLock: nobody may touch the engine once this lock is released.
    const CSLockGuard lock(connectionMutex);
    comms->close();
    announcingEnd = pthread_self();
    setState(CSClient::STATE_DISCONNECTED);
    announcingEnd = 0;
    // The engine may be destroyed as soon as the lock is released. The thread's cancellation of itself
    // must not strike in what it still has to return from.
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    workerThread.kill();
}

bool CSClientProtocol::takeTurn() {
    switch (state) {
        case CSClient::STATE_CONNECTING:
            startConnection();
            return true;
        case CSClient::STATE_CONNECTED:
        case CSClient::STATE_READY:
            receiveMessage();
            return true;
        case CSClient::STATE_RECONNECTING:
            sleepWholeSeconds(kRetrySeconds);
            return true;
        case CSClient::STATE_DISCONNECTED:
        case CSClient::STATE_DISCONNECTING:
            return false;
    }
    return false;
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
}

bool CSClientProtocol::waitForStateChange(std::chrono::milliseconds longest) const {
    if (connectionMutex.isHeldByThisThread()) {
        return true;
    }
    if (!connectionMutex.lockWithin(longest)) {
        return false;
    }
    connectionMutex.unlock();
    return true;
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
