#include "session/SessionProtocol.h"

#include <ctime>

namespace com_tesk::session {

// Without the option to reconnect, because a lost connection then ends at once. The session connects again itself,
// after its own interval. Silent, because the session reports what happens.
SessionProtocol::SessionProtocol(Observer& protocolObserver, unsigned int simulatorId)
    : SimulatorProtocol(simulatorId, CSClient::OPTION_SILENT), observer(protocolObserver) {}

void SessionProtocol::handleReceivedMessage(const RawMessage& message) {
    observer.messageReceived(message);
}

void SessionProtocol::handleConnectionStateChange(CSClient::State /*oldState*/, CSClient::State newState) {
    switch (newState) {
        case CSClient::STATE_CONNECTED:
            setState(CSClient::STATE_READY);
            break;
        case CSClient::STATE_READY:
            observer.connectionBegan();
            break;
        case CSClient::STATE_DISCONNECTED:
            observer.connectionEnded();
            break;
        case CSClient::STATE_CONNECTING:
        case CSClient::STATE_DISCONNECTING:
        case CSClient::STATE_RECONNECTING:
            break;
    }
}

void SessionProtocol::waitForWorker() const {
    constexpr timespec kPollInterval{0, 20'000};
    while (getState() != CSClient::STATE_DISCONNECTED) {
        nanosleep(&kPollInterval, nullptr);
    }
}

}  // namespace com_tesk::session
