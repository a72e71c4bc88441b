#include "host/scenario/FrameEditor.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "host/Layout.h"
#include "host/scenario/Numbers.h"

namespace com_tesk::scenario {

using namespace host::layout;

namespace {

constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();

/// Where the records of a message are, and their fields.
struct Shape {
    std::size_t count = kNone;
    std::size_t first = 0;
    std::size_t size = 0;
    std::size_t id = kNone;
    std::size_t name = kNone;
    std::size_t flag = kNone;
    std::size_t value = kNone;
};

Shape shapeOf(Message message) {
    switch (message) {
        case Message::REGISTER_INPUTS:
            return {kCountOffset,      kRecordsOffset, kInputRequestSize, kNone, kInputRequestName,
                    kInputRequestFlag, kNone};
        case Message::REGISTER_OUTPUTS:
            return {kCountOffset,       kRecordsOffset, kOutputRequestSize, kNone, kOutputRequestName,
                    kOutputRequestFlag, kNone};
        case Message::PUBLISH:
        case Message::UPDATE:
            return {kPublishCountOffset, kPublishRecordsOffset, kValueRecordSize, kValueRecordId, kNone,
                    kValueRecordFlag,    kValueRecordValue};
        case Message::UNREGISTER_INPUTS:
        case Message::UNREGISTER_OUTPUTS:
            return {kCountOffset, kRecordsOffset, kIdRecordSize, 0, kNone, kNone, kNone};
        case Message::INPUTS_CONFIRMED:
            return {kCountOffset,    kRecordsOffset,  kInputReplySize, 0,
                    kInputReplyName, kInputReplyFlag, kInputReplyValue};
        case Message::OUTPUTS_CONFIRMED:
            return {kCountOffset, kRecordsOffset, kOutputReplySize, 0, kOutputReplyName, kOutputReplyFlag, kNone};
        case Message::ANY:
        case Message::ASK_VERSION:
        case Message::VERSION:
            return {};
    }
    return {};
}

void setWord(Bytes& bytes, std::size_t offset, std::uint32_t word) {
    if (offset + 4 <= bytes.size()) {
        Bytes four;
        host::appendWord(four, word);
        std::copy(four.begin(), four.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset));
    }
}

/// Returns the number of records that are there.
std::size_t countIn(std::size_t bodySize, const Shape& shape) {
    return shape.count == kNone || bodySize < shape.first ? 0 : (bodySize - shape.first) / shape.size;
}

/// A fault before this one may have cut the frame, also in its header.
std::size_t countIn(const Bytes& frame, const Shape& shape) {
    return frame.size() < kHeaderSize ? 0 : countIn(frame.size() - kHeaderSize, shape);
}

/// Calls `change` with the offset in the frame of each selected record.
template <typename Change>
void forSelected(Bytes& frame, const Shape& shape, const Selected& selected, const Change& change) {
    const std::size_t count = countIn(frame, shape);
    for (std::size_t i = 0; i < count && i < selected.size(); ++i) {
        if (selected[i]) {
            change(kHeaderSize + shape.first + i * shape.size);
        }
    }
}

}  // namespace

std::optional<Message> messageOf(const Bytes& body, bool isSentByHost) {
    if (body.size() < kSubHeaderSize) {
        return std::nullopt;
    }
    const std::uint8_t flag = body[kFlagOffset];
    const std::uint8_t code = body[kCodeOffset];
    if (isSentByHost) {
        if (flag == kRequestFlag) {
            return code == kPublish ? std::optional(Message::UPDATE) : std::nullopt;
        }
        switch (code) {
            case kSubscribeInputs:
                return Message::INPUTS_CONFIRMED;
            case kRegisterOutputs:
                return Message::OUTPUTS_CONFIRMED;
            case kVersion:
                return Message::VERSION;
            default:
                return std::nullopt;
        }
    }
    switch (code) {
        case kSubscribeInputs:
            return Message::REGISTER_INPUTS;
        case kRegisterOutputs:
            return Message::REGISTER_OUTPUTS;
        case kPublish:
            return Message::PUBLISH;
        case kUnsubscribeInputs:
            return Message::UNREGISTER_INPUTS;
        case kUnregisterOutputs:
            return Message::UNREGISTER_OUTPUTS;
        case kVersion:
            return Message::ASK_VERSION;
        default:
            return std::nullopt;
    }
}

