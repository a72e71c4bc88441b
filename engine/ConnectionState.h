#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <utility>

#include "client/CSClient.h"
#include "comms/CSMutex.h"
#include "comms/CSThread.h"
#include "comms/CSUseCount.h"
#include "comms/InterruptiblePause.h"
#include "comms/ThreadSafety.h"
#include "engine/DeferringMutex.h"

namespace com_tesk {

/// Owns the state of an engine's connection, the rules for its changes, and the deferred closes.
///
/// Two operations cannot run while `connectionMutex` is held. They run after it is released:
///
///   - The close that follows a failed write. It makes callbacks and sleeps. The holder defers it (`deferClose`).
///   - A request to close that another thread made while a state change held the mutex (`requestClose`).
///
/// `underLock` does both in its body, because a destructor must neither call back nor sleep: a cancellation there
/// ends the process. When an exception or a cancellation leaves the locked part, the guard's destructor leaves the
/// close to the worker (`abandon`). The worker checks for it once per `runOnce` (`closeAsLeft`).
///
/// It uses no socket and no message. An observer is notified of each change.
class ConnectionState {
  public:
    /// Is notified of changes of state, and interrupts waits for the host.
    class Observer {
      public:
        /// Reports that the state has changed. The thread that changes it calls this with `connectionMutex` held.
        virtual void stateChanged(CSClient::State oldState, CSClient::State newState) = 0;

        /// Interrupts waits for the host from now on (true), or ends the interruption (false). Any thread; must not
        /// block.
        virtual void setInterrupted(bool isInterrupted) = 0;

      protected:
        ~Observer() = default;
    };

    /// The parameters of one attempt to connect.
    struct Attempt {
        unsigned int address = 0;
        unsigned int port = 0;
        CSClient::ConnectionOptions options;
    };

    /// @param observerOfChanges  outlives this object.
    /// @param optionFlags        of the engine.
    ConnectionState(Observer& observerOfChanges, unsigned int optionFlags);
    ConnectionState(const ConnectionState&) = delete;
    ConnectionState& operator=(const ConnectionState&) = delete;
    ~ConnectionState() = default;

    /// @name Queries
    /// Any thread. None blocks.
    /// @{
    CSClient::State current() const { return state; }
    /// As `current`, but other threads see `STATE_DISCONNECTING` while the worker announces the end.
    CSClient::State currentForThisThread() const;
    /// True when frames can be sent and received.
    bool isConnected() const;
    /// Returns the number of the current connection; never `kNoConnection`.
    std::uint32_t number() const { return connectionNumber; }
    unsigned int address() const { return serverAddress; }
    unsigned int port() const { return serverPort; }
    /// True when the calling thread is changing the state.
    bool isChangedByThisThread() const { return connectionMutex.isHeldByThisThread(); }
    /// True when the calling thread has deferred the close of the connection.
    bool hasDeferredClose() const;
    /// True when a cancelled thread has left this connection to the worker to close.
    bool isAbandoned(std::uint32_t connection) const { return abandonedConnection == connection; }
    /// @}

    /// @name Opening and closing
    /// Any thread that is not changing the state.
    /// @{

    /// Begins to connect and starts the worker. See `CSClientProtocol::openConnection`.
    /// @return 0 the worker runs; 2 refused, or no thread could be started.
    int open(const Attempt& newAttempt, void* (*routine)(void*), void* argument) CSCLIENT_EXCLUDES(connectionMutex);

    /// Ends the connection. Waits at most 50 ms for a state change in progress, then leaves a request to its thread.
    void close() CSCLIENT_EXCLUDES(connectionMutex);

    /// Ends the connection, or begins the next attempt and pauses for a second with `OPTION_AUTO_RECONNECT`. Given
    /// the number of a connection, it acts only on that connection.
    void closeOrReconnect(std::uint32_t onlyConnection = kNoConnection) CSCLIENT_EXCLUDES(connectionMutex);

    /// Runs `step` while no connection can begin and no thread is inside `requestClose`.
    /// @return false in any state but `STATE_DISCONNECTED`; `step` was then not run.
    template <typename Step>
    bool whileDisconnected(const Step& step) CSCLIENT_EXCLUDES(connectionMutex) {
        bool isRun = false;
        underLock([this, &step, &isRun]() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
            isRun = state == CSClient::STATE_DISCONNECTED;
            if (isRun) {
                closeRequesters.waitForUsers();
                step();
            }
        });
        return isRun;
    }

    /// Blocks until the worker has released the lock for the last time. Call it once the state is
    /// `STATE_DISCONNECTED`.
    void waitForWorker() CSCLIENT_EXCLUDES(connectionMutex) { const Lock lock(*this); }
    /// @}

    /// @name The worker's steps
    /// Worker thread.
    /// @{

    /// @param[out] attempt  unchanged when the result is false.
    /// @return true when an attempt to connect is wanted.
    bool isAttemptWanted(Attempt& attempt) CSCLIENT_EXCLUDES(connectionMutex);

    /// Numbers the connection of a successful attempt and changes to `STATE_CONNECTED`.
    /// @return false when the connection has been given up meanwhile.
    bool enterConnected() CSCLIENT_EXCLUDES(connectionMutex);

    /// Performs the closes that cancelled threads have left, and requested closes.
    void closeAsLeft() CSCLIENT_EXCLUDES(connectionMutex);

