#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace com_tesk::mqtt {

/// What is known about the host.
enum class HostState : std::uint8_t {
    UNKNOWN,  ///< The first attempt to connect has not ended yet.
    DOWN,     ///< There is no connection, or the peer has not answered.
    UP,       ///< It has answered.
};

/// A value of `to_mqtt`, at one point in time.
struct ValueSnapshot {
    std::string name;  ///< As the host knows it; any bytes.
    std::optional<double>
        value;               ///< Nothing while there is none: never received, or the host is down and it was cleared.
    bool isCurrent = false;  ///< The host is up, and the value is of its current connection.
    std::chrono::milliseconds age{0};  ///< Since it was received.
    std::uint64_t received = 0;        ///< Values from the host.
    std::uint64_t published = 0;       ///< Messages handed to the broker's connection.
};

/// A value of `from_mqtt`, at one point in time.
struct CommandSnapshot {
    std::string name;
    std::optional<double> value;  ///< The last one that was accepted.
    std::uint64_t accepted = 0;
    std::uint64_t refused = 0;
};

/// Counts since the start of the program.
struct Counts {
    std::uint64_t received = 0;   ///< Values from the host.
    std::uint64_t published = 0;  ///< Values handed to the broker's connection; a value that is repeated counts again.
    /// Values that were received and never published, because a newer or an equal one has taken their place.
    std::uint64_t conflated = 0;
    std::uint64_t dropped = 0;   ///< Messages that the broker or the library has refused.
    std::uint64_t accepted = 0;  ///< Commands that were passed on to the host.
    std::uint64_t ignored = 0;   ///< Commands that were not: the sum of the next four.
    std::uint64_t ignoredRetained = 0;
    std::uint64_t ignoredUnknown = 0;  ///< No such name in `from_mqtt`.
    std::uint64_t ignoredInvalid = 0;  ///< The payload is no number of the type.
    std::uint64_t ignoredRange = 0;    ///< The number is outside the type, `min` or `max`.
    std::uint64_t brokerConnects = 0;  ///< Connections that the broker has accepted.
    std::uint64_t brokerFailures = 0;  ///< Connections that were lost, and attempts that have failed.
    std::uint64_t hostConnects = 0;    ///< Times that the host has answered after it had not.
    unsigned inFlight = 0;             ///< Messages that the broker's connection holds now.
    unsigned maxInFlight = 0;          ///< The largest value of `inFlight`.
};

/// What the bridge knows about itself at one point in time. For metrics and `$stats`.
struct Snapshot {
    bool isBrokerUp = false;  ///< The broker has accepted the current connection.
    HostState host = HostState::UNKNOWN;
    Counts counts;
    std::vector<ValueSnapshot> values;      ///< In the order of `Config::toMqtt`.
    std::vector<CommandSnapshot> commands;  ///< In the order of `Config::fromMqtt`.
};

}  // namespace com_tesk::mqtt
