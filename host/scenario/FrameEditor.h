#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/Bytes.h"
#include "host/Value.h"
#include "host/scenario/Message.h"

/// Whole frames, as faults see and change them. Pure functions. A frame that is not what its code says stays as it is.
namespace com_tesk::scenario {

using host::Bytes;

/// A parameter or value in a message.
struct Record {
    std::uint32_t id = 0;  ///< 0 in requests for registration, which have none.
    std::string name;      ///< Empty in messages that have only ids.
};

/// Returns the message of a body: of what a client sends, or of what a host sends. Nothing for other bytes.
std::optional<Message> messageOf(const Bytes& body, bool isSentByHost);

/// Returns the records of a body with that message.
std::vector<Record> recordsOf(const Bytes& body, Message message);

/// Returns the body of a whole frame.
Bytes bodyOf(const Bytes& frame);

/// Each operation changes the frame of a host. `selected` tells which of its records; a frame without records has none.
/// @{
using Selected = std::vector<bool>;
void changeIds(Bytes& frame, Message message, const Selected& selected, std::int64_t by);
void changeValues(Bytes& frame, Message message, const Selected& selected, double to);
/// The value stays the same number, as far as the other type has it.
void changeTypes(Bytes& frame, Message message, const Selected& selected, bool toInteger);
/// @}

/// Removes the records that are not selected, and adapts the count and the lengths. Nothing remains of a frame without
/// any record.
/// @return false when no record is left.
bool keepRecords(Bytes& frame, Message message, const Selected& selected);

/// Overwrites the length that the frame's header states.
void setFrameLength(Bytes& frame, std::uint32_t length);

/// Overwrites the count of records; without effect on a message without records.
void setRecordCount(Bytes& frame, Message message, std::uint32_t count);

/// Overwrites the simulator id.
void setSimulatorId(Bytes& frame, std::uint16_t id);

}  // namespace com_tesk::scenario
