#include "tools/replay/Replay.h"

#include <cmath>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <system_error>

#include "tools/Durations.h"
#include "tools/replay/ClientReplay.h"

namespace com_tesk::replay {

namespace {

/// Reads the rules, with windows in the time of the replay. @return nothing when the file has flaws, which are printed.
std::optional<Rules> rulesOf(const Options& options) {
    Rules rules{{Mode::STEP, options.tolerance, options.window}, {}};
    std::vector<scenario::Flaw> flaws;
    if (!options.rulesFile.empty()) {
        rules = readRulesFile(options.rulesFile, rules.fallback, flaws);
    }
    for (const scenario::Flaw& flaw : flaws) {
        std::string place = options.rulesFile + ':';
        place += flaw.line == 0 ? "" : std::to_string(flaw.line) + ':' + std::to_string(flaw.column) + ':';
        std::cerr << place << ' ' << flaw.text << '\n';
    }
    const auto scale = [&options](Rule& rule) {
        rule.window = Time(std::llround(static_cast<double>(rule.window.count()) * options.rate));
    };
    scale(rules.fallback);
    for (auto& [name, rule] : rules.named) {
        scale(rule);
    }
    return flaws.empty() ? std::optional(rules) : std::nullopt;
}

void reportLateness(const Distribution& late, const Say& say) {
    say(std::to_string(late.count()) + " entries played; lateness p50 " + tools::textOf(late.percentile(0.5)) +
        ", p99 " + tools::textOf(late.percentile(0.99)) + ", max " + tools::textOf(late.max()));
}

void reportFlaws(const recording::Recording& recording, const Say& say) {
    for (const std::string& flaw : recording.flaws()) {
        say("left out: " + flaw);
    }
}

}  // namespace

Result replay(const Options& options, const Sleep& sleep, const Say& say) {
    const auto rules = rulesOf(options);
    if (!rules) {
        return Result::CANNOT_BEGIN;
    }
    try {
        recording::Recording recording(options.file);
        if (recording.isIncomplete()) {
            say("the recording begins with part " + std::to_string(recording.header().part) +
                ": its older files are missing");
        }
        Result result = Result::DONE;
        if (options.role == Role::HOST) {
            HostReplay host(options, *rules, recording, sleep, say);
            reportFlaws(recording, say);
            result = host.run();
            reportLateness(host.played().lateness(), say);
        } else {
            ClientReplay client(options, recording, sleep, say);
            reportFlaws(recording, say);
            result = client.run();
            reportLateness(client.played().lateness(), say);
        }
        return result;
    } catch (const ProgramNotStarted& error) {
        say(error.what());
        return Result::PROGRAM_ENDED;
    } catch (const std::exception& error) {
        say(error.what());
        return Result::CANNOT_BEGIN;
    }
}

}  // namespace com_tesk::replay
