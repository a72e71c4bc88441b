#include "tools/replay/ClientReplay.h"

#include <stdexcept>
#include <utility>

#include "tools/Durations.h"

namespace com_tesk::replay {

namespace {

using namespace recording;

constexpr std::chrono::milliseconds kLastValues(2'000);  ///< The longest wait until the host has them.

Session::Options sessionOptions(const Options& options) {
    Session::Options session;
    session.host = options.host;
    session.port = options.hostPort;
    session.simulatorId = options.simulatorId;
    session.retry = std::chrono::milliseconds(100);
    session.gather = std::chrono::hours(1);  // Values leave with `flush`, in one request.
    session.queueSize = 4'096;
    session.answerTimeout = std::chrono::hours(24 * 365);  // The replay has a time-out of its own.
    session.log = [](auto, auto) {};
    return session;
}

}  // namespace

ClientReplay::ClientReplay(const Options& replayOptions, Recording& source, Sleep sleepFunction,
                           std::function<void(const std::string&)> sayFunction)
    : options(replayOptions),
      selection(options),
      recording(source),
      say(std::move(sayFunction)),
      sleep(std::move(sleepFunction)),
      plan(planOf(recording, options, selection)),
      player(recording, plan, options, sleep),
      registered(plan.registered) {}

Result ClientReplay::run() {
    if (const Result result = connect(); result != Result::DONE) {
        return result;
    }
    publish({plan.published.begin(), plan.published.end()});
    playAll();
    close();
    if (refused > 0) {
        say(std::to_string(refused) +
            " values or registrations were left out: the name or the type is not possible, or " +
            "the host did not take them");
    }
    return Result::DONE;
}

/// A new session does not send the last values again. The recording has what the recorded client sent again.
void ClientReplay::open() {
    session.emplace(sessionOptions(options));
    for (const auto& [parameter, isInteger] : registered) {
        declare(parameter.first, parameter.second, isInteger);
    }
    session->start();
}

void ClientReplay::close() {
    if (session) {
        session->stop(kLastValues);
    }
    outputs.clear();
    inputs.clear();
    session.reset();
}

Result ClientReplay::connect() {
    constexpr std::chrono::milliseconds kInterval(20);
    const Clock::time_point limit = Clock::now() + options.patience;
    open();
    while (!session->waitUntil(Link::READY, kInterval)) {
        session->dispatch();
        const bool isInterrupted = !sleep(Clock::now());
        if (isInterrupted || Clock::now() >= limit) {
            const bool hasAnswered = session->link() >= Link::ANSWERED;
            say((hasAnswered ? "the host has not confirmed everything within " : "no host: not reached within ") +
                tools::textOf(options.patience));
            return hasAnswered ? Result::NOT_REGISTERED : Result::CANNOT_BEGIN;
        }
    }
    return Result::DONE;
}

void ClientReplay::playAll() {
    Player::Handler handler;
    handler.play = [this](const Entry& entry, Time /*time*/) { play(entry); };
    handler.pass = [](const Entry& /*entry*/) {};
    handler.idle = [this](Time /*known*/) {
        if (session) {
            session->dispatch();
        }
        return true;
    };
    Clock::time_point start = Clock::now();
    while (player.play(start, handler) && options.isLooped) {
        start = player.endTime();
        if (!session) {
            open();
        }
    }
}

void ClientReplay::play(const Entry& entry) {
    if (const auto* const publication = std::get_if<Publication>(&entry.content)) {
        publish(selection.of(publication->values));
    } else if (const auto* const registration = std::get_if<Registration>(&entry.content)) {
        for (const Parameter& parameter : registration->parameters) {
            if (const auto name = selection.nameOf(parameter.name)) {
                declare(registration->direction, *name, parameter.isInteger);
            }
        }
    } else if (const auto* const unregistration = std::get_if<Unregistration>(&entry.content)) {
        for (const std::string& recorded : unregistration->names) {
            if (const auto name = selection.nameOf(recorded)) {
                withdraw(unregistration->direction, *name);
            }
        }
    } else if (const auto* const lost = std::get_if<Lost>(&entry.content);
               lost != nullptr && lost->side == Side::CLIENT) {
        close();
    } else if (std::holds_alternative<Connected>(entry.content) && !session) {
        open();
    }
}

void ClientReplay::declare(Direction direction, const std::string& name, bool isInteger) {
    registered.insert_or_assign({direction, name}, isInteger);
    if (!session) {
        return;
    }
    try {
        if (direction == Direction::OUTPUTS && outputs.count(name) == 0) {
            outputs.emplace(name, isInteger ? AnyOutput(session->output<std::int32_t>(name, Delivery::EVERY))
                                            : AnyOutput(session->output<float>(name, Delivery::EVERY)));
        } else if (direction == Direction::INPUTS && inputs.count(name) == 0) {
            inputs.emplace(
                name, isInteger ? AnyInput(session->input<std::int32_t>(name)) : AnyInput(session->input<float>(name)));
        }
    } catch (const std::invalid_argument&) {
        ++refused;
    }
}

void ClientReplay::withdraw(Direction direction, const std::string& name) {
    registered.erase({direction, name});
    if (const auto output = outputs.find(name); direction == Direction::OUTPUTS && output != outputs.end()) {
        std::visit([](const auto& handle) { handle.withdraw(); }, output->second);
        outputs.erase(output);
    } else if (const auto input = inputs.find(name); direction == Direction::INPUTS && input != inputs.end()) {
        std::visit([](const auto& handle) { handle.withdraw(); }, input->second);
        inputs.erase(input);
    }
}

void ClientReplay::publish(const Values& values) {
    for (const auto& [name, value] : values) {
        const auto output = outputs.find(name);
        bool isTaken = false;
        if (output != outputs.end()) {
            if (const auto* const integer = std::get_if<Output<std::int32_t>>(&output->second)) {
                isTaken = value.isInteger() && integer->set(value.asInteger());
            } else {
                isTaken = !value.isInteger() && std::get<Output<float>>(output->second).set(value.asReal());
            }
        }
        refused += isTaken ? 0 : 1;
    }
    if (session) {
        session->flush();
    }
}

}  // namespace com_tesk::replay
