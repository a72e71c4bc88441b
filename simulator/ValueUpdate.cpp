// Handles the host's update: new values of inputs.

#include "simulator/HostMessages.h"
#include "simulator/SimulatorInside.h"

namespace com_tesk {

void SimulatorProtocol::handleSimulatorUpdate(const RawMessage& message) {
    const wire::ValueUpdates updates(message);
    if (updates.size() == 0) {
        return;
    }
    Parts& engine = inside->parts;
    LastUpdate& update = inside->lastUpdate;
    {
        const ParameterTables::Lock lock(engine.tables, ParameterTables::Order::FIRST);
        InputTable& inputs = engine.tables.inputs();
        update.read(updates, inputs.version(), [&inputs](std::uint32_t id) { return inputs.nameOf(id); });
    }
    if (!update.parameters().empty()) {
        engine.callbacks.notifyFromWorker([&update](CSClient::CallbackIface& callbackInterface) {
            callbackInterface.inputParametersUpdated(update.parameters());
        });
    }
    update.trim();
}

}  // namespace com_tesk
