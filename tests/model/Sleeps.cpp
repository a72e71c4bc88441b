#include <dlfcn.h>

#include <ctime>

#include "tests/model/EngineUnderTest.h"
#include "tests/support/CountedSleeps.h"

namespace com_tesk::test {

namespace {

thread_local const std::function<void()>* pollOfThisThread = nullptr;

}  // namespace

void runWithoutSleeping(const std::function<void()>& onSleep, const std::function<void()>& onPoll,
                        const std::function<void()>& steps) {
    const CountedSleeps sleeps([&onSleep](int) { onSleep(); });
    pollOfThisThread = &onPoll;
    steps();
    pollOfThisThread = nullptr;
}

}  // namespace com_tesk::test

/// The engine sleeps with this call between two attempts to get a lock that another thread holds.
extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* duration, timespec* left) {
    if (com_tesk::test::pollOfThisThread != nullptr) {
        (*com_tesk::test::pollOfThisThread)();
    }
    using Sleep = int (*)(const timespec*, timespec*);
    static const auto systemSleep = reinterpret_cast<Sleep>(dlsym(RTLD_NEXT, "nanosleep"));
    return systemSleep(duration, left);
}
