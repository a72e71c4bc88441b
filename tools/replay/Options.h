#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/recording/Entry.h"

/// Replays of recordings, and their comparison with what a program does.
namespace com_tesk::replay {

using Clock = std::chrono::steady_clock;
using recording::Time;

/// The side of the recording that a replay plays.
enum class Role : std::uint8_t { HOST, CLIENT };

/// What `csx replay` does.
struct Options {
    std::string file;
    Role role = Role::HOST;
    double rate = 1;                ///< 2 is twice as fast as recorded.
    bool isLooped = false;          ///< Begins again at the end.
    std::optional<Time> start;      ///< Since the start of the recording; by default when its client has registered.
    std::optional<Time> duration;   ///< Of the part to play, in the time of the recording.
    std::optional<Time> maxGap;     ///< Longer gaps without entries are shortened to this.
    std::vector<std::string> only;  ///< The recorded names to use; all when empty.
    std::map<std::string, std::string> renamed;  ///< Recorded names, and the names to use instead.
    std::chrono::microseconds patience{30'000'000};
    std::vector<std::string> program;  ///< With its arguments; empty for none.

    // As host.
    std::string listenAddress = "127.0.0.1";
    std::uint16_t port = 0;

    // As client.
    std::string host = "127.0.0.1";
    std::uint16_t hostPort = 55580;
    unsigned int simulatorId = 1;

    // The check.
    bool isChecked = false;
    bool isBlessed = false;
    double tolerance = 0;
    Time window{200'000};
    std::string rulesFile;
};

/// The exit codes of `csx replay`.
enum class Result : std::uint8_t {
    DONE = 0,            ///< Played to the end; the check found no difference.
    DIFFERENT = 1,       ///< The check found a difference.
    CANNOT_BEGIN = 2,    ///< The recording or the rules are invalid, the host is not there, or the port is in use.
    NOT_REGISTERED = 3,  ///< The client has not registered, or the host has not confirmed, what was recorded.
    PROGRAM_ENDED = 4,   ///< The program could not be started, or has ended before the replay.
};

}  // namespace com_tesk::replay
