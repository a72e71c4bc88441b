#pragma once

#include <algorithm>
#include <chrono>

namespace com_tesk::session {

using Clock = std::chrono::steady_clock;

/// The deadline of something that has none.
constexpr Clock::time_point kNoDeadline = Clock::time_point::max();

/// Returns the time `duration` from `now`. A negative duration counts as zero, and more than a century as a century.
template <typename Duration>
Clock::time_point after(Clock::time_point now, Duration duration) {
    constexpr Duration kCentury = std::chrono::hours(24 * 365 * 100);
    return now + std::clamp<Duration>(duration, Duration(0), kCentury);
}

}  // namespace com_tesk::session
