// Handles the host's confirmation of inputs.

#include <algorithm>

#include "simulator/HostMessages.h"
#include "simulator/SimulatorInside.h"

namespace com_tesk {

void SimulatorProtocol::handleSubscribeResponse(const RawMessage& message) {
    const wire::InputConfirmations records(message);
    std::vector<CSClient::InputDef> confirmed;
    std::vector<CSClient::Parameter> values;
    Parts& engine = inside->parts;
    {
        const ParameterTables::Lock lock(engine.tables, ParameterTables::Order::FIRST);
        InputTable& inputs = engine.tables.inputs();
        const std::size_t expected = std::min<std::size_t>(records.size(), inputs.size(false));
        confirmed.reserve(expected);
        values.reserve(expected);
        auto hint = inputs.all().begin();
        for (unsigned int i = 0; i < records.size(); ++i) {
            const InputParameterEntry* const entry = inputs.confirm(hint, records.id(i), records.name(i));
            if (entry != nullptr) {
                confirmed.push_back(entry->definition());
                values.emplace_back();
                values.back().name = entry->name;
                records.read(i, values.back());
            }
        }
    }
    engine.callbacks.notifyFromWorker([&confirmed, &values](CSClient::CallbackIface& callbackInterface) {
        callbackInterface.inputParametersConfirmed(confirmed);
        callbackInterface.inputParametersUpdated(values);
    });
}

}  // namespace com_tesk
