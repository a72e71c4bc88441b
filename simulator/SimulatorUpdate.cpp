// The host sends new values of inputs.

#include "comms/CSLockGuard.h"
#include "simulator/MessageLayout.h"
#include "simulator/RecordFields.h"
#include "simulator/SimulatorProtocol.h"

namespace com_tesk {

void SimulatorProtocol::handleSimulatorUpdate(const RawMessage& message) {
    using namespace layout::update;

    const unsigned int announced = message.getDoubleWord(kUpdateCountOffset);
    if (announced == 0) {
        return;
    }
    std::vector<CSClient::Parameter> values;
    {
        const CSLockGuard lock(parameterMutex);
        const unsigned int records =
            layout::wholeRecords(message.size(), kUpdateRecordsOffset, kRecordLength, announced);
        for (unsigned int i = 0; i < records; ++i) {
            const unsigned int record = kUpdateRecordsOffset + i * kRecordLength;
            const unsigned int id = message.getDoubleWord(record + kId);
            // The id 0 counts as unknown, deliberately, even if the host has confirmed an input under it.
            const auto found = id == 0 ? inputNamesById.end() : inputNamesById.find(id);
            if (found != inputNamesById.end()) {
                values.push_back(layout::valueAt(message, record + kIntegerFlag, record + kValue, found->second));
            }
        }
    }
    if (values.empty()) {
        return;
    }
    notifyCallbacks(
        [&values](CSClient::CallbackIface& callbackInterface) { callbackInterface.inputParametersUpdated(values); });
}

}  // namespace com_tesk
