#include "engine/EngineParts.h"

#include "comms/CSCommsInterfaceTCP.h"
#include "comms/Diagnostics.h"

namespace com_tesk {

using diagnostics::Decimal;

namespace {

CSCommsInterfaceTCP* newTransport(unsigned int optionFlags) {
    CSCommsInterfaceTCP::Options transportOptions;
    transportOptions.quiet = (optionFlags & CSClient::OPTION_SILENT) != 0;
    return new CSCommsInterfaceTCP(transportOptions);
}

}  // namespace

CSClientProtocol::Parts::Parts(CSClientProtocol& composedEngine, unsigned int optionFlags)
    : options(optionFlags),
      connection(*this, optionFlags),
      frames(*this, newTransport(optionFlags)),
      engine(composedEngine) {}

void CSClientProtocol::Parts::closeAfterFailedWrite(std::uint32_t failedConnection) {
    if (!tables.deferClose(failedConnection) && !connection.deferClose(failedConnection)) {
        connection.closeOrReconnect(failedConnection);
    }
}

void CSClientProtocol::Parts::stateChanged(CSClient::State oldState, CSClient::State newState) {
    callbacks.notify([oldState, newState](CSClient::CallbackIface& callbackInterface) {
        callbackInterface.connectionStateChanged(oldState, newState);
    });
    engine.handleConnectionStateChange(oldState, newState);
    if (newState == CSClient::STATE_CONNECTED || newState == CSClient::STATE_READY) {
        registerWhatIsLeft();
    }
}

void CSClientProtocol::Parts::setInterrupted(bool isInterrupted) {
    frames.transport().setInterrupted(isInterrupted);
}

bool CSClientProtocol::Parts::maySend() const {
    // Until a deferred close is performed, the connection counts as closed.
    return connection.isConnected() && !tables.hasDeferredClose() && !connection.hasDeferredClose();
}

std::uint32_t CSClientProtocol::Parts::connectionToWriteTo() const {
    const std::uint32_t number = connection.number();
    return connection.isConnected() && !connection.isAbandoned(number) ? number : kNoConnection;
}

void CSClientProtocol::Parts::writeAbandoned(std::uint32_t abandoned) {
    connection.abandon(abandoned);
}

void CSClientProtocol::Parts::writeFailed(std::uint32_t failedConnection, int error) {
    if (!isSilent()) {
        diagnostics::error({"Error writing to server (", Decimal(error), ") "});
    }
    closeAfterFailedWrite(failedConnection);
}

void CSClientProtocol::Parts::readFailed(std::initializer_list<std::string_view> line) {
    if (!isSilent()) {
        diagnostics::error(line);
    }
    closeAfterFailure();
}

void CSClientProtocol::Parts::bodyReceived(const RawMessage& body) {
    engine.handleReceivedMessage(body);
}

}  // namespace com_tesk
