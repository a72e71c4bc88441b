#include "engine/CSClientProtocol.h"

#include "comms/CSCommsInterfaceTCP.h"
#include "comms/CancellationDisabled.h"
#include "engine/EngineParts.h"

namespace com_tesk {

CSClientProtocol::CSClientProtocol(unsigned int optionFlags) : parts(std::make_unique<Parts>(*this, optionFlags)) {}

CSClientProtocol::~CSClientProtocol() {
    const CancellationDisabled untilDestroyed;
    parts->connection.waitForWorker();
    parts.reset();
}

unsigned int CSClientProtocol::getOptions() const {
    return parts->options;
}

bool CSClientProtocol::hasOptions(unsigned int mask) const {
    return (parts->options & mask) == mask;
}

CSClient::State CSClientProtocol::getState() const {
    return parts->connection.currentForThisThread();
}

std::string CSClientProtocol::getServerVersion() const {
    return parts->host.text();
}

unsigned int CSClientProtocol::getProtocolVersion() const {
    return parts->host.protocol();
}

std::string CSClientProtocol::getServerIPAddress() const {
    return CSCommsInterfaceTCP::convertIPOctetToAddress(parts->connection.address());
}

unsigned int CSClientProtocol::getServerPort() const {
    return parts->connection.port();
}

bool CSClientProtocol::changeCommsInterface(CSCommsInterfaceTCP* newComms) {
    return newComms != nullptr &&
           parts->connection.whileDisconnected([this, newComms] { parts->frames.replaceTransport(newComms); });
}

int CSClientProtocol::openConnection(unsigned int address, unsigned int port,
                                     const CSClient::ConnectionOptions* newOptions) {
    const ConnectionState::Attempt attempt{address, port,
                                           newOptions != nullptr ? *newOptions : CSClient::ConnectionOptions()};
    return parts->connection.open(attempt, &CSClientProtocol::mainThread, this);
}

void CSClientProtocol::closeConnection() {
    parts->closeAfterFailure();
}

void CSClientProtocol::forceCloseConnection() {
    parts->connection.close();
}

int CSClientProtocol::startConnection() {
    return parts->startConnection();
}

void* CSClientProtocol::mainThread(void* engine) {
    return Parts::runWorker(engine);
}

// The callers hold the lock. The analysis cannot see that from outside the part.
void CSClientProtocol::setState(CSClient::State newState) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    parts->connection.change(newState);
}

void CSClientProtocol::handleConnectionStateChange(CSClient::State /*oldState*/, CSClient::State newState) {
    switch (newState) {
        case CSClient::STATE_CONNECTED:
            setState(CSClient::STATE_READY);
            break;
        case CSClient::STATE_READY:
            requestSimulatorVersion();
            parts->reregisterAll();
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

unsigned int CSClientProtocol::sendMessage(const RawMessage& message) {
    return parts->frames.send(message);
}

bool CSClientProtocol::readMessageHeader(RawMessage::Type& type, unsigned int& bodyLength) {
    return parts->frames.readHeader(type, bodyLength);
}

void CSClientProtocol::receiveMessage() {
    parts->frames.receive();
}

unsigned int CSClientProtocol::addCallbackInterface(CSClient::CallbackIface* callbackInterface) {
    return parts->callbacks.add(callbackInterface);
}

int CSClientProtocol::removeCallbackInterface(CSClient::CallbackIface* callbackInterface) {
    return parts->callbacks.remove(callbackInterface);
}

bool CSClientProtocol::hasCallbackInterface(CSClient::CallbackIface* callbackInterface) const {
    return parts->callbacks.has(callbackInterface);
}

int CSClientProtocol::getNumCallbackInterfaces() const {
    return parts->callbacks.size();
}

int CSClientProtocol::getCallbackInterfaces(std::set<CSClient::CallbackIface*>& out) const {
    return parts->callbacks.copyTo(out);
}

void CSClientProtocol::notifyCallbackInterfaces(const std::function<void(CSClient::CallbackIface&)>& notify) {
    parts->callbacks.notify(notify);
}

void CSClientProtocol::storeServerVersion(const std::string& text, unsigned int protocolVersion) {
    parts->host.storeText(text);
    parts->host.storeProtocol(protocolVersion);
}

}  // namespace com_tesk
