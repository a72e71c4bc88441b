#include "comms/CSUseCount.h"

#include <ctime>

namespace com_tesk {

void CSUseCount::waitUntilUnused() const {
    constexpr timespec kLookAgain{0, 50'000};
    while (isInUse()) {
        nanosleep(&kLookAgain, nullptr);
    }
}

}  // namespace com_tesk
