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

/// The state of an engine's connection, the rules by which it changes, and the closes that have to wait.
///
/// Two things cannot be done while `connectionMutex` is held, and are carried out after it is released:
///
///   - The close that follows a failed write. It makes callbacks and sleeps. The holder defers it (`deferClose`).
///   - A request to close that another thread made while a state change held the mutex (`requestClose`).
///
/// `underLock` does both. It does so in its body, because a destructor must neither call back nor sleep: a cancellation
/// there ends the process. When an exception or a cancellation leaves the locked part, the guard's destructor leaves the
/// close to the worker (`abandon`), which looks once a turn (`closeAsLeft`).
///
/// It knows no socket and no message. An observer is notified of each change.
class ConnectionState {
  public:
    /// What a change of state brings about.
    class Observer {
      public:
        /// The state has changed. Called by the thread that changes it, with `connectionMutex` held.
        virtual void stateChanged(CSClient::State oldState, CSClient::State newState) = 0;

        /// Waits for the host end at once from now on (true), or last their time again (false). Any thread; must not block.
        virtual void setInterrupted(bool isInterrupted) = 0;

      protected:
        ~Observer() = default;
    };

    /// What one attempt to connect needs.
    struct Attempt {
        unsigned int address = 0;
        unsigned int port = 0;
        CSClient::ConnectionOptions options;
    };

    /// @param observerOfChanges  outlives this object.
    /// @param optionFlags        the engine's.
    ConnectionState(Observer& observerOfChanges, unsigned int optionFlags);
    ConnectionState(const ConnectionState&) = delete;
    ConnectionState& operator=(const ConnectionState&) = delete;
    ~ConnectionState() = default;

    /// @name Queries
    /// Any thread. None blocks.
    /// @{
    CSClient::State current() const { return state; }
    /// As `current`, but while the worker announces the end, other threads still see `STATE_DISCONNECTING`.
    CSClient::State currentForThisThread() const;
    /// Whether frames can be exchanged.
    bool isConnected() const;
    /// The number of the connection that stands; never `kNoConnection`.
    std::uint32_t number() const { return connectionNumber; }
    unsigned int address() const { return serverAddress; }
    unsigned int port() const { return serverPort; }
    /// Whether the calling thread makes a change of state.
    bool isChangedByThisThread() const { return connectionMutex.isHeldByThisThread(); }
    /// Whether the calling thread has deferred the close of the connection.
    bool hasDeferredClose() const;
    /// Whether a cancelled thread has left this connection to the worker to close.
    bool isAbandoned(std::uint32_t connection) const { return abandonedConnection == connection; }
    /// @}

    /// @name Opening and closing
    /// Any thread that does not change the state.
    /// @{

    /// Begins to connect, and starts the worker. See `CSClientProtocol::openConnection`.
    /// @return 0 the worker runs; 2 refused, or no thread could be started.
    int open(const Attempt& newAttempt, void* (*routine)(void*), void* argument) CSCLIENT_EXCLUDES(connectionMutex);

    /// Ends the connection. Waits at most 50 ms for a change of state in progress, then leaves a request to it.
    void close() CSCLIENT_EXCLUDES(connectionMutex);

    /// Ends the connection, or with `OPTION_AUTO_RECONNECT` begins the next attempt and pauses for a second. Given a
    /// connection's number, only that connection.
    void closeOrReconnect(std::uint32_t onlyConnection = kNoConnection) CSCLIENT_EXCLUDES(connectionMutex);

    /// Runs `step` while no connection can begin and no thread is inside `requestClose`.
    /// @return false, and nothing was run, in any state but `STATE_DISCONNECTED`.
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

    /// Blocks until the worker has released the lock for the last time. To be called once the state is
    /// `STATE_DISCONNECTED`.
    void waitForWorker() CSCLIENT_EXCLUDES(connectionMutex) { const Lock lock(*this); }
    /// @}

    /// @name The worker's steps
    /// Worker thread.
    /// @{

    /// @param[out] attempt  unchanged when the result is false.
    /// @return whether an attempt to connect is wanted.
    bool isAttemptWanted(Attempt& attempt) CSCLIENT_EXCLUDES(connectionMutex);

    /// An attempt has succeeded: numbers the connection and changes to `STATE_CONNECTED`.
    /// @return false when the connection was given up meanwhile.
    bool enterConnected() CSCLIENT_EXCLUDES(connectionMutex);

    /// Carries out the closes that cancelled threads have left.
    void closeAsLeft() CSCLIENT_EXCLUDES(connectionMutex);

