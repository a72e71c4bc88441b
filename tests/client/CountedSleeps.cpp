#include "tests/client/CountedSleeps.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <ctime>
#include <stdexcept>
#include <utility>

namespace com_tesk::test {

namespace {

thread_local CountedSleeps* counting = nullptr;

/// A loop that never ends must end the test.
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
    // A busy machine may have used some of it up already.
    EXPECT_LE(seconds, 1.0) << "every sleep lasts one second";
    if (sleeps > kTooMany) {
        throw std::runtime_error("sleeps for ever");
    }
    if (duringSleep) {
        duringSleep(sleeps);
    }
}

}  // namespace com_tesk::test

extern "C" __attribute__((visibility("default"))) int clock_nanosleep(clockid_t clock, int flags,
                                                                      const timespec* duration, timespec* left) {
    using com_tesk::test::counting;
    if (counting != nullptr) {
        timespec now{};
        if ((flags & TIMER_ABSTIME) != 0) {
            clock_gettime(clock, &now);
        }
        counting->sleep(static_cast<double>(duration->tv_sec - now.tv_sec) +
                        static_cast<double>(duration->tv_nsec - now.tv_nsec) / 1e9);
        return 0;
    }
    using Sleep = int (*)(clockid_t, int, const timespec*, timespec*);
    static const auto systemSleep = reinterpret_cast<Sleep>(dlsym(RTLD_NEXT, "clock_nanosleep"));
    return systemSleep(clock, flags, duration, left);
}
