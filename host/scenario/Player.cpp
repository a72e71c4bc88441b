#include "host/scenario/Player.h"

#include <algorithm>
#include <asio/post.hpp>
#include <system_error>
#include <utility>
#include <vector>

namespace com_tesk::scenario {

namespace {

std::vector<Fault> faultsOf(const Scenario& scenario) {
    std::vector<Fault> faults;
    faults.reserve(scenario.faults.size());
    for (const Scenario::Fault& fault : scenario.faults) {
        faults.push_back({fault.trigger, fault.action});
    }
    return faults;
}

std::vector<Scenario::Step> stepsByTime(std::vector<Scenario::Step> steps) {
    std::stable_sort(steps.begin(), steps.end(),
                     [](const Scenario::Step& one, const Scenario::Step& other) { return one.time < other.time; });
    return steps;
}

}  // namespace

Player::Player(asio::io_context& ioContext, FaultyHost& faultyHost, Scenario played,
               const std::vector<ClientNumber>& clients, std::size_t maxDelayedBytes, OnEnd atEnd)
    : context(ioContext),
      host(faultyHost),
      scenario(std::move(played)),
      steps(stepsByTime(scenario.timeline)),
      judge(scenario.expectations),
      layer(ioContext, faultyHost, faultsOf(scenario), scenario.seed, maxDelayedBytes),
      timer(ioContext),
      onEnd(std::move(atEnd)) {
    for (const ValueSource& source : scenario.values) {
        sources.push_back({source, source.nextAfter(Duration(-1))});
    }
    for (const ClientNumber client : clients) {
        layer.add(client);
    }
    proceedLater();
}

Player::~Player() {
    *isAlive = false;
}

Duration Player::now() const {
    return std::chrono::duration_cast<Duration>(Clock::now() - began);
}

void Player::note(const HostEvent& event) {
    if (onEnd) {
        judge.note(event, now());
        // The event can have begun an expectation with a deadline, or ended the scenario.
        proceedLater();
    }
}

void Player::proceedLater() {
    if (!isProceeding) {
        isProceeding = true;
        asio::post(context, [this, alive = isAlive] {
            if (*alive) {
                isProceeding = false;
                proceed();
            }
        });
    }
}

void Player::proceed() {
    if (!onEnd) {
        return;
    }
    const Duration time = now();
    giveValues(time);
    takeSteps(time);
    judge.advance(time);
    if (isOver(time)) {
        end(false);
    } else {
        wait();
    }
}

void Player::giveValues(Duration time) {
    std::vector<std::pair<Duration, const ValueSource*>> due;
    for (Source& entry : sources) {
        while (entry.next && *entry.next <= time) {
            const Duration at = *entry.next;
            entry.next = entry.source.nextAfter(at);
            const bool isNewest = !entry.next || *entry.next > time;
            // A host that is late leaves out samples, but no step.
            if (isNewest || !entry.source.isSampled()) {
                due.emplace_back(at, &entry.source);
            }
        }
    }
    std::stable_sort(due.begin(), due.end(),
                     [](const auto& one, const auto& other) { return one.first < other.first; });
    for (const auto& [at, source] : due) {
        if (const auto value = source->at(at)) {
            host.perform(SetValue{source->name, *value});
        }
    }
}

void Player::giveAgain() {
    const Duration time = now();
    for (const Source& entry : sources) {
        if (const auto value = entry.source.at(time)) {
            host.perform(SetValue{entry.source.name, *value});
        }
    }
}

void Player::takeSteps(Duration time) {
    while (nextStep < steps.size() && steps[nextStep].time <= time) {
        const Scenario::Step& step = steps[nextStep++];
        judge.noteAction(step.label.empty() ? nameOf(step.action) : step.label, time);
        layer.perform(step.action);
    }
}

bool Player::isOver(Duration time) const {
    return scenario.end ? time >= *scenario.end : nextStep == steps.size() && judge.isAllMet();
}

void Player::wait() {
    std::optional<Duration> next = judge.nextDeadline();
    const auto take = [&next](const std::optional<Duration>& time) {
        if (time) {
            next = next ? std::min(*next, *time) : *time;
        }
    };
    take(scenario.end);
    if (nextStep < steps.size()) {
        take(steps[nextStep].time);
    }
    for (const Source& entry : sources) {
        take(entry.next);
    }
    if (!next) {
        return;
    }
    timer.expires_at(began + *next);
    timer.async_wait([this, alive = isAlive](const std::error_code& error) {
        if (!error && *alive) {
            proceed();
        }
    });
}

void Player::interrupt() {
    if (onEnd) {
        end(true);
    }
}

void Player::end(bool isInterrupted) {
    const Duration time = now();
    timer.cancel();
    judge.finish(time);
    ScenarioVerdict verdict;
    verdict.duration = time;
    verdict.wasInterrupted = isInterrupted;
    for (Outcome& outcome : judge.outcomes()) {
        verdict.results.push_back({describe(outcome.expectation), outcome.expectation.line, outcome.isMet,
                                   std::move(outcome.reason), std::move(outcome.lastEvents), outcome.decidedAt});
    }
    // Idle from now on, also when the function calls this object.
    std::exchange(onEnd, nullptr)(std::move(verdict));
}

}  // namespace com_tesk::scenario
