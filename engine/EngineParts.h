#pragma once

#include <cstdint>
#include <initializer_list>
#include <string_view>

#include "client/CSClient.h"
#include "comms/AtScopeEnd.h"
#include "comms/ThreadSafety.h"
#include "engine/CSClientProtocol.h"
#include "engine/CallbackRegistry.h"
#include "engine/ConnectionState.h"
#include "engine/FrameChannel.h"
#include "engine/HostVersion.h"
#include "engine/ParameterTables.h"

namespace com_tesk {

/// The parts of an engine, and the calls between them. Each part owns its data and its lock.
///
/// Locks, in the order in which one thread may take them:
///   1. `connectionMutex` (ConnectionState): held through every state change, and so through
///      `connectionStateChanged`, the version request and the re-registration that a change to `STATE_READY` starts.
///   2. `parameterMutex` (ParameterTables): held while the tables are read or changed, and while the request for the
///      change is written.
///   3. `namesMutex` (EntryTable), `callbackMutex` (CallbackRegistry), `versionMutex` (HostVersion): each held
///      briefly. No other lock is taken and no callback is made under them.
///
/// After a failed write under one of the first two, the thread cannot close the connection at once: closing takes the
/// first lock, and sleeps. The close is deferred. The same thread performs it once it holds neither.
class CSClientProtocol::Parts final : private ConnectionState::Observer, private FrameChannel::Owner {
  public:
    /// Opens nothing and starts no thread.
    Parts(CSClientProtocol& composedEngine, unsigned int optionFlags);
    Parts(const Parts&) = delete;
    Parts& operator=(const Parts&) = delete;
    ~Parts() = default;

    const unsigned int options;
    ConnectionState connection;
    CallbackRegistry callbacks;
    ParameterTables tables;
    FrameChannel frames;
    HostVersion host;

    /// True when diagnostics are not printed.
    bool isSilent() const { return (options & CSClient::OPTION_SILENT) != 0; }

    /// Returns the order in which the calling thread gets the lock of the tables.
    ParameterTables::Order orderOfThisThread() const {
        return connection.isChangedByThisThread() ? ParameterTables::Order::FIRST : ParameterTables::Order::YIELDING;
    }

    /// Runs `step` with `parameterMutex` held, then performs a deferred close.
    /// @return the result of `step`.
    template <typename Step>
    int underParameterLock(const Step& step) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
        int result = 0;
        std::uint32_t deferred;  // Assigned before the lock is released.
        {
            const ParameterTables::Lock lock(tables, orderOfThisThread());
            // Takes effect when an exception or a cancellation leaves the step.
            const AtScopeEnd leaveToTheWorker([this]() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
                const std::uint32_t left = tables.mutex().takeDeferred();
                if (left != kNoConnection) {
                    connection.abandon(left);
                }
            });
            result = step();
            deferred = tables.mutex().takeDeferred();
        }
        if (deferred != kNoConnection) {
            closeAfterFailedWrite(deferred);
        }
        return result;
    }

    /// Closes a connection on which a write has failed, as soon as this thread holds no lock of the engine. Does
    /// nothing when that connection has ended meanwhile.
    void closeAfterFailedWrite(std::uint32_t failedConnection);

    /// Closes the connection after a failure, or begins the next attempt.
    void closeAfterFailure() { connection.closeOrReconnect(); }

    /// @name The worker (engine/Worker.cpp)
    /// @{

    /// Runs the engine in `engine` until its connection ends: the routine of the worker thread.
    /// @return null.
    static void* runWorker(void* engine);

    /// Runs one cycle of the worker's loop, by the state; false when the loop is complete.
    bool runOnce();

    /// Makes one connection attempt. See `CSClientProtocol::startConnection`.
    int startConnection();
    /// @}

    /// @name Re-registration (engine/Reregistration.cpp)
    /// @{

    /// True when a registration that was just made is left to the re-registration. Then it stores that there was one.
    bool isLeftToReregistration(ReregistrationGate& gate) const CSCLIENT_REQUIRES(tables.mutex());

    /// Sends every registration again, when there are any.
    void reregisterAll();
    void reregisterInputs();
    void reregisterOutputs();
    /// @}

  private:
    void stateChanged(CSClient::State oldState, CSClient::State newState) override;
    void setInterrupted(bool isInterrupted) override;

    bool maySend() const override;
    std::uint32_t connectionToWriteTo() const override;
    void writeAbandoned(std::uint32_t abandoned) override;
    void writeFailed(std::uint32_t failedConnection, int error) override;
    void readFailed(std::initializer_list<std::string_view> line) override;
    void bodyReceived(const RawMessage& body) override;

    void runUntilEnd();

    /// Sends the registrations that were left to a re-registration that was not made.
    void registerWhatIsLeft();
    /// True when there is nothing to register again. From then on nothing is left to the re-registration.
    bool isNothingRegistered();

    CSClientProtocol& engine;
};

}  // namespace com_tesk
