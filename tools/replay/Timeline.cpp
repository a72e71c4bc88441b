#include "tools/replay/Timeline.h"

#include <algorithm>
#include <cmath>

namespace com_tesk::replay {

Time Timeline::playTimeOf(Time recorded) {
    const Time gap = recorded - last;
    last = recorded;
    if (maxGap && gap > *maxGap) {
        removed += gap - *maxGap;
        gaps.emplace_back(recorded - begin - removed, removed);
    }
    return recorded - begin - removed;
}

Time Timeline::recordedTimeOf(Time play) const {
    Time removedBefore{};
    for (const auto& [from, sum] : gaps) {
        if (from > play) {
            break;
        }
        removedBefore = sum;
    }
    return begin + play + removedBefore;
}

Clock::duration Timeline::realTimeOf(Time play) const {
    constexpr double kMax = 1e18;  // 30 years.
    return std::chrono::nanoseconds(std::llround(std::min(static_cast<double>(play.count()) * 1e3 / rate, kMax)));
}

Time Timeline::playTimeAfter(Clock::duration real) const {
    const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(real).count();
    return Time(std::llround(static_cast<double>(nanoseconds) * rate / 1e3));
}

}  // namespace com_tesk::replay
