#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>

#include "comms/ThreadSafety.h"
#include "message/Export.h"

namespace com_tesk {

/// A plain POSIX mutex: not recursive, no error checking. A thread that locks what it already holds waits for ever.
///
/// `CSLockGuard` holds one for a scope.
class CSCLIENT_EXPORT CSCLIENT_CAPABILITY("mutex") CSMutex {
  public:
    /// Not held.
    CSMutex();
    CSMutex(const CSMutex&) = delete;
    CSMutex& operator=(const CSMutex&) = delete;
    /// Nobody may hold it or wait for it.
    virtual ~CSMutex();

    /// Blocks until the mutex is held, without limit.
    /// @return 0 locked; 1 the system said that it is busy; 2 any other error.
    unsigned int lock() CSCLIENT_ACQUIRE();

    /// As `lock`, but waits at most `timeout`, polling once a millisecond. Returns false at once when the calling thread
    /// already holds the mutex.
    /// @return whether the mutex is now held.
    bool lockWithin(std::chrono::milliseconds timeout) CSCLIENT_TRY_ACQUIRE(true);

    /// Takes the mutex when no thread holds it. Never blocks.
    /// @return whether the mutex is now held.
    bool tryLock() CSCLIENT_TRY_ACQUIRE(true);

    /// Never blocks. To be called by the thread that holds the mutex.
    /// @return 0 unlocked; 2 any error.
    unsigned int unlock() CSCLIENT_RELEASE();

    /// Whether the calling thread is the one that holds the mutex. Never blocks.
    bool isHeldByThisThread() const { return holder.load(std::memory_order_relaxed) == pthread_self(); }

    /// Tells the compiler's lock analysis what `isHeldByThisThread` has just found out; does nothing.
    void assertHeld() const CSCLIENT_ASSERT_CAPABILITY(this) {}

  protected:
    /// The result of `lock` for what the system returned.
    static unsigned int lockStatus(int systemResult);

    /// The result of `unlock` for what the system returned.
    static unsigned int unlockStatus(int systemResult);

    /// The system's mutex.
    pthread_mutex_t mutex;

    /// The thread that holds the mutex, or 0. Only the holder itself writes it, so a thread that reads its own id here
    /// does hold the mutex.
    std::atomic<pthread_t> holder{0};
};

}  // namespace com_tesk
