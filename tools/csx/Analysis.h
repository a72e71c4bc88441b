#pragma once

#include <string>
#include <vector>

#include "tools/csx/Client.h"

namespace com_tesk::csx {

/// What the commands for recordings need that connect to no host.
struct AnalysisOptions {
    enum class Target { CSV, SCENARIO, PCAP };

    std::string log;
    Target target = Target::CSV;
    std::string file;  ///< Of the result; empty for standard output.
    std::vector<std::string> names;
};

/// Each returns `DONE`, `NOT_REACHED` when the result cannot be made or written, or `NO_HOST` when the recording cannot be
/// read. Lines of the recording that are left out are reported on standard error.
/// @throw Interrupted
/// @throw OutputClosed
/// @{

/// Writes the recording as a file of another kind.
ExitCode convert(const AnalysisOptions& options, Signals& signals);

/// Draws values over time.
ExitCode plot(const AnalysisOptions& options, Signals& signals);

/// Prints figures about each name.
ExitCode stats(const CommonOptions& common, const AnalysisOptions& options, Signals& signals);
/// @}

}  // namespace com_tesk::csx
