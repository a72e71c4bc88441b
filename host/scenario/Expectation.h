#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/scenario/Actions.h"

namespace com_tesk::scenario {

/// What a client must do, or must never do.
struct Expectation {
    enum class Kind {
        CONNECTS,
        DISCONNECTS,  ///< By the client or by the network, not by the host.
        ASKS_VERSION,
        REGISTERS,    ///< All of `inputs` and `outputs`, on one connection; anything when both are empty.
        UNREGISTERS,  ///< As REGISTERS.
        PUBLISHES,    ///< `name`, with `value` when it is set.
        UNKNOWN_ID,   ///< A request with an id that the host has not assigned on this connection.
        BAD_REQUEST,  ///< Bytes that are no request.
    };

    Kind kind = Kind::CONNECTS;
    std::vector<std::string> inputs;
    std::vector<std::string> outputs;
    std::string name;
    std::optional<double> value;
    double tolerance = 0;

    /// Publications a second, at least 80 % and at most 125 % of it, for `lasting` from the first one on.
    double rate = 0;
    /// Without a rate: the time for which no other value of the name is published.
    Duration lasting{};

    /// It must not happen.
    bool isNever = false;
    /// How often it must happen.
    /// @{
    std::optional<unsigned> exactly;
    std::optional<unsigned> atLeast;
    std::optional<unsigned> atMost;
    /// @}

    /// The name of an action of the timeline, such as "drop", after whose first time this begins; empty for the
    /// beginning of the scenario.
    std::string after;
    /// The time for it; without it, the time until the end of the scenario.
    std::optional<Duration> within;
    /// Expectations that begin one after another, each when the one before it has been met.
    std::vector<Expectation> then;

    unsigned line = 0;  ///< In the scenario's file; 0 without a file.
};

/// Returns the expectation as a text, for example: client publishes switch = 1 within 3 s after drop
std::string describe(const Expectation& expectation);

}  // namespace com_tesk::scenario
