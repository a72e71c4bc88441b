#include "comms/InterruptiblePause.h"

#include <ctime>

namespace com_tesk {

/// Holds the mutex for a scope. A cancelled wait locks the mutex again first, so the destructor also unlocks it then.
class InterruptiblePause::Lock {
  public:
    explicit Lock(pthread_mutex_t& heldMutex) : mutex(heldMutex) { pthread_mutex_lock(&mutex); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    ~Lock() { pthread_mutex_unlock(&mutex); }

  private:
    pthread_mutex_t& mutex;
};

InterruptiblePause::InterruptiblePause() {
    pthread_mutex_init(&mutex, nullptr);
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&changed, &attributes);
    pthread_condattr_destroy(&attributes);
}

InterruptiblePause::~InterruptiblePause() {
    pthread_cond_destroy(&changed);
    pthread_mutex_destroy(&mutex);
}

void InterruptiblePause::sleep(unsigned int seconds) {
    timespec deadline{};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += static_cast<time_t>(seconds);
    const Lock lock(mutex);
    // Any result but 0 ends the pause: the time-out, or an error that would repeat.
    while (!isInterrupted && pthread_cond_timedwait(&changed, &mutex, &deadline) == 0) {
    }
}

void InterruptiblePause::interrupt() {
    const Lock lock(mutex);
    isInterrupted = true;
    pthread_cond_broadcast(&changed);
}

void InterruptiblePause::reset() {
    const Lock lock(mutex);
    isInterrupted = false;
}

}  // namespace com_tesk
