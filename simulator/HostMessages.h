#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "client/CSClient.h"
#include "message/BigEndian.h"
#include "message/RawMessage.h"
#include "simulator/MessageLayout.h"

/// Views over the bytes of a host's messages. The message must outlive its view. A view contains only the records
/// that fit the message whole, whatever count the host announces.
namespace com_tesk::wire {

/// Reads a value and its type from two words.
inline void readValue(const char* flag, const char* bits, CSClient::Parameter& parameter) {
    const std::uint32_t word = big_endian::wordAt(bits);
    parameter.type = big_endian::wordAt(flag) != 0 ? CSClient::TYPE_INT : CSClient::TYPE_FLOAT;
    std::memcpy(&parameter.value, &word, sizeof word);
}

/// Returns the text of a zero-padded field: up to its first zero byte, or all of it.
inline std::string_view textAt(const char* field, std::size_t fieldLength) {
    return {field, strnlen(field, fieldLength)};
}

/// Returns the message code; 0 for a message of another protocol.
inline std::uint32_t messageCode(const RawMessage& message) {
    constexpr unsigned int kProtocols = layout::kProtocol << 8U | layout::kSubprotocol;
    if (message.size() < layout::kSubHeaderLength || big_endian::halfWordAt(message.data()) != kProtocols) {
        return 0;
    }
    return big_endian::halfWordAt(message.data() + layout::kMessageCodeOffset);
}

/// The records of a message. All have the same length.
template <std::size_t CountOffset, std::size_t RecordsOffset, std::size_t RecordLength>
class Records {
  public:
    explicit Records(const RawMessage& message) {
        if (message.size() >= RecordsOffset) {
            first = message.data() + RecordsOffset;
            count = layout::wholeRecords(message.size(), RecordsOffset, RecordLength,
                                         big_endian::wordAt(message.data() + CountOffset));
        }
    }

    unsigned int size() const { return count; }

  protected:
    const char* at(std::size_t index) const { return first + index * RecordLength; }

  private:
    const char* first = nullptr;
    unsigned int count = 0;
};

/// The host's confirmation of inputs.
class InputConfirmations
    : public Records<layout::kCountOffset, layout::kRecordsOffset, layout::input_confirmation::kRecordLength> {
  public:
    using Records::Records;

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

/// The host's confirmation of outputs.
class OutputConfirmations
    : public Records<layout::kCountOffset, layout::kRecordsOffset, layout::output_confirmation::kRecordLength> {
  public:
    using Records::Records;

    std::uint32_t id(std::size_t index) const {
        return big_endian::wordAt(at(index) + layout::output_confirmation::kId);
    }
    std::string_view name(std::size_t index) const {
        return textAt(at(index) + layout::output_confirmation::kName, layout::kNameLength);
    }
};

/// The host's update: new values of inputs.
class ValueUpdates : public Records<layout::update::kUpdateCountOffset, layout::update::kUpdateRecordsOffset,
                                    layout::update::kRecordLength> {
  public:
    using Records::Records;

    std::uint32_t id(std::size_t index) const { return big_endian::wordAt(at(index) + layout::update::kId); }
    /// Sets type and value.
    void read(std::size_t index, CSClient::Parameter& parameter) const {
        using namespace layout::update;
        readValue(at(index) + kIntegerFlag, at(index) + kValue, parameter);
    }
};

/// The host's report of its version.
class VersionReport {
  public:
    explicit VersionReport(const RawMessage& versionMessage) : message(versionMessage) {}

    /// True when the host has accepted the client. A message that is too short for the status counts as not accepted.
    /// The other fields may be read only from an accepted one.
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
