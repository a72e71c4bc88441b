// What the host says of itself.

#include "comms/Diagnostics.h"
#include "simulator/MessageLayout.h"
#include "simulator/RecordFields.h"
#include "simulator/SimulatorProtocol.h"

namespace com_tesk {

using diagnostics::Decimal;

void SimulatorProtocol::handleSimulatorVersionResponse(const RawMessage& message) {
    // A message too short to hold the status reads as one that was not accepted.
    if (message.getDoubleWord(layout::version::kStatusOffset) != layout::version::kAccepted) {
        return;
    }
    const std::string text(layout::textAt(message, layout::version::kTextOffset, layout::version::kTextLength));
    storeServerVersion(text);

    const unsigned int announcedId = message.getDoubleWord(layout::kSimulatorWordOffset) >> layout::kSimulatorIdShift;
    if (announcedId != simulatorId) {
        // Printed in silent mode too: under a new id the client is another one to the host.
        diagnostics::progress({"Simulator ID is now ", Decimal(announcedId), " -> reconnecting under the new id"});
        // An id out of range is refused, deliberately without a word, and everything is registered again all the same.
        setSimulatorId(announcedId);
        reregisterAllInputParameters();
        reregisterAllOutputParameters();
    }
    protocolVersion = message.getDoubleWord(layout::version::kProtocolVersionOffset);
    if (isSilent()) {
        return;
    }
    diagnostics::progress({"Found server version: ", text});
    diagnostics::progress({"Found simulator id: ", Decimal(announcedId)});
    diagnostics::progress({"Found protocol version: ", Decimal(getProtocolVersion())});
}

}  // namespace com_tesk
