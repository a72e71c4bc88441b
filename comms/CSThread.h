#pragma once

#include <pthread.h>

namespace com_tesk {

/// One POSIX thread that can be started, cancelled or waited for.
///
/// Not synchronised: `create`, `kill`, `waitForThread` and the destructor must be called by one thread at a time. The
/// started thread may call `kill` on its own object.
class CSThread {
  public:
    /// Creates the object without starting a thread.
    CSThread();
    CSThread(const CSThread&) = delete;
    CSThread& operator=(const CSThread&) = delete;

    /// As `kill`.
    virtual ~CSThread();

    /// Starts `routine(argument)` on a new thread, which inherits the caller's signal mask. Returns as soon as the
    /// thread exists.
    /// @param routine   runs on the new thread; its result is dropped.
    /// @param argument  the caller keeps it alive for as long as the routine needs it.
    /// @return false when a thread was already started and not killed, or when the system refuses a new thread.
    bool create(void* (*routine)(void*), void* argument);

    /// Returns the thread started by `create`, or 0.
    pthread_t getId() const;

    /// True when a thread was started and not killed. Stays true after the routine has returned by itself.
    bool isActive() const;

    /// Requests the thread's cancellation without waiting for it, and clears the id. The thread ends at its next
    /// cancellation point, and the system then frees its resources. Never blocks. For a thread that `waitForThread`
    /// has joined, only the id is cleared. Without a thread it does nothing.
    void kill();

    /// Blocks until the thread has ended, without limit.
    /// @return true when this call joined it; false without a thread, or when it was joined before.
    bool waitForThread() const;

  protected:
    /// The started thread, or 0.
    pthread_t threadId = 0;

    /// Set once the thread of `threadId` has been joined. The id must not be used for it again.
    mutable bool joined = false;
};

}  // namespace com_tesk
