#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "client/CSClient.h"
#include "message/BigEndian.h"
#include "message/RawMessage.h"
#include "simulator/MessageLayout.h"

/// What a host sends: views over the bytes of a message, which must outlive them. A view has only the records that fit
/// the message whole, whatever count the host announces.
namespace com_tesk::wire {

/// A value with its type, as two words tell it.
inline void readValue(const char* flag, const char* bits, CSClient::Parameter& parameter) {
    const std::uint32_t word = big_endian::wordAt(bits);
    parameter.type = big_endian::wordAt(flag) != 0 ? CSClient::TYPE_INT : CSClient::TYPE_FLOAT;
    std::memcpy(&parameter.value, &word, sizeof word);
}

/// The text of a zero-padded field: up to its first zero byte, or all of it.
inline std::string_view textAt(const char* field, std::size_t fieldLength) {
    return {field, strnlen(field, fieldLength)};
}

/// The message code; 0 for what is no message of this protocol.
inline std::uint32_t messageCode(const RawMessage& message) {
    constexpr unsigned int kProtocols = layout::kProtocol << 8U | layout::kSubprotocol;
    if (message.size() < layout::kSubHeaderLength || big_endian::halfWordAt(message.data()) != kProtocols) {
        return 0;
    }
    return big_endian::halfWordAt(message.data() + layout::kMessageCodeOffset);
}

/// Records of one length.
class Records {
  public:
    Records(const RawMessage& message, std::size_t countOffset, std::size_t recordsOffset, std::size_t recordLength)
        : length(recordLength) {
        if (message.size() >= recordsOffset) {
            first = message.data() + recordsOffset;
            count = layout::wholeRecords(message.size(), recordsOffset, recordLength,
                                         big_endian::wordAt(message.data() + countOffset));
        }
    }

    unsigned int size() const { return count; }

  protected:
    const char* at(std::size_t index) const { return first + index * length; }

  private:
    const char* first = nullptr;
    std::size_t length;
    unsigned int count = 0;
};

/// The host has confirmed inputs.
class InputConfirmations : public Records {
  public:
    explicit InputConfirmations(const RawMessage& message)
        : Records(message, layout::kCountOffset, layout::kRecordsOffset, layout::input_confirmation::kRecordLength) {}

    std::uint32_t id(std::size_t index) const {
        return big_endian::wordAt(at(index) + layout::input_confirmation::kId);
    }
    std::string_view name(std::size_t index) const {
        return textAt(at(index) + layout::input_confirmation::kName, layout::kNameLength);
    }
    /// Sets type and value.
    void read(std::size_t index, CSClient::Parameter& parameter) const {
        using namespace layout::input_confirmation;
        readValue(at(index) + kIntegerFlag, at(index) + kValue, parameter);
    }
};

/// The host has confirmed outputs.
class OutputConfirmations : public Records {
  public:
    explicit OutputConfirmations(const RawMessage& message)
        : Records(message, layout::kCountOffset, layout::kRecordsOffset, layout::output_confirmation::kRecordLength) {}

    std::uint32_t id(std::size_t index) const {
        return big_endian::wordAt(at(index) + layout::output_confirmation::kId);
    }
    std::string_view name(std::size_t index) const {
        return textAt(at(index) + layout::output_confirmation::kName, layout::kNameLength);
    }
};

/// The host has new values of inputs.
class ValueUpdates : public Records {
  public:
    explicit ValueUpdates(const RawMessage& message)
        : Records(message, layout::update::kUpdateCountOffset, layout::update::kUpdateRecordsOffset,
                  layout::update::kRecordLength) {}

    std::uint32_t id(std::size_t index) const { return big_endian::wordAt(at(index) + layout::update::kId); }
    /// Sets type and value.
    void read(std::size_t index, CSClient::Parameter& parameter) const {
        using namespace layout::update;
        readValue(at(index) + kIntegerFlag, at(index) + kValue, parameter);
    }
};

/// The host has reported its version.
class VersionReport {
  public:
    explicit VersionReport(const RawMessage& versionMessage) : message(versionMessage) {}

    /// Whether the host has accepted the client. A message too short to hold the status reads as one that was not
    /// accepted; the other fields are there only in an accepted one.
    bool isAccepted() const {
        return message.getDoubleWord(layout::version::kStatusOffset) == layout::version::kAccepted;
    }
    std::string_view text() const {
        return textAt(message.data() + layout::version::kTextOffset, layout::version::kTextLength);
    }
    std::uint32_t simulatorId() const {
        return message.getDoubleWord(layout::kSimulatorWordOffset) >> layout::kSimulatorIdShift;
    }
    std::uint32_t protocolVersion() const { return message.getDoubleWord(layout::version::kProtocolVersionOffset); }

  private:
    const RawMessage& message;
};

}  // namespace com_tesk::wire
