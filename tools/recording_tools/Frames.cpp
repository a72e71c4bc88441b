#include "tools/recording_tools/Frames.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "host/Layout.h"
#include "host/Replies.h"

namespace com_tesk::recording {

namespace {

using host::appendText;
using host::appendWord;
using host::Bytes;
namespace layout = host::layout;

constexpr std::uint32_t kInputRate = 0;
constexpr std::uint32_t kOutputRate = 1200;

/// Returns a request up to and including the simulator word. `complete` states its lengths.
Bytes begunRequest(std::uint8_t code, std::uint16_t simulatorId) {
    constexpr std::uint32_t kRequestWord = 0x007F0000;
    Bytes frame;
    appendWord(frame, 0);
    appendWord(frame, layout::kHeaderSize);
    appendWord(frame, layout::kDataFrame);
    appendWord(frame, 0);
    frame.insert(frame.end(), layout::kFillerSize, layout::kFiller);
    appendWord(frame, layout::kProtocolWord);
    appendWord(frame, 0);
    appendWord(frame, kRequestWord | code);
    appendWord(frame, std::uint32_t{simulatorId} << layout::kSimulatorShift);
    return frame;
}

void putLength(Bytes& frame, std::size_t offset, std::size_t length) {
    Bytes word;
    appendWord(word, static_cast<std::uint32_t>(length));
    std::copy(word.begin(), word.end(), frame.begin() + static_cast<std::ptrdiff_t>(offset));
}

Bytes complete(Bytes frame) {
    putLength(frame, layout::kFrameLengthOffset, frame.size());
    putLength(frame, layout::kHeaderSize + layout::kBodyLengthOffset, frame.size() - layout::kHeaderSize);
    return frame;
}

void appendCount(Bytes& frame, std::size_t count) {
    appendWord(frame, static_cast<std::uint32_t>(count));
}

Bytes versionReply(const Version& version) {
    Bytes frame = host::encodeVersionReply(version.simulatorId, version.text, version.protocolVersion);
    putLength(frame, frame.size() - sizeof version.status, version.status);
    return frame;
}

}  // namespace

std::uint32_t Frames::confirmedId(const Parameter& parameter, Ids& ids) {
    std::uint32_t& id = ids[parameter.name];
    if (parameter.id != 0) {
        id = parameter.id;
    } else if (id == 0) {
        id = lastId + 1;
    }
    lastId = std::max(lastId, id);
    return id;
}

std::uint32_t Frames::idOf(const NamedValue& value, const Ids& ids) {
    if (value.name.empty()) {
        return value.id;
    }
    const auto found = ids.find(value.name);
    return found == ids.end() ? layout::kUnconfirmedId : found->second;
}

Bytes Frames::versionRequest() const {
    Bytes frame = begunRequest(layout::kVersion, simulatorId);
    appendWord(frame, 0);
    return complete(std::move(frame));
}

Bytes Frames::registration(const Registration& registration) const {
    const bool areInputs = registration.direction == Direction::INPUTS;
    Bytes frame = begunRequest(areInputs ? layout::kSubscribeInputs : layout::kRegisterOutputs, simulatorId);
    appendCount(frame, registration.parameters.size());
    for (const Parameter& parameter : registration.parameters) {
        appendWord(frame, areInputs ? kInputRate : kOutputRate);
        if (areInputs) {
            appendWord(frame, kInputRate);
        }
        appendWord(frame, parameter.isInteger ? 1 : 0);
        appendText(frame, parameter.name, layout::kNameSize);
    }
    return complete(std::move(frame));
}

Bytes Frames::confirmation(const Confirmation& confirmation) {
    Ids& ids = idsOf(confirmation.direction);
    if (confirmation.direction == Direction::INPUTS) {
        std::vector<host::InputConfirmation> records;
        for (const Parameter& parameter : confirmation.parameters) {
            records.push_back({confirmedId(parameter, ids), kInputRate, kInputRate, parameter.value, parameter.name});
        }
        return host::encodeInputsReply(simulatorId, records);
    }
    std::vector<host::OutputConfirmation> records;
    for (const Parameter& parameter : confirmation.parameters) {
        records.push_back({confirmedId(parameter, ids), kOutputRate, parameter.isInteger ? 1U : 0U, parameter.name});
    }
    return host::encodeOutputsReply(simulatorId, records);
}

Bytes Frames::unregistration(const Unregistration& unregistration) {
    const bool areInputs = unregistration.direction == Direction::INPUTS;
    Ids& ids = idsOf(unregistration.direction);
    std::vector<std::uint32_t> known;
    for (const std::string& name : unregistration.names) {
        if (const auto found = ids.find(name); found != ids.end()) {
            known.push_back(found->second);
            ids.erase(found);
        }
    }
    Bytes frame = begunRequest(areInputs ? layout::kUnsubscribeInputs : layout::kUnregisterOutputs, simulatorId);
    appendCount(frame, known.size());
    for (const std::uint32_t id : known) {
        appendWord(frame, id);
    }
    return complete(std::move(frame));
}

Bytes Frames::publication(const Publication& publication) const {
    Bytes frame = begunRequest(layout::kPublish, simulatorId);
    appendWord(frame, 0);
    appendCount(frame, publication.values.size());
    for (const NamedValue& value : publication.values) {
        appendWord(frame, idOf(value, outputs));
        appendWord(frame, value.value.isInteger() ? 1 : 0);
        appendWord(frame, value.value.bits());
    }
    return complete(std::move(frame));
}

Bytes Frames::update(const Update& update) const {
    std::vector<host::InputUpdate> records;
    records.reserve(update.values.size());
    for (const NamedValue& value : update.values) {
        records.push_back({idOf(value, inputs), value.value});
    }
    return host::encodeUpdate(simulatorId, records);
}

std::optional<Sent> Frames::of(const Entry& entry) {
    if (const auto* const request = std::get_if<VersionRequest>(&entry.content)) {
        simulatorId = request->simulatorId;
        return Sent{Side::CLIENT, versionRequest()};
    }
    if (const auto* const version = std::get_if<Version>(&entry.content)) {
        simulatorId = version->simulatorId;
        return Sent{Side::HOST, versionReply(*version)};
    }
    if (const auto* const request = std::get_if<Registration>(&entry.content)) {
        return Sent{Side::CLIENT, registration(*request)};
    }
    if (const auto* const reply = std::get_if<Confirmation>(&entry.content)) {
        return Sent{Side::HOST, confirmation(*reply)};
    }
    if (const auto* const request = std::get_if<Unregistration>(&entry.content)) {
        return Sent{Side::CLIENT, unregistration(*request)};
    }
    if (const auto* const values = std::get_if<Publication>(&entry.content)) {
        return Sent{Side::CLIENT, publication(*values)};
    }
    if (const auto* const values = std::get_if<Update>(&entry.content)) {
        return Sent{Side::HOST, update(*values)};
    }
    return std::nullopt;
}

}  // namespace com_tesk::recording
