#include "host/scenario/Judge.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "host/scenario/Numbers.h"

namespace com_tesk::scenario {

namespace {

using Kind = Expectation::Kind;
using EventKind = HostEvent::Kind;

constexpr double kLeastShare = 0.8;
constexpr double kLargestShare = 1.25;

std::string timeText(Duration time) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f s", std::chrono::duration<double>(time).count());
    return text;
}

/// True when the event alone decides whether the kind has happened.
bool isEventOf(Kind kind, EventKind event) {
    switch (kind) {
        case Kind::CONNECTS:
            return event == EventKind::CONNECTED;
        case Kind::DISCONNECTS:
            return event == EventKind::LEFT || event == EventKind::LOST;
        case Kind::ASKS_VERSION:
            return event == EventKind::VERSION_ANSWERED;
        case Kind::UNKNOWN_ID:
            return event == EventKind::UNKNOWN_ID;
        case Kind::BAD_REQUEST:
            return event == EventKind::REQUEST_IGNORED;
        case Kind::REGISTERS:
        case Kind::UNREGISTERS:
        case Kind::PUBLISHES:
            break;
    }
    return false;
}

}  // namespace

Judge::Judge(const std::vector<Expectation>& expectations) {
    for (const Expectation& expectation : expectations) {
        add(expectation, kNone);
    }
    for (std::size_t i = 0; i < watches.size(); ++i) {
        if (watches[i].previous == kNone && watches[i].expectation.after.empty()) {
            open(i, Duration(0));
        }
    }
}

void Judge::add(const Expectation& expectation, std::size_t previous) {
    watches.push_back({expectation, previous});
    watches.back().expectation.then.clear();
    std::size_t last = watches.size() - 1;
    for (const Expectation& next : expectation.then) {
        const std::size_t index = watches.size();
        add(next, last);
        last = index;
    }
}

void Judge::open(std::size_t index, Duration now) {
    Watch& watch = watches[index];
    if (watch.state == State::WAITING) {
        watch.state = State::OPEN;
        watch.began = now;
    }
}

void Judge::meet(std::size_t index, Duration now) {
    watches[index].state = State::MET;
    watches[index].decidedAt = now;
    for (std::size_t i = 0; i < watches.size(); ++i) {
        const Watch& next = watches[i];
        if (next.previous == index && (next.expectation.after.empty() || actions.count(next.expectation.after) != 0)) {
            open(i, now);
        }
    }
}

void Judge::fail(Watch& watch, Duration now, const std::string& reason) {
    watch.state = State::FAILED;
    watch.decidedAt = now;
    watch.reason = reason;
    watch.lastEvents.assign(events.begin(), events.end());
}

void Judge::note(const HostEvent& event, Duration now) {
    advance(now);
    const std::string text = timeText(now) + "  " + com_tesk::describe(event);
    events.push_back(text);
    if (events.size() > kMaxEvents) {
        events.pop_front();
    }
    for (std::size_t i = 0; i < watches.size(); ++i) {
        if (watches[i].state != State::OPEN) {
            continue;
        }
        const Kind kind = watches[i].expectation.kind;
        if (isEventOf(kind, event.kind)) {
            happened(i, now, text);
        } else if (kind == Kind::REGISTERS || kind == Kind::UNREGISTERS) {
            noteNames(i, event, now, text);
        } else if (kind == Kind::PUBLISHES && event.kind == EventKind::PUBLISHED &&
                   event.name == watches[i].expectation.name) {
            notePublication(i, event, now, text);
        }
    }
}

void Judge::noteAction(const std::string& name, Duration now) {
    advance(now);
    if (!actions.emplace(name, now).second) {
        return;
    }
    for (std::size_t i = 0; i < watches.size(); ++i) {
        const Watch& watch = watches[i];
        if (watch.expectation.after == name &&
            (watch.previous == kNone || watches[watch.previous].state == State::MET)) {
            open(i, now);
        }
    }
}

void Judge::happened(std::size_t index, Duration now, const std::string& text) {
    Watch& watch = watches[index];
    const Expectation& expectation = watch.expectation;
    ++watch.count;
    watch.nearest = text;
    const std::optional<unsigned> most = expectation.isNever ? std::optional<unsigned>(0) : expectation.atMost;
    if ((most && watch.count > *most) || (expectation.exactly && watch.count > *expectation.exactly)) {
        fail(watch, now, "it has happened: " + text);
    } else if (!expectation.isNever && !expectation.exactly && !expectation.atMost &&
               watch.count >= expectation.atLeast.value_or(1)) {
        meet(index, now);
    }
}

void Judge::noteNames(std::size_t index, const HostEvent& event, Duration now, const std::string& text) {
    Watch& watch = watches[index];
    const bool isEnd = watch.expectation.kind == Kind::UNREGISTERS;
    const bool isInput = event.kind == (isEnd ? EventKind::INPUT_UNSUBSCRIBED : EventKind::INPUT_CONFIRMED);
    const bool isOutput = event.kind == (isEnd ? EventKind::OUTPUT_UNREGISTERED : EventKind::OUTPUT_CONFIRMED);
    if (event.kind == EventKind::LEFT || event.kind == EventKind::LOST || event.kind == EventKind::DROPPED) {
        watch.names.erase(event.client);
    }
    if (!isInput && !isOutput) {
        return;
    }
    Names& names = watch.names[event.client];
    (isInput ? names.inputs : names.outputs).insert(event.name);
    watch.nearest = text;
    const auto has = [](const std::set<std::string>& there, const std::vector<std::string>& wanted) {
        return std::all_of(wanted.begin(), wanted.end(),
                           [&there](const std::string& name) { return there.count(name) != 0; });
    };
    if (has(names.inputs, watch.expectation.inputs) && has(names.outputs, watch.expectation.outputs)) {
        // The same names count again only after they have been registered again.
        watch.names.erase(event.client);
        happened(index, now, text);
    }
}

