#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "host/Value.h"

/// What a scenario can do to a message, to a connection, and to the host.
namespace com_tesk::scenario {

using Duration = std::chrono::microseconds;

/// To a message. The first group also applies to messages from the client; the host then serves what is left of them.
/// @{

/// Takes the selected records away, or the whole message when it has none or all are selected.
struct Withhold {};
/// The message, and those after it, wait for so long.
struct Delay {
    Duration time{};
};
/// The message is there again so many times.
struct Duplicate {
    unsigned times = 1;
};

struct ChangeIds {
    std::int64_t by = 0;
};
struct ChangeValue {
    double to = 0;
};
/// The value stays the same number, as far as the other type has it.
struct ChangeType {
    bool toInteger = false;
};
/// The message leaves after so many later ones. It stays away when there are no more.
struct Reorder {
    unsigned later = 1;
};
/// The message leaves in pieces, with a pause before each but the first.
struct Split {
    std::vector<std::size_t> at;  ///< Ascending offsets in the frame. Those beyond its end have no effect.
    Duration pause{};
};
/// Only the first bytes leave. What follows is read as the rest of this frame.
struct Truncate {
    std::size_t length = 0;
};
/// The header states another length.
struct StateLength {
    std::uint32_t length = 0;
};
/// The message states another number of records.
struct StateCount {
    std::uint32_t count = 0;
};
/// So many bytes, of the seed of the scenario, leave instead.
struct Garbage {
    std::size_t size = 0;
};
/// The message states another simulator id.
struct StateSimulatorId {
    std::uint16_t id = 0;
};
/// @}

/// To the connection of the message, or to every connection.
/// @{
struct Drop {
    bool isReset = false;  ///< Otherwise the client reads what was sent, then the end of the stream.
};
struct StopReading {};
/// Requests are read, and nothing is sent from now on.
struct StopAnswering {};
/// Nothing is read and nothing is sent for so long.
struct Hang {
    Duration time{};
};
/// @}

/// To the host.
/// @{

/// The system refuses new connections for so long.
struct Refuse {
    Duration time{};
};
/// Ends all connections, refuses new ones for so long, and begins again: with the first values and with other ids.
struct Restart {
    Duration down{};
};
/// All clients that ask for the version from now on get this simulator id.
struct AssignId {
    std::uint16_t id = 0;
};
/// Sets a value, as if a client had published it.
struct SetValue {
    std::string name;
    HostValue value = HostValue::real(0);
};
/// @}

using Action = std::variant<Withhold, Delay, Duplicate, ChangeIds, ChangeValue, ChangeType, Reorder, Split, Truncate,
                            StateLength, StateCount, Garbage, StateSimulatorId, Drop, StopReading, StopAnswering, Hang,
                            Refuse, Restart, AssignId, SetValue>;

/// Returns the name in scenario files, such as "change-ids".
const char* nameOf(const Action& action);

/// Where an action is permitted.
/// @{
bool appliesToSent(const Action& action);
bool appliesToReceived(const Action& action);
bool appliesToAccepted(const Action& action);  ///< To a connection that the host has just accepted.
bool appliesToTimeline(const Action& action);
/// @}

}  // namespace com_tesk::scenario
