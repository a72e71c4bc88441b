// The host confirms outputs.

#include <algorithm>

#include "comms/Diagnostics.h"
#include "engine/EngineLocks.h"
#include "engine/RegistrationBatch.h"
#include "simulator/MessageLayout.h"
#include "simulator/RecordFields.h"
#include "simulator/SimulatorProtocol.h"

namespace com_tesk {

using diagnostics::Decimal;

void SimulatorProtocol::handlePublishResponse(const RawMessage& message) {
    using namespace layout::output_confirmation;

    std::vector<CSClient::OutputDef> confirmed;
    std::vector<std::string> published;
    {
        const WorkerParameterLock lock(*this);
        const unsigned int records = layout::wholeRecords(message.size(), layout::kRecordsOffset, kRecordLength,
                                                          message.getDoubleWord(layout::kCountOffset));
        confirmed.reserve(std::min<std::size_t>(records, outputsByName.size()));
        auto guess = outputsByName.begin();
        for (unsigned int i = 0; i < records; ++i) {
            const unsigned int record = layout::kRecordsOffset + i * kRecordLength;
            const unsigned int id = message.getDoubleWord(record + kId);
            const std::string_view name = layout::textAt(message, record + kName, layout::kNameLength);
            const auto found = registration::findNear(guess, name, outputsByName);
            if (found == outputsByName.end()) {
                if (!isSilent()) {
                    // Deliberately no blank before the parenthesis.
                    diagnostics::error({"Parameter not found: ", name, "(", Decimal(id), ")"});
                }
                continue;
            }
            guess = std::next(found);
            OutputParameterEntry& entry = *found->second;
            // An older id of the output deliberately stays in the table. Ids mostly come in ascending order.
            outputsById.insert_or_assign(outputsById.end(), id, &entry);
            entry.serverId = id;
            confirmed.push_back(entry.definition());
            if (entry.published) {
                published.push_back(entry.name);
            }
        }
    }
    notifyFromWorker([&confirmed](CSClient::CallbackIface& callbackInterface) {
        callbackInterface.outputParametersConfirmed(confirmed);
    });
    publishAgain(published);
}

void SimulatorProtocol::publishAgain(const std::vector<std::string>& names) {
    if (names.empty()) {
        return;
    }
    underParameterLock([&]() CSCLIENT_REQUIRES(parameterMutex) {
        std::vector<OutputParameterEntry*> batch;
        batch.reserve(names.size());
        for (const std::string& name : names) {
            // Looked up anew: a callback may have unregistered it.
            const auto found = outputsByName.find(name);
            if (found != outputsByName.end() && found->second->published) {
                batch.push_back(found->second);
            }
        }
        return sendParameterPublishRequest(batch, PUBLISH_DEFAULT);
    });
}

}  // namespace com_tesk
