// The host confirms inputs.

#include "comms/CSLockGuard.h"
#include "simulator/MessageLayout.h"
#include "simulator/RecordFields.h"
#include "simulator/SimulatorProtocol.h"

namespace com_tesk {

void SimulatorProtocol::handleSubscribeResponse(const RawMessage& message) {
    using namespace layout::input_confirmation;

    std::vector<CSClient::InputDef> confirmed;
    std::vector<CSClient::Parameter> values;
    {
        const CSLockGuard lock(parameterMutex);
        const unsigned int records = layout::wholeRecords(message.size(), layout::kRecordsOffset, kRecordLength,
                                                          message.getDoubleWord(layout::kCountOffset));
        for (unsigned int i = 0; i < records; ++i) {
            const unsigned int record = layout::kRecordsOffset + i * kRecordLength;
            const unsigned int id = message.getDoubleWord(record + kId);
            std::string name = layout::textAt(message, record + kName, layout::kNameLength);
            const auto found = inputsByName.find(name);
            if (found == inputsByName.end()) {
                continue;
            }
            InputParameterEntry& entry = *found->second;
            // An older id of the input deliberately stays in the table and still names it.
            inputNamesById.insert_or_assign(id, name);
            ++inputNamesVersion;
            entry.serverId = id;
            confirmed.push_back(entry.definition());
            values.emplace_back();
            values.back().name = std::move(name);
            const char* const fields = message.data() + record;
            layout::readValue(fields + kIntegerFlag, fields + kValue, values.back());
        }
    }
    notifyCallbacks([&confirmed, &values](CSClient::CallbackIface& callbackInterface) {
        callbackInterface.inputParametersConfirmed(confirmed);
        callbackInterface.inputParametersUpdated(values);
    });
}

}  // namespace com_tesk
