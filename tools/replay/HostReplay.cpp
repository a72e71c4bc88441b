#include "tools/replay/HostReplay.h"

#include <algorithm>
#include <iostream>
#include <system_error>
#include <utility>

#include "tools/Durations.h"
#include "tools/ParameterNames.h"

namespace com_tesk::replay {

namespace {

using namespace recording;
using Kind = HostEvent::Kind;

}  // namespace

HostReplay::HostReplay(const Options& replayOptions, const Rules& outputRules, Recording& source, Sleep sleepFunction,
                       Say sayFunction)
    : options(replayOptions),
      selection(options),
      recording(source),
      say(std::move(sayFunction)),
      sleep(std::move(sleepFunction)),
      plan(planOf(recording, options, selection)),
      clock(plan.begin, options.rate, std::nullopt),
      player(recording, plan, options, sleep),
      missing(plan.registered) {
    if (options.isChecked) {
        comparison.emplace(outputRules);
        window = options.window;
        for (const auto& [name, rule] : outputRules.named) {
            window = std::max(window, std::chrono::duration_cast<Time>(player.timeline().realTimeOf(rule.window)));
        }
        for (const auto& [parameter, isInteger] : plan.registered) {
            if (const auto value = plan.published.find(parameter.second); value != plan.published.end()) {
                comparison->know(parameter.second, value->second);
            }
        }
    }
    if (options.isBlessed && plan.hasSeveralFiles) {
        throw std::runtime_error("a recording of several files cannot be blessed");
    }
}

Result HostReplay::run() {
    if (options.isBlessed) {
        blessing.emplace(options.file, selection, plan.end,
                         [this](Time play) { return player.timeline().recordedTimeOf(play); });
    }
    HostOptions hostOptions;
    hostOptions.listenAddress = options.listenAddress;
    hostOptions.port = options.port;
    hostOptions.versionText = plan.versionText;
    hostOptions.protocolVersion = plan.protocolVersion;
    hostOptions.assignId = plan.assignedId;
    hostOptions.initialValues = plan.values;
    hostOptions.areValuesShared = false;  // The recording has what the host sent to its subscribers.
    hostOptions.eventSink = [this](const HostEvent& event) { note(event); };
    host.emplace(hostOptions);
    const std::string place = options.listenAddress + ':' + std::to_string(host->port());
    if (options.program.empty()) {
        say("listening on " + place);
    } else {
        try {
            program.emplace(options.program, place);
        } catch (const std::system_error& error) {
            throw ProgramNotStarted(error.what());
        }
    }
    if (waitForClient()) {
        playAll();
    }
    {
        const std::lock_guard<std::mutex> lock(mutex);
        isOver = true;
    }
    program.reset();
    host->stop();
    return finish();
}

void HostReplay::note(const HostEvent& event) {
    const Clock::time_point now = Clock::now();
    if (event.kind == Kind::INPUT_CONFIRMED || event.kind == Kind::OUTPUT_CONFIRMED) {
        const std::lock_guard<std::mutex> lock(mutex);
        missing.erase({event.kind == Kind::INPUT_CONFIRMED ? Direction::INPUTS : Direction::OUTPUTS, event.name});
        if (missing.empty() && !began) {
            began = now;
        }
    } else if (event.kind == Kind::PUBLISHED && comparison) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (isOver) {
            return;
        }
        const Time time = began ? clock.playTimeAfter(now - *began) : Time(0);
        const HostValue value = event.value.value_or(HostValue::real(0));
        comparison->publish(event.name, time, value);
        if (blessing) {
            blessing->publish(event.name, time, value);
        }
    }
}

/// @return true when the client has registered what was recorded.
bool HostReplay::waitForClient() {
    constexpr std::chrono::milliseconds kInterval(5);
    const Clock::time_point limit = Clock::now() + options.patience;
    for (;;) {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            if (began) {
                return true;
            }
        }
        programEnd = program ? program->ended() : std::nullopt;
        if (programEnd) {
            ending = Ending::PROGRAM;
            return false;
        }
        if (Clock::now() >= limit) {
            return false;
        }
        if (!sleep(Clock::now() + kInterval)) {
            ending = Ending::SIGNAL;
            return false;
        }
    }
}

void HostReplay::playAll() {
    Player::Handler handler;
    handler.play = [this](const Entry& entry, Time time) { play(entry, time); };
    handler.idle = [this](Time known) { return idle(known); };
    bool isBefore = true;
    handler.pass = [this, &isBefore](const Entry& entry) {
        if (blessing) {
            isBefore = isBefore && entry.time <= plan.begin;
            isBefore || entry.time > plan.end ? blessing->copy(entry) : blessing->replace(entry);
        }
    };
    Clock::time_point start = *began;
    bool isWhole = player.play(start, handler);
    while (isWhole && options.isLooped) {
        start = player.endTime();
        beginAgain();
        isWhole = player.play(start, handler);
    }
    if (isWhole && comparison) {
        isWhole = player.waitAfterEnd(window, handler);
        comparison->finish(player.end());
    }
    if (!isWhole && ending == Ending::AT_END) {
        ending = Ending::SIGNAL;
    }
    if (isWhole && blessing) {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            isOver = true;
        }
        blessing->endReplay();
        player.passRest(handler);
    }
}

