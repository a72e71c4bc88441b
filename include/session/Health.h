#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "session/Input.h"
#include "session/Link.h"

namespace com_tesk {

/// Counts and times of a session, since it was constructed. A snapshot: the counts are exact, but those of one
/// snapshot may be a few values apart while values are sent or received.
struct Health {
    Link link = Link::STOPPED;         ///< As `Session::link`.
    Cause lastCause = Cause::NONE;     ///< Why the last connection or attempt failed; `NONE` before the first failure.
    int lastError = 0;                 ///< As `LinkEvent::error` of that failure.
    std::uint64_t connects = 0;        ///< Connections that TCP has accepted.
    std::uint64_t losses = 0;          ///< Connections that have ended, except by `stop`.
    std::uint64_t failedAttempts = 0;  ///< Attempts to connect that have failed.

    std::uint64_t framesIn = 0;   ///< Frames received whole.
    std::uint64_t framesOut = 0;  ///< Frames handed to the system, whole or in part.
    std::uint64_t bytesIn = 0;    ///< Bytes received, headers included.
    std::uint64_t bytesOut = 0;   ///< Bytes handed to the system, headers included.
    std::uint64_t valuesIn = 0;   ///< Values of declared inputs.
    std::uint64_t valuesOut = 0;  ///< Values of outputs in the frames.

    std::uint64_t overwritten = 0;     ///< Values of outputs that a newer one replaced before they left.
    std::uint64_t droppedOutputs = 0;  ///< Values of outputs with `Delivery::EVERY` that were not taken, or that were
                                       ///< queued when the connection was lost.
    std::uint64_t droppedInputs = 0;   ///< Values of inputs with `Delivery::EVERY` that found the queue full.
    std::uint64_t droppedEvents = 0;   ///< Link events that found their queue full.
    std::uint64_t unknownIds = 0;      ///< Values that arrived under an id that this connection has not confirmed.

    std::string hostVersion;                       ///< The host's text; empty before its first answer.
    unsigned int protocolVersion = 0;              ///< The host's protocol version; 0 before its first answer.
    unsigned int simulatorId = 0;                  ///< The id that requests carry.
    std::chrono::microseconds roundTrip{-1};       ///< Of the last version request; -1 before the first answer.
    std::chrono::milliseconds sinceConnected{-1};  ///< Age of the connection; -1 without one.
    std::chrono::milliseconds sinceReceived{-1};   ///< Age of the last frame received; -1 before the first.
};

/// One parameter of a session.
struct ParameterStatus {
    /// This program sets outputs, and the host sends inputs.
    enum class Direction : std::uint8_t { OUTPUT, INPUT };
    /// The type argument of the handle.
    enum class Type : std::uint8_t { FLOAT, INT, BOOL, NUMBER };

    std::string name;                         ///< As it was declared.
    Direction direction = Direction::OUTPUT;  ///< An input or an output.
    Type type = Type::FLOAT;                  ///< As it was declared.
    Delivery delivery = Delivery::NEWEST;     ///< As it was declared.
    bool isConfirmed = false;                 ///< On the current connection.
    double value = 0;                         ///< The value last set, or last received.
    Quality quality = Quality::NEVER;         ///< Of an input.
    std::uint64_t count = 0;                  ///< Values that have left, or that have been received.
    std::chrono::milliseconds age{-1};  ///< Of the value of an input; -1 when none has arrived, and for an output.
};

}  // namespace com_tesk
