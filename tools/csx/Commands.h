#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/csx/Assignment.h"
#include "tools/csx/Client.h"
#include "tools/csx/Condition.h"
#include "tools/csx/ExitCode.h"
#include "tools/csx/Printer.h"

/// The commands. Each runs until it is done and returns the program's exit code.
///
/// They throw `Interrupted` for SIGINT and SIGTERM, and `OutputClosed` when the reader of standard output has closed it.
namespace com_tesk::csx {

/// Prints the value of each name once.
ExitCode get(const CommonOptions& common, const std::vector<std::string>& names, Signals& signals);

struct PutOptions {
    std::vector<Assignment> assignments;
    bool isFromInput = false;                       ///< Reads assignments from standard input.
    std::optional<std::chrono::microseconds> echo;  ///< Waits for the values to come back.
    bool isHeld = false;                            ///< Stays connected until a signal arrives.
};

/// Publishes values.
ExitCode put(const CommonOptions& common, const PutOptions& options, Signals& signals);

struct WatchOptions {
    std::vector<std::string> names;
    std::uint64_t count = 0;                            ///< Lines to print; 0 is without end.
    std::optional<std::chrono::microseconds> duration;  ///< The time to watch; nothing is without end.
    bool isChangesOnly = false;                         ///< Leaves out a value that equals the one before.
    double maxRate = 0;                                 ///< Lines a second for each name; 0 is all.
    TimeStyle timeStyle = TimeStyle::ABSOLUTE;
};

/// Prints values as they arrive.
ExitCode watch(const CommonOptions& common, const WatchOptions& options, Signals& signals);

struct WaitOptions {
    std::vector<Condition> conditions;
    std::chrono::microseconds within{30'000'000};  ///< Gives up after this time.
    std::chrono::microseconds hold{0};             ///< The time for which all conditions must hold.
};

/// Ends when all conditions hold at the same time, and prints the values.
ExitCode wait(const CommonOptions& common, const WaitOptions& options, Signals& signals);

/// Prints what is known about the host and the connection.
ExitCode info(const CommonOptions& common, Signals& signals);

struct DoctorOptions {
    std::vector<std::string> names;
    std::string publishedName;  ///< Its value is published again and must come back; empty for none.
};

/// Checks step by step what can be wrong, and names the first failure.
ExitCode doctor(const CommonOptions& common, const DoctorOptions& options, Signals& signals);

}  // namespace com_tesk::csx
