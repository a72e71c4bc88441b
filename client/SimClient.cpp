#include "client/SimClient.h"

#include "simulator/SimulatorProtocol.h"

namespace com_tesk {

SimClient::SimClient(unsigned int simulatorId, unsigned int options) : CSClient(options) {
    engine = new SimulatorProtocol(simulatorId, options);
}

SimClient::~SimClient() = default;

}  // namespace com_tesk
