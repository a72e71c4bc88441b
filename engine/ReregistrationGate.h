#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include "engine/DeferringMutex.h"

namespace com_tesk {

/// Whether the registrations of inputs, or of outputs, have reached the host on the connection that stands. From the
/// beginning of a connection until its re-registration, what other threads register is left to that re-registration, so
/// that nothing is registered twice.
///
/// Its user holds `parameterMutex`, except in `isPassed`.
class ReregistrationGate {
  public:
    /// Whether the re-registration on this connection was made. Also without the lock, for the thread that changes the
    /// state.
    bool isPassed(std::uint32_t connection) const { return passedOn == connection; }

    /// Something was registered and left to the re-registration.
    void leave() { hasLeft = true; }

    /// The re-registration on this connection begins: it takes all that is in the table.
    /// @return whether anything was left to it.
    bool pass(std::uint32_t connection) {
        passedOn = connection;
        return std::exchange(hasLeft, false);
    }

  private:
    std::atomic<std::uint32_t> passedOn{kNoConnection + 1};
    bool hasLeft = false;
};

}  // namespace com_tesk
