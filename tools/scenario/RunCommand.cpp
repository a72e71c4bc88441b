#include "tools/scenario/RunCommand.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <future>
#include <iostream>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

#include "host/LoopbackHost.h"
#include "tools/scenario/Junit.h"
#include "tools/scenario/Program.h"
#include "tools/scenario/ScenarioFile.h"

namespace com_tesk::scenario {

namespace {

struct Loaded {
    std::string path;
    ScenarioFile file;
};

/// SIGINT, SIGTERM and SIGCHLD wait to be taken, in all threads that are started later.
class TakenSignals {
  public:
    TakenSignals() {
        sigemptyset(&taken);
        for (const int number : {SIGINT, SIGTERM, SIGCHLD}) {
            sigaddset(&taken, number);
        }
        pthread_sigmask(SIG_BLOCK, &taken, &before);
    }
    TakenSignals(const TakenSignals&) = delete;
    TakenSignals& operator=(const TakenSignals&) = delete;
    ~TakenSignals() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }

    /// Waits for a signal, at most for a short time. @return true when it is to end the program.
    bool isEndWanted() const {
        constexpr timespec kInterval{0, 20'000'000};
        const int signal = sigtimedwait(&taken, nullptr, &kInterval);
        return signal == SIGINT || signal == SIGTERM;
    }

  private:
    sigset_t taken{};
    sigset_t before{};
};

/// Reads all files, and prints everything that is wrong in them.
std::optional<std::vector<Loaded>> loadAll(const std::vector<std::string>& paths) {
    std::vector<Loaded> loaded;
    bool isValid = true;
    for (const std::string& path : paths) {
        std::vector<Flaw> flaws;
        loaded.push_back({path, readScenarioFile(path, flaws)});
        for (const Flaw& flaw : flaws) {
            const std::string place =
                flaw.line == 0 ? "" : std::to_string(flaw.line) + ':' + std::to_string(flaw.column) + ": ";
            std::cerr << path << ':' << (place.empty() ? " " : "") << place << flaw.text << '\n';
        }
        isValid = isValid && flaws.empty();
    }
    return isValid ? std::optional(std::move(loaded)) : std::nullopt;
}

void printEvent(const HostEvent& event) {
    std::cout << "      " + lineOf(event) + '\n' << std::flush;
}

class Run {
  public:
    explicit Run(const RunOptions& runOptions) : options(runOptions) {}

    RunResult runAll() {
        const auto loaded = loadAll(options.files);
        if (!loaded) {
            return RunResult::INVALID_FILE;
        }
        for (const Loaded& one : *loaded) {
            for (unsigned repetition = 0; repetition < options.repetitions && !isEndWanted; ++repetition) {
                play(one, repetition);
            }
        }
        return writeReport() ? result : RunResult::CANNOT_LISTEN;
    }

  private:
    void play(const Loaded& loaded, unsigned repetition) {
        Scenario scenario = loaded.file.scenario;
        scenario.seed += repetition;  // Each repetition has other random faults, and the same ones in each run.
        HostOptions hostOptions = loaded.file.host;
        hostOptions.listenAddress = options.listenAddress;
        hostOptions.port = options.port;
        if (options.areEventsShown) {
            hostOptions.eventSink = printEvent;
        }
        Played played{scenario.name, loaded.path, {}, {}};
        try {
            LoopbackHost host(hostOptions);
            play(host, std::move(scenario), played);
        } catch (const std::system_error& error) {
            fail(played, RunResult::CANNOT_LISTEN, error.what());
        }
        report(played, repetition);
        all.push_back(std::move(played));
    }

    void play(LoopbackHost& host, Scenario scenario, Played& played) {
        const std::string place = options.listenAddress + ':' + std::to_string(host.port());
        if (options.program.empty()) {
            std::cout << "      " + scenario.name + ": listening on " + place + '\n' << std::flush;
        }
        std::future<ScenarioVerdict> verdict = host.play(std::move(scenario));
        std::optional<Program> program;
        if (!options.program.empty()) {
            try {
                program.emplace(options.program, place);
            } catch (const std::system_error& error) {
                fail(played, RunResult::PROGRAM_ENDED, error.what());
            }
        }
        while (played.error.empty() && verdict.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
            if (signals.isEndWanted()) {
                isEndWanted = true;
                fail(played, RunResult::FAILED, "ended by a signal");
            } else if (const auto end = program ? program->ended() : std::nullopt) {
                // The last values may still be in progress.
                constexpr std::chrono::milliseconds kLastValues(200);
                if (verdict.wait_for(kLastValues) != std::future_status::ready) {
                    fail(played, RunResult::PROGRAM_ENDED, "the program has ended before the scenario, " + *end);
                }
            }
        }
        program.reset();
        host.stop();
        played.verdict = verdict.get();
        played.verdict.wasInterrupted = played.verdict.wasInterrupted && played.error.empty();
        if (played.error.empty() && !played.verdict.hasPassed()) {
            result = std::max(result, RunResult::FAILED);
        }
    }

    void fail(Played& played, RunResult reason, const std::string& error) {
        played.error = error;
        result = std::max(result, reason);
    }

    void report(const Played& played, unsigned repetition) const {
        const bool hasPassed = played.error.empty() && played.verdict.hasPassed();
        std::array<char, 32> time{};
        std::snprintf(time.data(), time.size(), " (%.1f s)",
                      std::chrono::duration<double>(played.verdict.duration).count());
        std::string text = (hasPassed ? "pass  " : "FAIL  ") + played.name;
        if (options.repetitions > 1) {
            text += ", " + std::to_string(repetition + 1) + " of " + std::to_string(options.repetitions);
        }
        text += time.data();
        text += '\n';
        if (!played.error.empty()) {
            text += "  " + played.error + '\n';
        }
        if (!hasPassed) {
            text += "  in " + played.file + '\n' + played.verdict.text();
        }
        std::cout << text << std::flush;
    }

    bool writeReport() const {
        if (options.junitFile.empty()) {
            return true;
        }
        std::ofstream file(options.junitFile);
        file << junitOf(all) << std::flush;
        if (!file) {
            std::cerr << "cshost: cannot write " + options.junitFile + '\n';
        }
        return static_cast<bool>(file);
    }

    const RunOptions& options;
    const TakenSignals signals;
    std::vector<Played> all;
    RunResult result = RunResult::PASSED;
    bool isEndWanted = false;
};

}  // namespace

RunResult run(const RunOptions& options) {
    return Run(options).runAll();
}

}  // namespace com_tesk::scenario
