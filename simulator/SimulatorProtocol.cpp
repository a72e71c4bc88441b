#include "simulator/SimulatorProtocol.h"

#include "message/BigEndian.h"
#include "simulator/MessageLayout.h"

namespace com_tesk {

SimulatorProtocol::SimulatorProtocol(unsigned int initialSimulatorId, unsigned int optionFlags)
    : CSClientProtocol(optionFlags), simulatorId(initialSimulatorId) {}

SimulatorProtocol::~SimulatorProtocol() = default;

unsigned int SimulatorProtocol::getSimulatorId() const {
    return simulatorId;
}

int SimulatorProtocol::setSimulatorId(unsigned int id) {
    constexpr int kRefused = 3;
    if (id >= kSimulatorIdLimit) {
        return kRefused;
    }
    simulatorId = id;
    return 0;
}

void SimulatorProtocol::handleReceivedMessage(const RawMessage& message) {
    constexpr unsigned int kProtocols = layout::kProtocol << 8U | layout::kSubprotocol;
    if (message.size() < layout::kSubHeaderLength || big_endian::halfWordAt(message.data()) != kProtocols) {
        return;
    }
    switch (big_endian::halfWordAt(message.data() + layout::kMessageCodeOffset)) {
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
