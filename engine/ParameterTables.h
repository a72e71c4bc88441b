#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "comms/ThreadSafety.h"
#include "engine/DeferringMutex.h"
#include "engine/InputTable.h"
#include "engine/OutputTable.h"

namespace com_tesk {

/// The registered inputs and outputs of an engine, and the lock that guards them, `parameterMutex`. It is held while
/// the tables are read or changed, and while the request for a change is written.
class ParameterTables {
  public:
    /// The order in which waiting threads get the lock.
    enum class Order {
        /// For the worker, and for a thread that changes the state: the host waits for them.
        FIRST,
        /// For every other thread. Without it, a thread that publishes in a tight loop would keep the worker from the
        /// lock.
        YIELDING,
    };

    /// Holds the lock for a scope.
    class CSCLIENT_SCOPED_CAPABILITY Lock {
      public:
        Lock(const ParameterTables& lockedTables, Order order) CSCLIENT_ACQUIRE(lockedTables.parameterMutex);
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;
        ~Lock() CSCLIENT_RELEASE() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS { tables.parameterMutex.unlock(); }

      private:
        const ParameterTables& tables;
    };

    ParameterTables() = default;
    ParameterTables(const ParameterTables&) = delete;
    ParameterTables& operator=(const ParameterTables&) = delete;
    ~ParameterTables() = default;

    DeferringMutex& mutex() const CSCLIENT_RETURN_CAPABILITY(parameterMutex) { return parameterMutex; }

    /// @name With the lock held
    /// @{
    InputTable& inputs() CSCLIENT_REQUIRES(parameterMutex) { return inputTable; }
    OutputTable& outputs() CSCLIENT_REQUIRES(parameterMutex) { return outputTable; }
    /// @}

    /// @name Queries
    /// Any thread. They block while another thread holds the lock. See the operations of `CSClientProtocol`.
    /// @{
    unsigned int numberOfInputs(bool confirmed) const CSCLIENT_EXCLUDES(parameterMutex);
    unsigned int numberOfOutputs(bool confirmed) const CSCLIENT_EXCLUDES(parameterMutex);
    int unconfirmedInputs() const CSCLIENT_EXCLUDES(parameterMutex);
    int unconfirmedOutputs() const CSCLIENT_EXCLUDES(parameterMutex);
    bool hasInput(const std::string& name, bool confirmed) const CSCLIENT_EXCLUDES(parameterMutex);
    bool hasOutput(const std::string& name, bool confirmed) const CSCLIENT_EXCLUDES(parameterMutex);
    bool findPublished(const std::string& name, CSClient::Parameter& parameter) const CSCLIENT_EXCLUDES(parameterMutex);
    void appendAllPublished(std::vector<CSClient::Parameter>& parameters) const CSCLIENT_EXCLUDES(parameterMutex);
    /// @}

    /// @name Names, in ascending order
    /// Any thread. They do not wait for a request that is being written.
    /// @{
    std::vector<std::string> inputNames() const CSCLIENT_NO_THREAD_SAFETY_ANALYSIS { return inputTable.names(); }
    std::vector<std::string> outputNames() const CSCLIENT_NO_THREAD_SAFETY_ANALYSIS { return outputTable.names(); }
    /// @}

    /// Erases every parameter.
    void clear() CSCLIENT_EXCLUDES(parameterMutex);

    /// True when everything was registered again on this connection. For the thread that changes the state, without
    /// the lock.
    bool isReregistered(std::uint32_t connection) const CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
        return inputTable.gate().isPassed(connection) && outputTable.gate().isPassed(connection);
    }

    /// @name Deferred closes
    /// @{

    /// Stores that this connection is to be closed after the calling thread has released the lock.
    /// @return false when the calling thread does not hold the lock; nothing was then stored.
    bool deferClose(std::uint32_t connection);

    /// True when the calling thread holds the lock and has stored a connection.
    bool hasDeferredClose() const;
    /// @}

  private:
    friend class PartAccess;

    /// Locks. Yielding threads wait meanwhile.
    void lockFirst() const CSCLIENT_ACQUIRE(parameterMutex);
    void lockYielding() const CSCLIENT_ACQUIRE(parameterMutex);

    mutable DeferringMutex parameterMutex;
    InputTable inputTable CSCLIENT_GUARDED_BY(parameterMutex);
    OutputTable outputTable CSCLIENT_GUARDED_BY(parameterMutex);

    /// Number of threads that wait for the lock in `lockFirst`.
    mutable std::atomic<int> waitingFirst{0};
};

}  // namespace com_tesk