void HostReplay::play(const Entry& entry, Time time) {
    if (blessing) {
        blessing->replace(entry);
    }
    if (const auto* const update = std::get_if<Update>(&entry.content)) {
        if (const Values values = selection.of(update->values); !values.empty()) {
            host->setValues(values);
        }
    } else if (const auto* const confirmation = std::get_if<Confirmation>(&entry.content)) {
        confirm(*confirmation);
    } else if (const auto* const publication = std::get_if<Publication>(&entry.content);
               publication != nullptr && comparison) {
        for (const auto& [name, value] : selection.of(publication->values)) {
            comparison->expect(name, time, value);
        }
    } else if (std::holds_alternative<Lost>(entry.content) && nextLoss < plan.losses.size() &&
               plan.losses[nextLoss].at == entry.time) {
        lose(plan.losses[nextLoss]);
        ++nextLoss;
    }
}

/// The recorded host may have had other values after a loss.
void HostReplay::confirm(const Confirmation& confirmation) {
    Values changed;
    for (const Parameter& input : confirmation.parameters) {
        const auto name = selection.nameOf(input.name);
        if (confirmation.direction == Direction::INPUTS && name && host->value(*name) != input.value) {
            changed.emplace_back(*name, input.value);
        }
    }
    if (!changed.empty()) {
        host->setValues(changed);
    }
}

void HostReplay::lose(const Plan::Loss& loss) {
    Scenario scenario("loss");
    if (loss.back > loss.at) {
        const Time down = loss.back - loss.at;
        const Time shortened = options.maxGap ? std::min(down, *options.maxGap) : down;
        scenario.at(Time(0),
                    scenario::Refuse{std::chrono::duration_cast<Time>(player.timeline().realTimeOf(shortened))});
    }
    scenario.at(Time(0), scenario::Drop{loss.isReset}).ends(Time(0));
    host->play(std::move(scenario));
}

bool HostReplay::idle(Time known) {
    if (comparison) {
        comparison->advance(known);
    }
    const Time recorded = player.timeline().recordedTimeOf(known);
    if (program && !programEnd) {
        programEnd = program->ended();
        programEndTime = recorded;
    }
    // The recorded program may have ended after its last message. The replayed one may be a little faster.
    constexpr Time kGrace{100'000};
    if (programEnd && (options.isLooped || programEndTime + kGrace < plan.lastMessage)) {
        ending = Ending::PROGRAM;
        return false;
    }
    return true;
}

void HostReplay::beginAgain() {
    nextLoss = 0;
    Values values;
    for (const auto& [name, value] : plan.values) {
        if (host->value(name) != value) {
            values.emplace_back(name, value);
        }
    }
    if (!values.empty()) {
        host->setValues(values);
    }
}

Result HostReplay::finish() {
    if (!began) {
        if (ending == Ending::PROGRAM) {
            say("the program has ended before the replay, " + *programEnd);
            return Result::PROGRAM_ENDED;
        }
        reportMissing();
        return Result::NOT_REGISTERED;
    }
    if (ending == Ending::PROGRAM) {
        if (options.isLooped) {
            return Result::DONE;
        }
        say("the program has ended before the replay, " + *programEnd);
        return Result::PROGRAM_ENDED;
    }
    if (ending == Ending::AT_END && comparison) {
        std::cout << comparison->table([this](Time play) { return player.timeline().recordedTimeOf(play); },
                                       options.rate)
                  << std::flush;
        if (blessing) {
            blessing->finish();
            say(options.file + " now expects what the program has published");
            return Result::DONE;
        }
        return comparison->isEqual() ? Result::DONE : Result::DIFFERENT;
    }
    return Result::DONE;
}

void HostReplay::reportMissing() const {
    constexpr std::size_t kMaxNames = 5;
    const std::lock_guard<std::mutex> lock(mutex);
    std::string names;
    std::size_t count = 0;
    for (const auto& [parameter, isInteger] : missing) {
        if (++count <= kMaxNames) {
            names += names.empty() ? "" : ", ";
            names += parameter.first == Direction::INPUTS ? "input " : "output ";
            names += tools::shownName(parameter.second);
        }
    }
    if (count > kMaxNames) {
        names += " and " + std::to_string(count - kMaxNames) + " more";
    }
    say("the client has not registered within " + tools::textOf(options.patience) + ": " + names);
}

}  // namespace com_tesk::replay
