// The host confirms inputs.

#include <algorithm>

#include "engine/EngineLocks.h"
#include "engine/RegistrationBatch.h"
#include "simulator/MessageLayout.h"
#include "simulator/RecordFields.h"
#include "simulator/SimulatorProtocol.h"

namespace com_tesk {

void SimulatorProtocol::handleSubscribeResponse(const RawMessage& message) {
    using namespace layout::input_confirmation;

    std::vector<CSClient::InputDef> confirmed;
    std::vector<CSClient::Parameter> values;
    {
        const WorkerParameterLock lock(*this);
        const unsigned int records = layout::wholeRecords(message.size(), layout::kRecordsOffset, kRecordLength,
                                                          message.getDoubleWord(layout::kCountOffset));
        const std::size_t expected = std::min<std::size_t>(records, inputsByName.size());
        confirmed.reserve(expected);
        values.reserve(expected);
        inputNamesChange();
        auto guess = inputsByName.begin();
        for (unsigned int i = 0; i < records; ++i) {
            const unsigned int record = layout::kRecordsOffset + i * kRecordLength;
            const unsigned int id = message.getDoubleWord(record + kId);
            const auto found = registration::findNear(
                guess, layout::textAt(message, record + kName, layout::kNameLength), inputsByName);
            if (found == inputsByName.end()) {
                continue;
            }
            guess = std::next(found);
            InputParameterEntry& entry = *found->second;
            // An older id of the input deliberately stays in the table and still names it. Ids mostly come in ascending
            // order.
            inputNamesById.insert_or_assign(inputNamesById.end(), id, entry.name);
            entry.serverId = id;
            confirmed.push_back(entry.definition());
            values.emplace_back();
            values.back().name = entry.name;
            const char* const fields = message.data() + record;
            layout::readValue(fields + kIntegerFlag, fields + kValue, values.back());
        }
    }
    notifyFromWorker([&confirmed, &values](CSClient::CallbackIface& callbackInterface) {
        callbackInterface.inputParametersConfirmed(confirmed);
        callbackInterface.inputParametersUpdated(values);
    });
}

}  // namespace com_tesk
