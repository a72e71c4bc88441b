// The worker thread: it connects, receives, and ends the connection.

#include <new>

#include "comms/CSCommsInterfaceTCP.h"
#include "engine/EngineParts.h"

namespace com_tesk {

void* CSClientProtocol::Parts::runWorker(void* engine) {
    if (engine != nullptr) {
        static_cast<CSClientProtocol*>(engine)->parts->runUntilEnd();
    }
    return nullptr;
}

void CSClientProtocol::Parts::runUntilEnd() {
    bool running = true;
    while (running) {
        try {
            running = runOnce();
        } catch (const std::bad_alloc&) {
            // Memory may be available at the next attempt. The registrations are still there.
            closeAfterFailure();
        }
    }
    connection.finish([this] { frames.transport().close(); });
}

bool CSClientProtocol::Parts::runOnce() {
    connection.closeAsLeft();
    switch (connection.current()) {
        case CSClient::STATE_CONNECTING:
            startConnection();
            return true;
        case CSClient::STATE_CONNECTED:
        case CSClient::STATE_READY:
            frames.receive();
            return true;
        case CSClient::STATE_RECONNECTING:
            connection.leaveReconnecting();
            return true;
        case CSClient::STATE_DISCONNECTED:
        case CSClient::STATE_DISCONNECTING:
            return false;
    }
    return false;
}

int CSClientProtocol::Parts::startConnection() {
    ConnectionState::Attempt attempt;
    bool isConnected = false;
    if (connection.isAttemptWanted(attempt)) {
        CSCommsInterfaceTCP::Options transportOptions;
        // Intended: not quiet, even with OPTION_SILENT, so that socket options that the system refuses are reported.
        transportOptions.quiet = false;
        transportOptions.receiveBufferSize = attempt.options.receiveBufferSize;
        transportOptions.sendBufferSize = attempt.options.sendBufferSize;
        frames.transport().setOptions(transportOptions);
        // No lock is held: a host that does not answer must not block threads that close or query.
        isConnected = frames.transport().openConnection(attempt.address, attempt.port);
    }
    if (isConnected && connection.enterConnected()) {
        return CSClient::RESULT_OK;
    }
    closeAfterFailure();
    return CSClient::RESULT_FAILED;
}

}  // namespace com_tesk
