#include "simulator/SimulatorProtocol.h"

#include "simulator/HostMessages.h"
#include "simulator/SimulatorInside.h"

namespace com_tesk {

SimulatorProtocol::SimulatorProtocol(unsigned int initialSimulatorId, unsigned int optionFlags)
    : CSClientProtocol(optionFlags), inside(std::make_unique<Inside>(engineParts(), initialSimulatorId)) {}

SimulatorProtocol::~SimulatorProtocol() = default;

unsigned int SimulatorProtocol::getSimulatorId() const {
    return inside->simulatorId;
}

int SimulatorProtocol::setSimulatorId(unsigned int id) {
    if (id >= kSimulatorIdLimit) {
        return CSClient::RESULT_REFUSED;
    }
    inside->simulatorId = id;
    return CSClient::RESULT_OK;
}

void SimulatorProtocol::handleReceivedMessage(const RawMessage& message) {
    switch (wire::messageCode(message)) {
        case layout::kOutputRegistrationConfirmed:
            handlePublishResponse(message);
            break;
        case layout::kInputSubscriptionConfirmed:
            handleSubscribeResponse(message);
            break;
        case layout::kUpdate:
            handleSimulatorUpdate(message);
            break;
        case layout::kVersion:
            handleSimulatorVersionResponse(message);
            break;
        default:
            break;
    }
}

}  // namespace com_tesk