    /// Pauses, then changes to `STATE_CONNECTING` for a thread that was cancelled between losing the connection and
    /// that change.
    void leaveReconnecting() CSCLIENT_EXCLUDES(connectionMutex);

    /// Calls `closeTransport`, changes to `STATE_DISCONNECTED`, and ends the worker. The object may be destroyed as
    /// soon as another thread sees that state.
    template <typename Close>
    void finish(const Close& closeTransport) CSCLIENT_EXCLUDES(connectionMutex) {
        // No access may follow the unlock. A requested close is complete by then.
        const Lock lock(*this);
        closeTransport();
        announceEnd();
    }
    /// @}

    /// @name Under the lock
    /// @{

    /// Changes the state and notifies the observer. Does nothing when it is the current state.
    void change(CSClient::State newState) CSCLIENT_REQUIRES(connectionMutex);

    /// Runs `step` with the lock held, then performs the deferred or requested close, which may make callbacks and
    /// sleep a second.
    template <typename Step>
    void underLock(const Step& step) CSCLIENT_EXCLUDES(connectionMutex) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
        std::uint32_t deferred;  // Assigned before the lock is released.
        {
            Lock lock(*this);
            step();
            deferred = connectionMutex.takeDeferred();
        }
        closeAsDeferred(deferred);
    }

    /// As `underLock`, but waits at most `timeout` for the lock.
    /// @return true when `step` was run.
    template <typename Step>
    bool underLockWithin(std::chrono::milliseconds timeout, const Step& step)
        CSCLIENT_EXCLUDES(connectionMutex) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
        if (!connectionMutex.lockWithin(timeout)) {
            return false;
        }
        std::uint32_t deferred;  // Assigned before the lock is released.
        {
            Lock lock(*this, Lock::ADOPT);
            step();
            deferred = connectionMutex.takeDeferred();
        }
        closeAsDeferred(deferred);
        return true;
    }
    /// @}

    /// @name Deferred closes
    /// Any thread.
    /// @{

    /// Stores that this connection is to be closed after the change that the calling thread is making.
    /// @return false when the calling thread is not changing the state; nothing was then stored.
    bool deferClose(std::uint32_t connection);

    /// Leaves the close of a connection to the worker: for a thread that is being cancelled.
    void abandon(std::uint32_t connection);

    /// Requests a close from the thread that is changing the state, and ends the waits for the host. Takes no lock.
    void requestClose();

    /// Performs a requested close. When another thread holds the lock, that thread performs it after unlocking.
    void closeIfRequested() CSCLIENT_EXCLUDES(connectionMutex);
    /// @}

  private:
    friend class PartAccess;

    class CSCLIENT_SCOPED_CAPABILITY Lock {
      public:
        enum Adopt { ADOPT };

        explicit Lock(ConnectionState& lockedState) CSCLIENT_ACQUIRE(lockedState.connectionMutex);
        /// Adopts the mutex, which this thread holds already.
        Lock(ConnectionState& lockedState, Adopt adopt) CSCLIENT_REQUIRES(lockedState.connectionMutex);
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;
        /// Leaves a deferred close to the worker, if no thread has taken it.
        ~Lock() CSCLIENT_RELEASE();

      private:
        ConnectionState& connection;
    };

    void beginConnecting() CSCLIENT_REQUIRES(connectionMutex);
    bool startWorker(void* (*routine)(void*), void* argument) CSCLIENT_REQUIRES(connectionMutex);
    void beginDisconnecting() CSCLIENT_REQUIRES(connectionMutex);
    /// @return true when the pause between two attempts follows.
    bool beginReconnecting() CSCLIENT_REQUIRES(connectionMutex);
    void announceEnd() CSCLIENT_REQUIRES(connectionMutex);
    /// Performs requested and deferred closes after an unlock.
    void closeAsDeferred(std::uint32_t deferredConnection) CSCLIENT_EXCLUDES(connectionMutex);
    bool hasOption(unsigned int option) const { return (options & option) != 0; }

    // Constant after construction.

    Observer& observer;
    const unsigned int options;

    mutable DeferringMutex connectionMutex;

    // Changed under connectionMutex. Any thread reads them without it.

    std::atomic<CSClient::State> state{CSClient::STATE_DISCONNECTED};
    std::atomic<std::uint32_t> serverAddress{0};
    std::atomic<std::uint32_t> serverPort{0};
    /// The worker's id while it announces the end, otherwise 0.
    std::atomic<pthread_t> announcingEnd{0};
    /// The number of the current connection.
    std::atomic<std::uint32_t> connectionNumber{kNoConnection + 1};

    // Guarded by connectionMutex.

    CSClient::ConnectionOptions connectionOptions CSCLIENT_GUARDED_BY(connectionMutex);
    /// Created and killed under the lock, so that an old worker never ends a new one.
    CSThread workerThread CSCLIENT_GUARDED_BY(connectionMutex);

    // Any thread.

    /// The pause between two attempts to connect.
    InterruptiblePause retryPause;
    /// The connection that a cancelled thread has left to the worker to close, or `kNoConnection`. Nothing more is
    /// sent on it. Any thread sets it, and the worker clears it.
    std::atomic<std::uint32_t> abandonedConnection{kNoConnection};
    /// Set by any thread counted in `closeRequesters`, cleared under connectionMutex.
    std::atomic<bool> isCloseRequested{false};
    /// Threads that are requesting a close.
    CSUseCount closeRequesters;
};

}  // namespace com_tesk
