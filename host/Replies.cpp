#include "host/Replies.h"

#include "host/Layout.h"

namespace com_tesk::host {

using namespace layout;

namespace {

/// Returns a frame up to and including the simulator word. The caller appends the rest of the body. A reply is at most
/// a few times as long as its request, so all lengths stay far below 4 GiB.
Bytes beginFrame(std::size_t bodySize, std::uint32_t codeWord, std::uint16_t simulatorId) {
    Bytes frame;
    frame.reserve(kHeaderSize + bodySize);
    appendWord(frame, static_cast<std::uint32_t>(kHeaderSize + bodySize));
    appendWord(frame, static_cast<std::uint32_t>(kHeaderSize));
    appendWord(frame, kDataFrame);
    appendWord(frame, 0);  // sub-kind
    frame.insert(frame.end(), kFillerSize, kFiller);
    appendWord(frame, kProtocolWord);
    appendWord(frame, static_cast<std::uint32_t>(bodySize));
    appendWord(frame, codeWord);
    appendWord(frame, std::uint32_t{simulatorId} << kSimulatorShift);
    return frame;
}

void appendValue(Bytes& frame, const HostValue& value) {
    appendWord(frame, value.isInteger() ? 1 : 0);
    appendWord(frame, value.bits());
}

}  // namespace

Bytes encodeVersionReply(std::uint16_t simulatorId, std::string_view versionText, std::uint32_t protocolVersion) {
    Bytes frame = beginFrame(kVersionReplySize, kReplyWord | kVersion, simulatorId);
    appendText(frame, versionText, kVersionTextSize);
    appendWord(frame, protocolVersion);
    appendWord(frame, kVersionAccepted);
    return frame;
}

Bytes encodeInputsReply(std::uint16_t simulatorId, const std::vector<InputConfirmation>& inputs) {
    Bytes frame =
        beginFrame(kRecordsOffset + kInputReplySize * inputs.size(), kReplyWord | kSubscribeInputs, simulatorId);
    appendWord(frame, static_cast<std::uint32_t>(inputs.size()));
    for (const InputConfirmation& input : inputs) {
        appendWord(frame, input.id);
        appendWord(frame, input.rate);
        appendWord(frame, input.secondRate);
        appendValue(frame, input.value);
        appendText(frame, input.name, kNameSize);
    }
    return frame;
}

Bytes encodeOutputsReply(std::uint16_t simulatorId, const std::vector<OutputConfirmation>& outputs) {
    Bytes frame =
        beginFrame(kRecordsOffset + kOutputReplySize * outputs.size(), kReplyWord | kRegisterOutputs, simulatorId);
    appendWord(frame, static_cast<std::uint32_t>(outputs.size()));
    for (const OutputConfirmation& output : outputs) {
        appendWord(frame, output.id);
        appendWord(frame, output.rate);
        appendWord(frame, output.integerFlag);
        appendWord(frame, 0);
        appendText(frame, output.name, kNameSize);
    }
    return frame;
}

Bytes encodeUpdate(std::uint16_t simulatorId, const std::vector<InputUpdate>& updates) {
    Bytes frame = beginFrame(kPublishRecordsOffset + kValueRecordSize * updates.size(), kUpdateWord, simulatorId);
    appendWord(frame, 0);
    appendWord(frame, static_cast<std::uint32_t>(updates.size()));
    for (const InputUpdate& update : updates) {
        appendWord(frame, update.id);
        appendValue(frame, update.value);
    }
    return frame;
}

}  // namespace com_tesk::host
