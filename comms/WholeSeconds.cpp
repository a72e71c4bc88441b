#include "comms/WholeSeconds.h"

#include <cerrno>
#include <ctime>

namespace com_tesk {

void sleepWholeSeconds(unsigned int seconds) {
    // An absolute deadline, because sleep() rounds the rest of an interrupted second down to nothing.
    timespec deadline{};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += static_cast<time_t>(seconds);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR) {
    }
}

}  // namespace com_tesk
