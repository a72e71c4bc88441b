#include "tools/recording/Decoder.h"

#include <algorithm>
#include <utility>

#include "host/Layout.h"

namespace com_tesk::recording {

using namespace host::layout;
using host::Bytes;
using host::wordAt;

namespace {

std::uint16_t simulatorIdOf(const Bytes& body) {
    return static_cast<std::uint16_t>(wordAt(body, kSimulatorOffset) >> kSimulatorShift);
}

/// Returns the offsets of the records: as many as the count says, and never more than there are.
std::vector<std::size_t> recordsIn(const Bytes& body, std::size_t first, std::size_t size) {
    std::vector<std::size_t> offsets;
    if (body.size() >= first) {
        const std::size_t count = std::min<std::size_t>(wordAt(body, first - 4), (body.size() - first) / size);
        for (std::size_t i = 0; i < count; ++i) {
            offsets.push_back(first + i * size);
        }
    }
    return offsets;
}

}  // namespace

std::vector<Content> Decoder::feed(Side side, const std::uint8_t* data, std::size_t size) {
    Stream& stream = streams.at(side == Side::CLIENT ? 0 : 1);
    std::vector<Content> contents;
    if (stream.isUnreadable) {
        return contents;
    }
    for (const host::Frame& frame : stream.reader.feed(data, size)) {
        if (frame.kind != kDataFrame) {
            contents.emplace_back(Unreadable{side, "a frame of kind " + std::to_string(frame.kind)});
        } else {
            contents.push_back(side == Side::CLIENT ? clientMessage(frame.body) : hostMessage(frame.body));
        }
    }
    if (!stream.reader.error().empty()) {
        stream.isUnreadable = true;
        contents.emplace_back(Unreadable{side, "no frames from here on: " + stream.reader.error()});
    }
    return contents;
}

Content Decoder::clientMessage(const Bytes& body) {
    return std::visit([&](const auto& request) { return this->entryFor(request, body); }, host::parseRequest(body));
}

Content Decoder::entryFor(const host::VersionRequest& request, const Bytes& /*body*/) {
    return VersionRequest{request.simulatorId};
}

Content Decoder::entryFor(const host::SubscribeInputs& request, const Bytes& /*body*/) {
    Registration registration{Direction::INPUTS, {}};
    for (const auto& input : request.inputs) {
        registration.parameters.push_back({input.name, input.isInteger});
    }
    return registration;
}

Content Decoder::entryFor(const host::RegisterOutputs& request, const Bytes& /*body*/) {
    Registration registration{Direction::OUTPUTS, {}};
    for (const auto& output : request.outputs) {
        outputTypes[output.name] = output.integerFlag != 0;
        registration.parameters.push_back({output.name, output.integerFlag != 0});
    }
    return registration;
}

Content Decoder::entryFor(const host::UnsubscribeInputs& request, const Bytes& /*body*/) {
    Unregistration unregistration{Direction::INPUTS, {}};
    for (const std::uint32_t id : request.ids) {
        if (const auto name = inputNames.find(id); name != inputNames.end()) {
            unregistration.names.push_back(name->second);
        }
    }
    return unregistration;
}

Content Decoder::entryFor(const host::UnregisterOutputs& request, const Bytes& /*body*/) {
    Unregistration unregistration{Direction::OUTPUTS, {}};
    for (const std::uint32_t id : request.ids) {
        if (const auto output = outputs.find(id); output != outputs.end()) {
            unregistration.names.push_back(output->second.name);
        }
    }
    return unregistration;
}

Content Decoder::entryFor(const host::Publish& request, const Bytes& body) {
    Publication publication;
    publication.values.reserve(request.values.size());
    for (const std::size_t record : recordsIn(body, kPublishRecordsOffset, kValueRecordSize)) {
        const std::uint32_t id = wordAt(body, record + kValueRecordId);
        const auto output = outputs.find(id);
        const bool isKnown = output != outputs.end();
        const bool isInteger = isKnown ? output->second.isInteger : wordAt(body, record + kValueRecordFlag) != 0;
        const HostValue value = HostValue::fromBits(wordAt(body, record + kValueRecordValue), isInteger);
        publication.values.push_back(isKnown ? namedValue(output->second.name, id, value) : NamedValue{"", id, value});
    }
    return publication;
}

Content Decoder::entryFor(const host::BadRequest& request, const Bytes& /*body*/) {
    return Unreadable{Side::CLIENT, request.why};
}

Content Decoder::hostMessage(const Bytes& body) {
    if (body.size() < kSimulatorOffset + 4) {
        return Unreadable{Side::HOST, "body of " + std::to_string(body.size()) + " bytes is too short"};
    }
    const std::uint8_t flag = body[kFlagOffset];
    const std::uint8_t code = body[kCodeOffset];
    if (body[kProtocolOffset] == kProtocol && body[kSubprotocolOffset] == kSubprotocol) {
        if (flag == kRequestFlag && code == kPublish) {
            return update(body);
        }
        if (flag != kRequestFlag && code == kSubscribeInputs) {
            return inputsConfirmed(body);
        }
        if (flag != kRequestFlag && code == kRegisterOutputs) {
            return outputsConfirmed(body);
        }
        if (flag != kRequestFlag && code == kVersion && body.size() >= kVersionReplySize) {
            constexpr std::size_t kTextOffset = kSimulatorOffset + 4;
            constexpr std::size_t kProtocolVersionOffset = kTextOffset + kVersionTextSize;
            return Version{host::textAt(body, kTextOffset, kVersionTextSize), wordAt(body, kProtocolVersionOffset),
                           simulatorIdOf(body), wordAt(body, kProtocolVersionOffset + 4)};
        }
    }
    return Unreadable{Side::HOST, "unknown message: protocol bytes " + std::to_string(body[kProtocolOffset]) + ' ' +
                                      std::to_string(body[kSubprotocolOffset]) + ", flag " + std::to_string(flag) +
                                      ", code " + std::to_string(code) + ", " + std::to_string(body.size()) + " bytes"};
}

Content Decoder::inputsConfirmed(const Bytes& body) {
    Confirmation confirmation{Direction::INPUTS, {}};
    for (const std::size_t record : recordsIn(body, kRecordsOffset, kInputReplySize)) {
        const bool isInteger = wordAt(body, record + kInputReplyFlag) != 0;
        Parameter input{host::textAt(body, record + kInputReplyName, kNameSize), isInteger, wordAt(body, record),
                        HostValue::fromBits(wordAt(body, record + kInputReplyValue), isInteger)};
        inputNames[input.id] = input.name;
        confirmation.parameters.push_back(std::move(input));
    }
    return confirmation;
}

Content Decoder::outputsConfirmed(const Bytes& body) {
    Confirmation confirmation{Direction::OUTPUTS, {}};
    for (const std::size_t record : recordsIn(body, kRecordsOffset, kOutputReplySize)) {
        Parameter output{host::textAt(body, record + kOutputReplyName, kNameSize), false, wordAt(body, record)};
        // Hosts need not repeat the type, so that of the registration is taken.
        const auto type = outputTypes.find(output.name);
        output.isInteger = type == outputTypes.end() ? wordAt(body, record + kOutputReplyFlag) != 0 : type->second;
        outputs[output.id] = output;
        confirmation.parameters.push_back(std::move(output));
    }
    return confirmation;
}

Content Decoder::update(const Bytes& body) const {
    Update update;
    const std::vector<std::size_t> records = recordsIn(body, kPublishRecordsOffset, kValueRecordSize);
    update.values.reserve(records.size());
    for (const std::size_t record : records) {
        const std::uint32_t id = wordAt(body, record + kValueRecordId);
        const bool isInteger = wordAt(body, record + kValueRecordFlag) != 0;
        const HostValue value = HostValue::fromBits(wordAt(body, record + kValueRecordValue), isInteger);
        const auto name = inputNames.find(id);
        update.values.push_back(name != inputNames.end() ? namedValue(name->second, id, value)
                                                         : NamedValue{"", id, value});
    }
    return update;
}

NamedValue Decoder::namedValue(const std::string& name, std::uint32_t id, HostValue value) {
    return name.empty() ? NamedValue{"", id, value} : NamedValue{name, 0, value};
}

}  // namespace com_tesk::recording