    /// Pauses, then completes the change of a thread that was cancelled between losing the connection and connecting again.
    void leaveReconnecting() CSCLIENT_EXCLUDES(connectionMutex);

    /// Changes to `STATE_DISCONNECTED` after `closeTransport`, and ends the worker. The object may be destroyed as soon as
    /// the state can be seen.
    template <typename Close>
    void finish(const Close& closeTransport) CSCLIENT_EXCLUDES(connectionMutex) {
        // Nothing may follow the release. A request to close has nothing left to do.
        const Lock lock(*this);
        closeTransport();
        announceEnd();
    }
    /// @}

    /// @name Under the lock
    /// @{

    /// Changes the state and notifies the observer. Does nothing when it is the state already.
    void change(CSClient::State newState) CSCLIENT_REQUIRES(connectionMutex);

    /// Runs `step` with the lock held, then carries out what was deferred or requested meanwhile, which may make callbacks
    /// and sleep a second.
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
    /// @return whether `step` was run.
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

    /// Notes, for a thread that changes the state, that this connection is to be closed after the change.
    /// @return false, and nothing was noted, when the calling thread does not change the state.
    bool deferClose(std::uint32_t connection);

    /// Leaves a connection to the worker to close: for a thread that is being cancelled.
    void abandon(std::uint32_t connection);

    /// Asks whichever thread changes the state to close, and ends the waits for the host. Takes no lock.
    void requestClose();

    /// Carries out a request to close, unless another thread holds the lock, which then does so after releasing it.
    void closeIfRequested() CSCLIENT_EXCLUDES(connectionMutex);
    /// @}

  private:
    friend class PartAccess;

    class CSCLIENT_SCOPED_CAPABILITY Lock {
      public:
        enum Adopt { ADOPT };

        explicit Lock(ConnectionState& lockedState) CSCLIENT_ACQUIRE(lockedState.connectionMutex);
        /// Takes over the mutex, which this thread holds already.
        Lock(ConnectionState& lockedState, Adopt adopt) CSCLIENT_REQUIRES(lockedState.connectionMutex);
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;
        /// Leaves a deferred close that was not taken to the worker.
        ~Lock() CSCLIENT_RELEASE();

      private:
        ConnectionState& connection;
    };

    void beginConnecting() CSCLIENT_REQUIRES(connectionMutex);
    bool startWorker(void* (*routine)(void*), void* argument) CSCLIENT_REQUIRES(connectionMutex);
    void beginDisconnecting() CSCLIENT_REQUIRES(connectionMutex);
    /// @return whether the pause between two attempts follows.
    bool beginReconnecting() CSCLIENT_REQUIRES(connectionMutex);
    void announceEnd() CSCLIENT_REQUIRES(connectionMutex);
    /// What follows a release of the lock.
    void closeAsDeferred(std::uint32_t deferredConnection) CSCLIENT_EXCLUDES(connectionMutex);
    bool hasOption(unsigned int option) const { return (options & option) != 0; }

    // Constant after construction.

    Observer& observer;
    const unsigned int options;

    mutable DeferringMutex connectionMutex;

    // Changed under connectionMutex, read by any thread without it.

    std::atomic<CSClient::State> state{CSClient::STATE_DISCONNECTED};
    std::atomic<std::uint32_t> serverAddress{0};
    std::atomic<std::uint32_t> serverPort{0};
    /// The worker while it announces the end, otherwise 0.
    std::atomic<pthread_t> announcingEnd{0};
    /// Counts the connections.
    std::atomic<std::uint32_t> connectionNumber{kNoConnection + 1};

    // Guarded by connectionMutex.

    CSClient::ConnectionOptions connectionOptions CSCLIENT_GUARDED_BY(connectionMutex);
    /// Created and killed under the lock, so that an old worker never ends a new one.
    CSThread workerThread CSCLIENT_GUARDED_BY(connectionMutex);

    // Any thread.

    /// The pause between two attempts to connect.
    InterruptiblePause retryPause;
    /// The connection that a cancelled thread has left to the worker to close, or `kNoConnection`. Nothing more is sent on
    /// it. Set by any thread, taken back by the worker.
    std::atomic<std::uint32_t> abandonedConnection{kNoConnection};
    /// Set by any thread counted in `closeRequesters`, taken back under connectionMutex.
    std::atomic<bool> isCloseRequested{false};
    /// Threads that are requesting a close.
    CSUseCount closeRequesters;
};

}  // namespace com_tesk
