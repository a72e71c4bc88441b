#include "comms/CSMutex.h"

#include <array>
#include <cstddef>
#include <ctime>

namespace com_tesk {

namespace {

constexpr unsigned int kOk = 0;
constexpr unsigned int kBusy = 1;
constexpr unsigned int kError = 2;

/// The status for each system result. EBUSY is 16.
constexpr std::array<unsigned int, 17> kLockStatus = {
    kOk,    kError, kError, kError, kError, kError, kError, kError, kError,
    kError, kError, kError, kError, kError, kError, kError, kBusy,
};

}  // namespace

CSMutex::CSMutex() {
    pthread_mutex_init(&mutex, nullptr);
}

CSMutex::~CSMutex() {
    pthread_mutex_destroy(&mutex);
}

// The analysis cannot see that the system's mutex is the capability itself, here and below.
unsigned int CSMutex::lock() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    const int result = pthread_mutex_lock(&mutex);
    if (result != 0) {
        return lockStatus(result);
    }
    holder.store(pthread_self(), std::memory_order_relaxed);
    return kOk;
}

bool CSMutex::lockWithin(std::chrono::milliseconds timeout) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    // Polls, because the system's timed lock uses the clock that can be set while it waits.
    constexpr timespec kPollInterval{0, 1'000'000};
    if (tryLock()) {
        return true;
    }
    if (isHeldByThisThread()) {
        return false;
    }
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    do {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        nanosleep(&kPollInterval, nullptr);
    } while (!tryLock());
    return true;
}

bool CSMutex::tryLock() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    if (pthread_mutex_trylock(&mutex) != 0) {
        return false;
    }
    holder.store(pthread_self(), std::memory_order_relaxed);
    return true;
}

unsigned int CSMutex::unlock() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    holder.store(0, std::memory_order_relaxed);
    return unlockStatus(pthread_mutex_unlock(&mutex));
}

unsigned int CSMutex::lockStatus(int systemResult) {
    const auto index = static_cast<std::size_t>(systemResult);
    return index < kLockStatus.size() ? kLockStatus[index] : kError;
}

unsigned int CSMutex::unlockStatus(int systemResult) {
    return systemResult == 0 ? kOk : kError;
}

}  // namespace com_tesk
