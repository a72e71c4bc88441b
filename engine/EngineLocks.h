#pragma once

#include <utility>

#include "engine/CSClientProtocol.h"

namespace com_tesk {

// Two things cannot be done while an engine lock is held, and are carried out after it is released:
//
//   - The close that follows a failed write. It needs connectionMutex, makes callbacks and sleeps. The thread notes it
//     next to the lock that it holds (`closeAfterFailedWrite`) and carries it out once it holds neither lock.
//   - A request to close that another thread made while a state change held connectionMutex (`requestClose`). The thread
//     that releases the mutex carries it out (`closeIfRequested`).
//
// `underConnectionLock` and `underParameterLock` do both. They do it in their bodies, because a destructor must neither
// call back nor sleep: a cancellation there ends the process. When an exception or a cancellation leaves the locked part,
// the guard's destructor leaves the close to the worker (`abandonedConnection`), which looks once a turn.

/// Holds `connectionMutex` for a scope. Only the engine makes one, and only where nothing is to follow the release;
/// everything else goes through `underConnectionLock`.
class CSCLIENT_SCOPED_CAPABILITY CSClientProtocol::ConnectionLock {
  public:
    ConnectionLock(const ConnectionLock&) = delete;
    ConnectionLock& operator=(const ConnectionLock&) = delete;
    /// Leaves a deferred close that was not taken to the worker.
    ~ConnectionLock() CSCLIENT_RELEASE();

  private:
    friend class CSClientProtocol;

    enum Adopt { ADOPT };

    explicit ConnectionLock(CSClientProtocol& lockedEngine) CSCLIENT_ACQUIRE(lockedEngine.connectionMutex);
    /// Takes over the mutex, which this thread holds already.
    ConnectionLock(CSClientProtocol& lockedEngine, Adopt adopt) CSCLIENT_REQUIRES(lockedEngine.connectionMutex);

    /// The connection whose close the holder deferred, which is the caller's to carry out from now on.
    std::uint32_t takeDeferredClose() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
        return std::exchange(engine.closeDeferredByConnectionHolder, kNoConnection);
    }

    CSClientProtocol& engine;
};

/// Holds `parameterMutex` for a scope, without sending: what is sent needs `underParameterLock`.
class CSCLIENT_SCOPED_CAPABILITY CSClientProtocol::ParameterLock {
  public:
    /// Lets the worker go first when it waits for the mutex: a thread that publishes in a tight loop would keep it out. A
    /// thread that changes the state goes first, too.
    explicit ParameterLock(CSClientProtocol& lockedEngine) CSCLIENT_ACQUIRE(lockedEngine.parameterMutex);
    ParameterLock(const ParameterLock&) = delete;
    ParameterLock& operator=(const ParameterLock&) = delete;
    /// Leaves a deferred close that was not taken to the worker.
    ~ParameterLock() CSCLIENT_RELEASE();

  private:
    friend class CSClientProtocol;

    /// As `ConnectionLock::takeDeferredClose`.
    std::uint32_t takeDeferredClose() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
        return std::exchange(engine.closeDeferredByParameterHolder, kNoConnection);
    }

    CSClientProtocol& engine;
};

/// Holds `parameterMutex` for a scope, on the worker, for what a received message changes.
class CSCLIENT_INTERNAL CSCLIENT_SCOPED_CAPABILITY CSClientProtocol::WorkerParameterLock {
  public:
    explicit WorkerParameterLock(CSClientProtocol& lockedEngine) CSCLIENT_ACQUIRE(lockedEngine.parameterMutex)
        : engine(lockedEngine) {
        engine.lockParametersFirst();
    }
    WorkerParameterLock(const WorkerParameterLock&) = delete;
    WorkerParameterLock& operator=(const WorkerParameterLock&) = delete;
    ~WorkerParameterLock() CSCLIENT_RELEASE() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS { engine.parameterMutex.unlock(); }

  private:
    CSClientProtocol& engine;
};

// The analysis does not see through the guards and the steps, here and below; each step says what it requires.
template <typename Step>
void CSClientProtocol::underConnectionLock(const Step& step) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    std::uint32_t deferred;  // Assigned before the lock is released.
    {
        ConnectionLock lock(*this);
        step();
        deferred = lock.takeDeferredClose();
    }
    closeAsDeferred(deferred);
}

template <typename Step>
bool CSClientProtocol::underConnectionLockWithin(std::chrono::milliseconds timeout,
                                                 const Step& step) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    if (!connectionMutex.lockWithin(timeout)) {
        return false;
    }
    std::uint32_t deferred;  // Assigned before the lock is released.
    {
        ConnectionLock lock(*this, ConnectionLock::ADOPT);
        step();
        deferred = lock.takeDeferredClose();
    }
    closeAsDeferred(deferred);
    return true;
}

template <typename Step>
int CSClientProtocol::underParameterLock(const Step& step) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    int result = 0;
    std::uint32_t deferred;  // Assigned before the lock is released.
    {
        ParameterLock lock(*this);
        result = step();
        deferred = lock.takeDeferredClose();
    }
    if (deferred != kNoConnection) {
        closeAfterFailedWrite(deferred);
    }
    return result;
}

}  // namespace com_tesk
