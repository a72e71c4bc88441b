#include "tests/support/CountedSleeps.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <stdexcept>
#include <utility>

#include "tests/support/SystemFunctions.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {

namespace {

thread_local CountedSleeps* counting = nullptr;

std::atomic<bool> areLong{false};
std::atomic<int> longSleeps{0};
thread_local bool isExempt = false;

constexpr time_t kExtraSeconds = 30;

/// Returns the time with which a sleep of this thread is carried out.
timespec lengthened(timespec time) {
    if (areLong && !isExempt) {
        ++longSleeps;
        time.tv_sec += kExtraSeconds;
    }
    return time;
}

/// Returns the seconds that are left until an absolute time of the clock.
double secondsUntil(clockid_t clock, const timespec& time) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(time.tv_sec - now.tv_sec) + static_cast<double>(time.tv_nsec - now.tv_nsec) / 1e9;
}

/// A loop without an end must end the test.
constexpr int kTooMany = 1000;

}  // namespace

CountedSleeps::CountedSleeps(std::function<void(int)> newDuringSleep) : duringSleep(std::move(newDuringSleep)) {
    counting = this;
}

CountedSleeps::~CountedSleeps() {
    counting = nullptr;
}

void CountedSleeps::sleep(double seconds) {
    ++sleeps;
    // On a busy machine, part of the second may have passed already.
    EXPECT_LE(seconds, 1.0) << "every sleep lasts one second";
    if (sleeps > kTooMany) {
        throw std::runtime_error("too many sleeps");
    }
    if (duringSleep) {
        duringSleep(sleeps);
    }
}

LongPauses::LongPauses() {
    isExempt = true;
    longSleeps = 0;
    areLong = true;
}

LongPauses::~LongPauses() {
    areLong = false;
    isExempt = false;
}

bool LongPauses::waitForOne() {
    return waitUntil([] { return longSleeps > 0; });
}

CSCLIENT_TEST_REPLACES int clock_nanosleep(clockid_t clock, int flags, const timespec* duration, timespec* left) {
    if (counting != nullptr) {
        const bool isAbsolute = (flags & TIMER_ABSTIME) != 0;
        counting->sleep(isAbsolute
                            ? secondsUntil(clock, *duration)
                            : static_cast<double>(duration->tv_sec) + static_cast<double>(duration->tv_nsec) / 1e9);
        return 0;
    }
    using Sleep = int(clockid_t, int, const timespec*, timespec*);
    static const auto systemSleep = systemFunction<Sleep>("clock_nanosleep");
    const timespec lasting = lengthened(*duration);
    return systemSleep(clock, flags, &lasting, left);
}

CSCLIENT_TEST_REPLACES int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                                  const timespec* deadline) {
    if (counting != nullptr) {
        pthread_mutex_unlock(mutex);
        counting->sleep(secondsUntil(CLOCK_MONOTONIC, *deadline));
        pthread_mutex_lock(mutex);
        return ETIMEDOUT;
    }
    static const auto systemWait = systemTimedWait();
    const timespec lasting = lengthened(*deadline);
    return systemWait(condition, mutex, &lasting);
}

}  // namespace com_tesk::test
