#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/recording/TemporaryDirectory.h"
#include "tests/replay/LogLines.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Emulator.h"
#include "tests/support/Sanitizers.h"

/// Tests of `csx replay` as a process.
namespace com_tesk::replay_test {

using namespace std::chrono_literals;
using test::ChildProcess;
using Arguments = std::vector<std::string>;

/// A window in which a correct program is in time on any machine.
const std::string kWide = test::isEmulated() || test::kUnderThreadSanitizer ? "10s" : "2s";

inline Arguments operator+(Arguments one, const Arguments& other) {
    one.insert(one.end(), other.begin(), other.end());
    return one;
}

inline bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

/// A log of the tests' data.
inline std::string dataFile(const std::string& name) {
    return std::string(DATA_PATH) + '/' + name;
}

class Replay : public testing::Test {
  protected:
    void start(const Arguments& arguments) {
        ChildProcess::Setup setup;
        setup.path = CSX_PATH;
        setup.ownName = "csx";
        process = std::make_unique<ChildProcess>(setup, arguments);
    }
    int run(const Arguments& arguments) {
        start(arguments);
        return process->exitCode();
    }

    /// Plays the log as host for the follower of the tests, which has this fault.
    int follow(const std::string& log, const Arguments& options, const std::string& fault = "none") {
        return run(Arguments{"replay", log, "--as", "host"} + options + Arguments{"--"} +
                   test::commandOf(FOLLOWER_PATH) + Arguments{fault});
    }
    /// Checks the first second of the session with three losses.
    int check(const Arguments& options, const std::string& fault) {
        return follow(dataFile("three-losses.jsonl"), Arguments{"--for", "900ms", "--check"} + options, fault);
    }

    std::string out() const { return process->outText(); }
    std::string err() const { return process->errText(); }

    recording_test::TemporaryDirectory directory;
    std::unique_ptr<ChildProcess> process;
};

}  // namespace com_tesk::replay_test
