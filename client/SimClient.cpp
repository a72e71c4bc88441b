#include "client/SimClient.h"

#include <utility>

#include "comms/CSCommsInterfaceTCP.h"
#include "simulator/SimulatorProtocol.h"

namespace com_tesk {

SimClient::SimClient(unsigned int simulatorId, unsigned int options) : CSClient(options) {
    engine = new SimulatorProtocol(simulatorId, options);
}

SimClient::SimClient(unsigned int simulatorId, unsigned int options, std::unique_ptr<CSCommsInterfaceTCP> transport)
    : SimClient(simulatorId, options) {
    changeCommsInterface(std::move(transport));
}

SimClient::~SimClient() {
    // A callback may be calling a virtual operation of this class.
    endConnection();
}

}  // namespace com_tesk
