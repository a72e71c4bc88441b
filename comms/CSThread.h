#pragma once

#include <pthread.h>

#include "message/Export.h"

namespace com_tesk {

/// One POSIX thread that can be started, cancelled or waited for.
///
/// Not synchronised: `create`, `kill`, `waitForThread` and the destructor must be called by one thread at a time. The
/// started thread may call `kill` on its own object.
class CSCLIENT_EXPORT CSThread {
  public:
    /// Starts nothing.
    CSThread();
    CSThread(const CSThread&) = delete;
    CSThread& operator=(const CSThread&) = delete;

    /// As `kill`.
    virtual ~CSThread();

    /// Starts `routine(argument)` on a new thread, which inherits the caller's signal mask. Returns as soon as the thread
    /// exists.
    /// @param routine   what it runs; its result is dropped.
    /// @param argument  the caller's to keep alive for as long as the routine needs it.
    /// @return false when a thread was already started and not killed, or when the system refuses a new one.
    bool create(void* (*routine)(void*), void* argument);

    /// The thread started by `create`, or 0.
    pthread_t getId() const;

    /// Whether a thread was started and not killed. Stays true after the routine has returned by itself.
    bool isActive() const;

    /// Requests the thread's cancellation, without waiting for it, and forgets it: the thread ends at its next
    /// cancellation point, and the system then takes its resources back. Never blocks. A thread that `waitForThread`
    /// has joined is only forgotten. Without a thread it does nothing.
    void kill();

    /// Blocks until the thread has ended, without limit.
    /// @return whether this call joined it: false without a thread, or when it was joined before.
    bool waitForThread() const;

  protected:
    /// The thread started, or 0.
    pthread_t threadId = 0;

    /// Set once `threadId` names a thread that is gone and must not be touched again.
    mutable bool joined = false;
};

}  // namespace com_tesk