void Judge::notePublication(std::size_t index, const HostEvent& event, Duration now, const std::string& text) {
    Watch& watch = watches[index];
    const Expectation& expectation = watch.expectation;
    const double number = numberOf(*event.value);
    const bool isWanted = !expectation.value || number == *expectation.value ||
                          (std::isnan(number) && std::isnan(*expectation.value)) ||
                          std::abs(number - *expectation.value) <= expectation.tolerance;
    watch.nearest = text;
    if (expectation.lasting.count() == 0) {
        if (isWanted) {
            happened(index, now, text);
        }
        return;
    }
    if (!isWanted) {
        if (expectation.rate == 0) {
            watch.since.reset();
        }
        return;
    }
    if (!watch.since) {
        watch.since = now;
    }
    watch.count += expectation.rate != 0 ? 1 : 0;
}

void Judge::advance(Duration now) {
    for (std::size_t i = 0; i < watches.size(); ++i) {
        if (watches[i].state == State::OPEN) {
            advance(i, now);
        }
    }
}

void Judge::advance(std::size_t index, Duration now) {
    Watch& watch = watches[index];
    const Expectation& expectation = watch.expectation;
    if (watch.since && now - *watch.since >= expectation.lasting) {
        const Duration end = *watch.since + expectation.lasting;
        const double wanted = expectation.rate * std::chrono::duration<double>(expectation.lasting).count();
        if (expectation.rate == 0) {
            if (expectation.isNever) {
                fail(watch, end, "it has happened: " + watch.nearest);
            } else {
                meet(index, end);
            }
        } else if (watch.count >= kLeastShare * wanted && watch.count <= kLargestShare * wanted) {
            meet(index, end);
        } else {
            fail(watch, end, std::to_string(watch.count) + " publications in that time");
        }
        return;
    }
    const auto deadline = deadlineOf(watch);
    if (deadline && now >= *deadline) {
        expire(index, *deadline);
    }
}

void Judge::expire(std::size_t index, Duration now) {
    Watch& watch = watches[index];
    const Expectation& expectation = watch.expectation;
    const bool isCounted = expectation.isNever || expectation.exactly || expectation.atMost;
    if (isCounted && watch.count == expectation.exactly.value_or(watch.count) &&
        watch.count >= expectation.atLeast.value_or(0)) {
        meet(index, now);
    } else {
        fail(watch, now, missing(watch));
    }
}

std::optional<Duration> Judge::deadlineOf(const Watch& watch) {
    return watch.expectation.within ? std::optional(watch.began + *watch.expectation.within) : std::nullopt;
}

std::string Judge::missing(const Watch& watch) {
    std::string text = watch.nearest.empty() ? "nothing of the kind" : "the nearest was: " + watch.nearest;
    if (watch.expectation.exactly || watch.expectation.atLeast) {
        text = "it has happened " + std::to_string(watch.count) + (watch.count == 1 ? " time" : " times");
    }
    return text;
}

void Judge::finish(Duration now) {
    advance(now);
    // An expectation that is met at the end can begin another one, which then has no time left.
    for (std::size_t i = 0; i < watches.size(); ++i) {
        if (watches[i].state == State::OPEN) {
            expire(i, now);
        }
    }
    for (Watch& watch : watches) {
        if (watch.state == State::OPEN) {
            fail(watch, now, "the scenario ended");
        } else if (watch.state == State::WAITING) {
            const bool isLate = watch.previous == kNone || watches[watch.previous].state == State::MET;
            fail(watch, now,
                 isLate ? "there was no " + watch.expectation.after : "the expectation before it was not met");
        }
    }
}

bool Judge::isDecided() const {
    return std::all_of(watches.begin(), watches.end(),
                       [](const Watch& watch) { return watch.state == State::MET || watch.state == State::FAILED; });
}

bool Judge::isAllMet() const {
    return std::all_of(watches.begin(), watches.end(), [](const Watch& watch) {
        const bool isOpenToTheEnd = watch.state == State::OPEN && !watch.expectation.within &&
                                    (watch.expectation.isNever || watch.expectation.atMost);
        return watch.state == State::MET || watch.state == State::FAILED || isOpenToTheEnd;
    });
}

std::optional<Duration> Judge::nextDeadline() const {
    std::optional<Duration> next;
    const auto take = [&next](Duration time) { next = next ? std::min(*next, time) : time; };
    for (const Watch& watch : watches) {
        if (watch.state == State::OPEN) {
            if (const auto deadline = deadlineOf(watch)) {
                take(*deadline);
            }
            if (watch.since) {
                take(*watch.since + watch.expectation.lasting);
            }
        }
    }
    return next;
}

std::vector<Outcome> Judge::outcomes() const {
    std::vector<Outcome> result;
    result.reserve(watches.size());
    for (const Watch& watch : watches) {
        result.push_back(
            {watch.expectation, watch.state == State::MET, watch.reason, watch.lastEvents, watch.decidedAt});
    }
    return result;
}

}  // namespace com_tesk::scenario
