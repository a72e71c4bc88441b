#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

#include "bench/CountedAllocations.h"
#include "bench/CountedCalls.h"

namespace com_tesk::bench {

/// Ends the program with a message when `isGood` is false, because it cannot measure then.
inline void check(bool isGood, const char* what) {
    if (!isGood) {
        std::perror(what);
        std::exit(1);
    }
}

inline double secondsOf(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// CPU time of all threads of this process. The host is a separate process, so its time is not included.
inline double processSeconds() {
    return secondsOf(CLOCK_PROCESS_CPUTIME_ID);
}

inline double threadSeconds() {
    return secondsOf(CLOCK_THREAD_CPUTIME_ID);
}

inline double wallSeconds() {
    return secondsOf(CLOCK_MONOTONIC);
}

/// Returns the value that `share` of the values are below.
inline double percentile(std::vector<double> values, double share) {
    std::sort(values.begin(), values.end());
    const auto index = static_cast<std::size_t>(share * static_cast<double>(values.size()));
    return values[std::min(index, values.size() - 1)];
}

inline double median(const std::vector<double>& values) {
    return percentile(values, 0.5);
}

/// The resources that a piece of work has used.
struct Usage {
    double seconds = 0;
    double allocations = 0;
    double systemCalls = 0;

    Usage& operator+=(const Usage& other) {
        seconds += other.seconds;
        allocations += other.allocations;
        systemCalls += other.systemCalls;
        return *this;
    }
};

/// Measures from its construction on: the CPU time of the process, and the allocations and system calls of this thread.
class Meter {
  public:
    Meter() : calls(countedReads() + countedWrites()), allocations(countedAllocations()), seconds(processSeconds()) {}

    Usage stop() const {
        const double now = processSeconds();
        return {now - seconds, static_cast<double>(countedAllocations() - allocations),
                static_cast<double>(countedReads() + countedWrites() - calls)};
    }

  private:
    unsigned long calls;
    unsigned long allocations;
    double seconds;
};

}  // namespace com_tesk::bench
