#include "comms/CSUseCount.h"

#include <ctime>

#include "comms/CSLockGuard.h"
#include "comms/CancellationDisabled.h"

namespace com_tesk {

void CSUseCount::waitForUsers() {
    constexpr timespec kPollInterval{0, 50'000};
    const CancellationDisabled untilAllHaveLeft;
    const CSLockGuard oneCloser(closersMutex);
    const std::atomic<unsigned int>& left = countOf(era.fetch_add(1));
    while (left.load() != 0) {
        nanosleep(&kPollInterval, nullptr);
    }
}

}  // namespace com_tesk
