#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ostream>
#include <thread>

namespace com_tesk::session_test {

/// The time that an action took. Upper bounds are compared with its own time, lower bounds with the whole.
struct Took {
    std::chrono::milliseconds whole{0};
    /// The whole without the time for which the machine delayed a thread that was due.
    std::chrono::milliseconds own{0};
};

inline bool operator>=(const Took& took, std::chrono::milliseconds bound) {
    return took.whole >= bound;
}

inline bool operator<(const Took& took, std::chrono::milliseconds bound) {
    return took.own < bound;
}

inline bool operator<=(const Took& took, std::chrono::milliseconds bound) {
    return took.own <= bound;
}

inline bool operator>(const Took& took, std::chrono::milliseconds bound) {
    return took.own > bound;
}

inline bool operator<(const Took& one, const Took& other) {
    return one.own < other.own;
}

inline void PrintTo(const Took& took, std::ostream* stream) {
    *stream << took.own.count() << " ms (" << took.whole.count() << " ms with the delays of the machine)";
}

/// Measures how late the system wakes a thread while the object exists. A busy machine, or one that shares its
/// processors with others, delays every thread.
class WakeUpDelays {
  public:
    WakeUpDelays() : thread([this] { measure(); }) {}
    WakeUpDelays(const WakeUpDelays&) = delete;
    WakeUpDelays& operator=(const WakeUpDelays&) = delete;
    ~WakeUpDelays() { sum(); }

    /// Ends the measurement. Returns the sum of the delays.
    std::chrono::milliseconds sum() {
        isOver = true;
        if (thread.joinable()) {
            thread.join();
        }
        return std::chrono::duration_cast<std::chrono::milliseconds>(delays);
    }

  private:
    void measure() {
        using Clock = std::chrono::steady_clock;
        constexpr std::chrono::milliseconds kSleep{1};
        for (Clock::time_point due = Clock::now() + kSleep; !isOver; due = Clock::now() + kSleep) {
            std::this_thread::sleep_until(due);
            const Clock::duration delay = Clock::now() - due;
            if (delay > kSleep) {
                delays += delay;
            }
        }
    }

    std::atomic<bool> isOver{false};
    std::chrono::steady_clock::duration delays{0};
    std::thread thread;
};

/// Returns the duration of an action.
template <typename Action>
Took timeOf(const Action& action) {
    WakeUpDelays delays;
    const auto began = std::chrono::steady_clock::now();
    action();
    Took took;
    took.whole = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - began);
    took.own = std::max(took.whole - delays.sum(), std::chrono::milliseconds(0));
    return took;
}

}  // namespace com_tesk::session_test
