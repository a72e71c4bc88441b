// The host sends new values of inputs.

#include "engine/EngineLocks.h"
#include "message/BigEndian.h"
#include "simulator/MessageLayout.h"
#include "simulator/RecordFields.h"
#include "simulator/SimulatorProtocol.h"

namespace com_tesk {

using namespace layout::update;

namespace {

/// What one huge update has needed is not kept for ever.
constexpr std::size_t kMostKept = 4'096;

const char* recordAt(const char* first, std::size_t index) {
    return first + index * kRecordLength;
}

std::uint32_t idAt(const char* first, std::size_t index) {
    return big_endian::wordAt(recordAt(first, index) + kId);
}

void readValueAt(const char* first, std::size_t index, CSClient::Parameter& parameter) {
    const char* const record = recordAt(first, index);
    layout::readValue(record + kIntegerFlag, record + kValue, parameter);
}

}  // namespace

void SimulatorProtocol::handleSimulatorUpdate(const RawMessage& message) {
    if (message.size() < kUpdateRecordsOffset) {
        return;
    }
    const std::uint32_t announced = big_endian::wordAt(message.data() + kUpdateCountOffset);
    const unsigned int records = layout::wholeRecords(message.size(), kUpdateRecordsOffset, kRecordLength, announced);
    if (records == 0) {
        return;
    }
    const char* const first = message.data() + kUpdateRecordsOffset;
    {
        const WorkerParameterLock lock(*this);
        if (isLastUpdateAgain(first, records)) {
            for (unsigned int i = 0; i < records; ++i) {
                readValueAt(first, i, updateValues[i]);
            }
        } else {
            readNewUpdate(first, records);
        }
    }
    if (!updateValues.empty()) {
        notifyFromWorker([this](CSClient::CallbackIface& callbackInterface) {
            callbackInterface.inputParametersUpdated(updateValues);
        });
    }
    if (records > kMostKept) {
        forgetUpdate();
    }
}

void SimulatorProtocol::forgetUpdate() {
    std::vector<std::uint32_t>().swap(updateIds);
    std::vector<CSClient::Parameter>().swap(updateValues);
}

bool SimulatorProtocol::isLastUpdateAgain(const char* first, unsigned int records) const {
    if (!isUpdateKept || updateNamesVersion != inputNamesVersion || records != updateIds.size() ||
        records != updateValues.size()) {
        return false;
    }
    for (unsigned int i = 0; i < records; ++i) {
        if (idAt(first, i) != updateIds[i]) {
            return false;
        }
    }
    return true;
}

void SimulatorProtocol::readNewUpdate(const char* first, unsigned int records) {
    // Until the end, so that a lack of memory on the way leaves nothing that looks like an update.
    isUpdateKept = false;
    updateIds.resize(records);
    std::size_t known = 0;
    for (unsigned int i = 0; i < records; ++i) {
        const std::uint32_t id = idAt(first, i);
        updateIds[i] = id;
        // The id 0 counts as unknown, deliberately, even if the host has confirmed an input under it.
        const std::string* const name = id == 0 ? nullptr : findInputName(id);
        if (name != nullptr) {
            if (known == updateValues.size()) {
                updateValues.emplace_back();
            }
            updateValues[known].name = *name;
            readValueAt(first, i, updateValues[known]);
            ++known;
        }
    }
    updateValues.resize(known);
    updateNamesVersion = inputNamesVersion;
    isUpdateKept = true;
}

}  // namespace com_tesk
