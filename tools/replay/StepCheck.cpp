#include "tools/replay/StepCheck.h"

#include <algorithm>
#include <cmath>

namespace com_tesk::replay {

namespace {

std::string textOrNothing(const std::optional<HostValue>& value) {
    return value ? textOf(*value) : "nothing";
}

}  // namespace

void StepCheck::Steps::add(Time time, HostValue value) {
    if (steps.empty() || steps.back().value != value) {
        steps.push_back({steps.empty() ? time : std::max(time, steps.back().from), value});
    }
}

std::size_t StepCheck::Steps::dropBefore(Time time) {
    std::size_t dropped = 0;
    while (steps.size() >= 2 && steps[1].from < time) {
        steps.pop_front();
        ++dropped;
    }
    return dropped;
}

void StepCheck::know(HostValue value) {
    recorded.add(kBefore, value);
    nextRecorded = recorded.size();
}

void StepCheck::expect(Time time, HostValue value) {
    recorded.add(time, value);
}

void StepCheck::publish(Time time, HostValue value) {
    program.add(time, value);
}

void StepCheck::advance(Time known) {
    // Several values are judged at once, because each judgement reads the steps of the window.
    constexpr Time kLeast{20'000};
    const Time horizon = known - window - Time(1);
    if (horizon - judgedUntil >= std::max(window / 4, kLeast)) {
        judge(horizon);
    }
}

void StepCheck::finish(Time end) {
    judge(end);
}

void StepCheck::judge(Time horizon) {
    while (nextRecorded < recorded.size() && recorded[nextRecorded].from <= horizon) {
        judgeRecorded(recorded[nextRecorded]);
        ++nextRecorded;
    }
    for (std::size_t i = 0; i < program.size() && program[i].from <= horizon; ++i) {
        if (program.endOf(i) > judgedUntil) {
            judgeProgram(std::max(program[i].from, judgedUntil), std::min(program.endOf(i), horizon), program[i].value);
        }
    }
    judgedUntil = std::max(judgedUntil, horizon);
    nextRecorded -= std::min(nextRecorded, recorded.dropBefore(horizon - window));
    program.dropBefore(horizon - window);
}

void StepCheck::judgeRecorded(const Step& step) {
    ++found.compared;
    double least = std::numeric_limits<double>::infinity();
    std::optional<HostValue> closest;
    std::optional<Time> nearest;
    for (std::size_t i = 0; i < program.size() && program[i].from <= step.from + window; ++i) {
        if (program.endOf(i) < step.from - window) {
            continue;
        }
        const double error = errorOf(step.value, program[i].value);
        closest = !closest || error < least ? program[i].value : *closest;
        least = std::min(least, error);
        const Time latency = program[i].from - step.from;
        const bool isNearer = !nearest || std::chrono::abs(latency) < std::chrono::abs(*nearest);
        if (error <= tolerance && isNearer && latency >= -window) {
            nearest = latency;
        }
    }
    found.largestError = std::max(found.largestError, least);
    if (!(least <= tolerance)) {
        found.note(step.from, textOf(step.value), textOrNothing(closest));
    } else if (nearest) {
        found.latency.add(*nearest);
    }
}

void StepCheck::judgeProgram(Time from, Time to, HostValue value) {
    Time reached = from - Time(1);
    for (std::size_t i = 0; i < recorded.size() && reached < to; ++i) {
        const bool isThere = errorOf(recorded[i].value, value) <= tolerance;
        if (isThere && recorded[i].from - window <= reached + Time(1)) {
            reached = std::max(reached, recorded.endOf(i) + window);
        }
    }
    double least = std::numeric_limits<double>::infinity();
    std::optional<HostValue> closest;
    const Time wrong = std::min(reached + Time(1), to);
    for (std::size_t i = 0; i < recorded.size(); ++i) {
        if (recorded[i].from <= wrong + window && recorded.endOf(i) >= wrong - window) {
            const double error = errorOf(recorded[i].value, value);
            closest = !closest || error < least ? recorded[i].value : *closest;
            least = std::min(least, error);
        }
    }
    found.largestError = std::max(found.largestError, least);
    if (reached < to) {
        found.note(wrong, textOrNothing(closest), textOf(value));
    }
}

}  // namespace com_tesk::replay
