#include "tools/csx/Client.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <iostream>

#include "tools/csx/DataOutput.h"
#include "tools/csx/Texts.h"

namespace com_tesk::csx {

namespace {

Session::Options sessionOptions(const CommonOptions& common, std::optional<std::chrono::microseconds> maxSilence) {
    Session::Options options;
    options.host = common.host;
    options.port = common.port;
    options.simulatorId = common.simulatorId;
    options.retry = std::chrono::milliseconds(100);
    options.bounds.connectTimeout = std::max(milliseconds(common.timeout), std::chrono::milliseconds(1));
    if (maxSilence) {
        options.bounds.silenceInFrame = std::max(milliseconds(*maxSilence), std::chrono::milliseconds(1));
    }
    options.answerTimeout = std::chrono::hours(24 * 365);  // A command has its own time-out.
    options.gather = std::chrono::hours(1);                // Values leave with `flush`, in one request.
    options.queueSize = 4'096;
    options.log = [](auto, auto) {};  // The commands report what matters to them.
    return options;
}

}  // namespace

void say(const std::string& text) {
    std::cerr << "csx: " + text + '\n';
}

std::string reasonOf(const LinkEvent& failure) {
    return failure.text.substr(0, failure.text.find("; tried again"));
}

Clock::time_point fromNow(std::chrono::microseconds duration) {
    return Clock::now() + duration;
}

std::chrono::milliseconds milliseconds(std::chrono::microseconds duration) {
    return std::chrono::ceil<std::chrono::milliseconds>(duration);
}

Client::Client(const CommonOptions& commonOptions, Patience howPatient, Signals& stopSignals,
               std::optional<std::chrono::microseconds> maxSilence)
    : options(commonOptions),
      connectLimit(commonOptions.timeout),
      isPatient(howPatient == Patience::TIMEOUT),
      signals(stopSignals),
      connection(sessionOptions(commonOptions, maxSilence)) {
    connection.onLink([this](const LinkEvent& event) { note(event); });
    connection.onUpdate([](std::size_t) {});  // A wait looks at its condition after each update.
}

void Client::note(const LinkEvent& event) {
    if (hasFailed()) {
        return;  // The session connects again, and may have done so before the events are dispatched.
    }
    if (event.cause == Cause::NONE) {
        wasAnswered = wasAnswered || event.link >= Link::ANSWERED;
    } else if (event.cause != Cause::STOPPED_BY_US) {
        failure = event;
    }
    if (onEvent) {
        onEvent(event);
    }
}

ExitCode Client::connect(const std::function<bool()>& isDone, std::optional<std::chrono::microseconds> limit) {
    connectLimit = limit.value_or(options.timeout);
    const Clock::time_point deadline = fromNow(connectLimit);
    connection.start();
    const bool isReady = runUntil([&] { return connection.link() == Link::READY || isDone(); }, deadline);
    connection.dispatch();  // The events of what has happened.
    if (isReady && !hasFailed()) {
        return DONE;
    }
    return hasFailed() || !wasAnswered ? reportFailure() : UNCONFIRMED;
}

bool Client::runUntil(const std::function<bool()>& condition, Clock::time_point deadline) {
    return runUntil(condition, deadline, -1, [] {});
}

bool Client::runUntil(const std::function<bool()>& condition, Clock::time_point deadline, int descriptor,
                      const std::function<void()>& onReadable) {
    constexpr std::chrono::milliseconds kMaxWait{60'000};
    for (;;) {
        connection.dispatch();
        if (const int signal = signals.taken(); signal != 0) {
            throw Interrupted{signal};
        }
        const Clock::time_point now = Clock::now();
        if (condition()) {
            return true;
        }
        if (hasFailed() || now >= deadline) {
            return false;
        }
        const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - now);
        const auto wait = std::min(milliseconds(left), kMaxWait);
        const int output = doesEndWithOutput ? STDOUT_FILENO : -1;  // Only its errors count.
        std::array<pollfd, 4> waiting{{{connection.descriptor(), POLLIN, 0},
                                       {signals.descriptor(), POLLIN, 0},
                                       {descriptor, POLLIN, 0},
                                       {output, 0, 0}}};
        poll(waiting.data(), waiting.size(), static_cast<int>(wait.count()));
        if (waiting[2].revents != 0) {
            onReadable();
        }
        if (waiting[3].revents != 0) {
            throw OutputClosed{};
        }
    }
}

ExitCode Client::reportFailure() const {
    if (failure) {
        say((wasAnswered ? "the connection was lost: " : "no host: ") + reasonOf(*failure));
    } else if (connection.link() >= Link::CONNECTED) {
        say("no host: " + place() + ": connected, but no answer within " + textOf(connectLimit));
    } else {
        say("no host: " + place() + ": not reached within " + textOf(connectLimit));
    }
    return wasAnswered ? LOST : NO_HOST;
}

ExitCode Client::finish() {
    const Signals::Uncaught uncaught(signals);
    if (connection.stop(milliseconds(options.timeout))) {
        return DONE;
    }
    connection.dispatch();
    if (failure) {
        return reportFailure();
    }
    say("the host has not acknowledged the values within " + textOf(options.timeout));
    return NOT_REACHED;
}

std::string Client::place() const {
    return options.host + ':' + std::to_string(options.port);
}

}  // namespace com_tesk::csx
