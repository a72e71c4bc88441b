// Handles the host's confirmation of outputs.

#include <algorithm>

#include "comms/Diagnostics.h"
#include "simulator/HostMessages.h"
#include "simulator/SimulatorInside.h"

namespace com_tesk {

using diagnostics::Decimal;

void SimulatorProtocol::handlePublishResponse(const RawMessage& message) {
    const wire::OutputConfirmations records(message);
    std::vector<CSClient::OutputDef> confirmed;
    std::vector<std::string> published;
    Parts& engine = inside->parts;
    {
        const ParameterTables::Lock lock(engine.tables, ParameterTables::Order::FIRST);
        OutputTable& outputs = engine.tables.outputs();
        confirmed.reserve(std::min<std::size_t>(records.size(), outputs.size(false)));
        auto hint = outputs.all().begin();
        for (unsigned int i = 0; i < records.size(); ++i) {
            const OutputParameterEntry* const entry = outputs.confirm(hint, records.id(i), records.name(i));
            if (entry == nullptr) {
                if (!engine.isSilent()) {
                    // Intended: no blank before the parenthesis. Programs match this line.
                    diagnostics::error({"Parameter not found: ", records.name(i), "(", Decimal(records.id(i)), ")"});
                }
                continue;
            }
            confirmed.push_back(entry->definition());
            if (entry->published) {
                published.push_back(entry->name);
            }
        }
    }
    engine.callbacks.notifyFromWorker([&confirmed](CSClient::CallbackIface& callbackInterface) {
        callbackInterface.outputParametersConfirmed(confirmed);
    });
    if (!published.empty()) {
        inside->publishAgain(*this, published);
    }
}

void SimulatorProtocol::Inside::publishAgain(SimulatorProtocol& protocol, const std::vector<std::string>& names) {
    ParameterTables& tables = parts.tables;
    parts.underParameterLock([&]() CSCLIENT_REQUIRES(tables.mutex()) {
        std::vector<OutputParameterEntry*> batch;
        batch.reserve(names.size());
        for (const std::string& name : names) {
            // Search again: a callback may have unregistered the output.
            OutputParameterEntry* const entry = tables.outputs().all().find(name);
            if (entry != nullptr && entry->published) {
                batch.push_back(entry);
            }
        }
        return protocol.sendParameterPublishRequest(batch, PUBLISH_DEFAULT);
    });
}

}  // namespace com_tesk
