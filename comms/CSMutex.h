#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>

#include "comms/ThreadSafety.h"

namespace com_tesk {

/// A plain POSIX mutex: not recursive, no error checking. A thread that locks a mutex that it holds waits without
/// limit.
///
/// `CSLockGuard` holds one for a scope.
class CSCLIENT_CAPABILITY("mutex") CSMutex {
  public:
    /// Creates a mutex that is not held.
    CSMutex();
    CSMutex(const CSMutex&) = delete;
    CSMutex& operator=(const CSMutex&) = delete;
    /// No thread may hold it or wait for it.
    virtual ~CSMutex();

    /// Locks the mutex. Blocks without limit.
    /// @return 0 locked; 1 the system reports that it is busy; 2 any other error.
    unsigned int lock() CSCLIENT_ACQUIRE();

    /// As `lock`, but waits at most `timeout` and polls once a millisecond. Returns false at once when the calling
    /// thread already holds the mutex.
    /// @return true when the mutex is now held.
    bool lockWithin(std::chrono::milliseconds timeout) CSCLIENT_TRY_ACQUIRE(true);

    /// Locks the mutex when no thread holds it. Never blocks.
    /// @return true when the mutex is now held.
    bool tryLock() CSCLIENT_TRY_ACQUIRE(true);

    /// Unlocks the mutex. Never blocks. Only for the thread that holds the mutex.
    /// @return 0 unlocked; 2 any error.
    unsigned int unlock() CSCLIENT_RELEASE();

    /// True when the calling thread holds the mutex. Never blocks.
    bool isHeldByThisThread() const { return holder.load(std::memory_order_relaxed) == pthread_self(); }

    /// Passes the result of `isHeldByThisThread` to the compiler's lock analysis. Does nothing at run time.
    void assertHeld() const CSCLIENT_ASSERT_CAPABILITY(this) {}

  protected:
    /// Returns the result of `lock` for a system result.
    static unsigned int lockStatus(int systemResult);

    /// Returns the result of `unlock` for a system result.
    static unsigned int unlockStatus(int systemResult);

    /// The system's mutex.
    pthread_mutex_t mutex;

    /// The thread that holds the mutex, or 0. Only the holder writes it. A thread that reads its own id here
    /// therefore holds the mutex.
    std::atomic<pthread_t> holder{0};
};

}  // namespace com_tesk
