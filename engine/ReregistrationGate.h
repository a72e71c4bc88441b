#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include "engine/DeferringMutex.h"

namespace com_tesk {

/// Stores whether the re-registration of inputs, or of outputs, has been made on the current connection. From the
/// beginning of a connection until its re-registration, registrations by other threads are left to that
/// re-registration, so that nothing is registered twice.
///
/// The caller holds `parameterMutex`, except in `isPassed`.
class ReregistrationGate {
  public:
    /// True when the re-registration on this connection was made. The thread that changes the state may call it
    /// without the lock.
    bool isPassed(std::uint32_t connection) const { return passedOn == connection; }

    /// Stores that a registration was left to the re-registration.
    void leave() { hasLeft = true; }

    /// Stores that the re-registration on this connection begins. It covers everything that is in the table.
    /// @return true when a registration was left to it.
    bool pass(std::uint32_t connection) {
        passedOn = connection;
        return std::exchange(hasLeft, false);
    }

  private:
    std::atomic<std::uint32_t> passedOn{kNoConnection + 1};
    bool hasLeft = false;
};

}  // namespace com_tesk
