// Handles the host's report of its version.

#include "comms/Diagnostics.h"
#include "simulator/HostMessages.h"
#include "simulator/SimulatorInside.h"

namespace com_tesk {

using diagnostics::Decimal;

void SimulatorProtocol::handleSimulatorVersionResponse(const RawMessage& message) {
    const wire::VersionReport report(message);
    if (!report.isAccepted()) {
        return;
    }
    Parts& engine = inside->parts;
    const std::string text(report.text());
    engine.host.storeText(text);

    const std::uint32_t announcedId = report.simulatorId();
    if (announcedId != inside->simulatorId) {
        // Intended: printed in silent mode, too. Under a new id the host treats the client as another one.
        diagnostics::progress({"Simulator ID is now ", Decimal(announcedId), " -> reconnecting under the new id"});
        // `setSimulatorId` ignores an id out of range and prints no line. Everything is then registered again under
        // the old id.
        setSimulatorId(announcedId);
        reregisterAllInputParameters();
        reregisterAllOutputParameters();
    }
    engine.host.storeProtocol(report.protocolVersion());
    if (engine.isSilent()) {
        return;
    }
    diagnostics::progress({"Found server version: ", text});
    diagnostics::progress({"Found simulator id: ", Decimal(announcedId)});
    diagnostics::progress({"Found protocol version: ", Decimal(getProtocolVersion())});
}

}  // namespace com_tesk
