#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace com_tesk::scenario {

/// What `cshost run` does.
struct RunOptions {
    std::vector<std::string> files;
    std::string listenAddress = "127.0.0.1";
    std::uint16_t port = 0;
    std::string junitFile;  ///< Empty for none.
    unsigned repetitions = 1;
    bool areEventsShown = false;
    std::vector<std::string> program;  ///< With its arguments; empty for none.
};

/// The exit codes of `cshost run`.
enum class RunResult {
    PASSED = 0,
    FAILED = 1,         ///< An expectation was not met.
    INVALID_FILE = 2,   ///< Nothing was played.
    CANNOT_LISTEN = 3,  ///< Or the report cannot be written.
    PROGRAM_ENDED = 4,  ///< The program could not be started, or has ended before the scenario.
};

/// Plays the scenarios one after another, each on a host of its own, and reports on standard output. Ends early with a
/// failure after SIGINT or SIGTERM. Blocks until then. The first thread of the process.
RunResult run(const RunOptions& options);

}  // namespace com_tesk::scenario
