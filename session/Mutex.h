#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "comms/ThreadSafety.h"

namespace com_tesk::session {

/// A mutex whose use Clang checks. The session holds one only for a few steps, and never in a system call that waits.
class CSCLIENT_CAPABILITY("mutex") Mutex {
  public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;
    ~Mutex() = default;

    void lock() CSCLIENT_ACQUIRE() { mutex.lock(); }
    void unlock() CSCLIENT_RELEASE() { mutex.unlock(); }
    bool tryLock() CSCLIENT_TRY_ACQUIRE(true) { return mutex.try_lock(); }

  private:
    friend class MutexLock;
    std::mutex mutex;
};

/// Holds a mutex for a scope.
class CSCLIENT_SCOPED_CAPABILITY MutexLock {
  public:
    enum Adopt { ADOPT };

    explicit MutexLock(Mutex& heldMutex) CSCLIENT_ACQUIRE(heldMutex) : lock(heldMutex.mutex) {}
    /// Adopts a mutex that this thread holds already.
    MutexLock(Mutex& heldMutex, Adopt /*adopt*/) CSCLIENT_REQUIRES(heldMutex)
        : lock(heldMutex.mutex, std::adopt_lock) {}
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;
    ~MutexLock() CSCLIENT_RELEASE() = default;

    /// Releases the mutex, waits for the condition or the deadline, and locks it again.
    /// @return false when the deadline has passed.
    bool waitUntil(std::condition_variable& condition, std::chrono::steady_clock::time_point deadline) {
        return condition.wait_until(lock, deadline) == std::cv_status::no_timeout;
    }

  private:
    std::unique_lock<std::mutex> lock;
};

}  // namespace com_tesk::session