std::vector<Record> recordsOf(const Bytes& body, Message message) {
    const Shape shape = shapeOf(message);
    std::vector<Record> records(countIn(body.size(), shape));
    for (std::size_t i = 0; i < records.size(); ++i) {
        const std::size_t at = shape.first + i * shape.size;
        if (shape.id != kNone) {
            records[i].id = host::wordAt(body, at + shape.id);
        }
        if (shape.name != kNone) {
            records[i].name = host::textAt(body, at + shape.name, kNameSize);
        }
    }
    return records;
}

Bytes bodyOf(const Bytes& frame) {
    return {frame.begin() + static_cast<std::ptrdiff_t>(std::min(kHeaderSize, frame.size())), frame.end()};
}

void changeIds(Bytes& frame, Message message, const Selected& selected, std::int64_t by) {
    const Shape shape = shapeOf(message);
    if (shape.id != kNone) {
        forSelected(frame, shape, selected, [&](std::size_t record) {
            const std::uint32_t id = host::wordAt(frame, record + shape.id);
            setWord(frame, record + shape.id, static_cast<std::uint32_t>(static_cast<std::int64_t>(id) + by));
        });
    }
}

void changeValues(Bytes& frame, Message message, const Selected& selected, double to) {
    const Shape shape = shapeOf(message);
    if (shape.value != kNone) {
        forSelected(frame, shape, selected, [&](std::size_t record) {
            const bool isInteger = host::wordAt(frame, record + shape.flag) != 0;
            setWord(frame, record + shape.value, hostValueOf(to, isInteger).bits());
        });
    }
}

void changeTypes(Bytes& frame, Message message, const Selected& selected, bool toInteger) {
    const Shape shape = shapeOf(message);
    if (shape.flag == kNone) {
        return;
    }
    forSelected(frame, shape, selected, [&](std::size_t record) {
        const bool isInteger = host::wordAt(frame, record + shape.flag) != 0;
        setWord(frame, record + shape.flag, toInteger ? 1 : 0);
        if (shape.value != kNone) {
            const HostValue value = HostValue::fromBits(host::wordAt(frame, record + shape.value), isInteger);
            setWord(frame, record + shape.value, hostValueOf(numberOf(value), toInteger).bits());
        }
    });
}

bool keepRecords(Bytes& frame, Message message, const Selected& selected) {
    const Shape shape = shapeOf(message);
    const std::size_t count = countIn(frame, shape);
    if (frame.size() < kHeaderSize + shape.first) {
        return true;  // No record has to be removed.
    }
    Bytes kept(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(kHeaderSize + shape.first));
    std::uint32_t left = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (i < selected.size() && selected[i]) {
            const auto record = frame.begin() + static_cast<std::ptrdiff_t>(kHeaderSize + shape.first + i * shape.size);
            kept.insert(kept.end(), record, record + static_cast<std::ptrdiff_t>(shape.size));
            ++left;
        }
    }
    frame = std::move(kept);
    setFrameLength(frame, static_cast<std::uint32_t>(frame.size()));
    setWord(frame, kHeaderSize + kBodyLengthOffset, static_cast<std::uint32_t>(frame.size() - kHeaderSize));
    setRecordCount(frame, message, left);
    return left != 0;
}

void setFrameLength(Bytes& frame, std::uint32_t length) {
    setWord(frame, kFrameLengthOffset, length);
}

void setRecordCount(Bytes& frame, Message message, std::uint32_t count) {
    const Shape shape = shapeOf(message);
    if (shape.count != kNone) {
        setWord(frame, kHeaderSize + shape.count, count);
    }
}

void setSimulatorId(Bytes& frame, std::uint16_t id) {
    const std::size_t offset = kHeaderSize + kSimulatorOffset;
    if (offset + 4 <= frame.size()) {
        setWord(frame, offset, (host::wordAt(frame, offset) & 0xFFFFU) | std::uint32_t{id} << kSimulatorShift);
    }
}

}  // namespace com_tesk::scenario
