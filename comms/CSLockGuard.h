#pragma once

#include "comms/CSMutex.h"
#include "comms/ThreadSafety.h"

namespace com_tesk {

/// Holds a mutex from construction until `unlock` or destruction.
class CSCLIENT_SCOPED_CAPABILITY CSLockGuard {
  public:
    explicit CSLockGuard(CSMutex& heldMutex) CSCLIENT_ACQUIRE(heldMutex) : mutex(heldMutex) { mutex.lock(); }
    CSLockGuard(const CSLockGuard&) = delete;
    CSLockGuard& operator=(const CSLockGuard&) = delete;
    // The analysis cannot follow `isHeld`, here and in unlock.
    ~CSLockGuard() CSCLIENT_RELEASE() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
        if (isHeld) {
            mutex.unlock();
        }
    }

    /// Releases the mutex early; at most once.
    /// @return the mutex's status: 0, or 2 for an error.
    unsigned int unlock() CSCLIENT_RELEASE() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
        isHeld = false;
        return mutex.unlock();
    }

  private:
    CSMutex& mutex;
    bool isHeld = true;
};

}  // namespace com_tesk
