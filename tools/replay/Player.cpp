#include "tools/replay/Player.h"

#include <algorithm>
#include <utility>
#include <variant>

namespace com_tesk::replay {

namespace {

using namespace recording;

bool isTimed(const Entry& entry) {
    const auto& content = entry.content;
    return !std::holds_alternative<Header>(content) && !std::holds_alternative<State>(content) &&
           !std::holds_alternative<Raw>(content) && !std::holds_alternative<Unreadable>(content) &&
           !std::holds_alternative<End>(content);
}

}  // namespace

Player::Player(Recording& source, const Plan& replayPlan, const Options& replayOptions, Sleep sleepFunction)
    : recording(source), plan(replayPlan), options(replayOptions), sleepUntil(std::move(sleepFunction)) {
    current.emplace(plan.begin, options.rate, options.maxGap);
}

bool Player::play(Clock::time_point began, const Handler& handler) {
    started = began;
    current.emplace(plan.begin, options.rate, options.maxGap);
    recording.rewind();
    std::optional<Entry> entry = recording.next();
    for (std::size_t i = 0; i < plan.entriesBefore && entry; ++i) {
        handler.pass(*entry);
        entry = recording.next();
    }
    for (; entry && entry->time <= plan.end; entry = recording.next()) {
        if (!isTimed(*entry)) {
            handler.pass(*entry);
            continue;
        }
        const Time play = current->playTimeOf(entry->time);
        const Clock::time_point deadline = began + current->realTimeOf(play);
        if (!waitFor(deadline, play, handler)) {
            return false;
        }
        late.add(std::chrono::duration_cast<Distribution::Duration>(Clock::now() - deadline));
        handler.play(*entry, play);
    }
    rest = std::move(entry);
    endPlay = current->playTimeOf(plan.end);
    return waitFor(endTime(), endPlay, handler);
}

bool Player::waitAfterEnd(Clock::duration time, const Handler& handler) {
    return waitFor(endTime() + time, endPlay + current->playTimeAfter(time), handler);
}

void Player::passRest(const Handler& handler) {
    for (; rest; rest = recording.next()) {
        handler.pass(*rest);
    }
}

bool Player::waitFor(Clock::time_point deadline, Time known, const Handler& handler) {
    constexpr std::chrono::milliseconds kInterval(20);
    for (;;) {
        const Clock::time_point now = Clock::now();
        const bool isDue = now >= deadline;
        if (!handler.idle(isDue ? known : std::min(known, current->playTimeAfter(now - started)))) {
            return false;
        }
        // Also when it is late, a signal is noticed.
        if (!sleepUntil(isDue ? now : std::min(deadline, now + kInterval))) {
            return false;
        }
        if (isDue) {
            return true;
        }
    }
}

}  // namespace com_tesk::replay
