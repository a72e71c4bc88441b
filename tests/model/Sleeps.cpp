#include <ctime>

#include "tests/model/StepRunner.h"
#include "tests/support/CountedSleeps.h"
#include "tests/support/SystemFunctions.h"

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

/// The engine sleeps with this call between two attempts to get a lock that another thread holds.
CSCLIENT_TEST_REPLACES int nanosleep(const timespec* duration, timespec* left) {
    if (pollOfThisThread != nullptr) {
        (*pollOfThisThread)();
    }
    static const auto systemSleep = systemFunction<int(const timespec*, timespec*)>("nanosleep");
    return systemSleep(duration, left);
}

}  // namespace com_tesk::test
