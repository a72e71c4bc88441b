#pragma once

#include <chrono>

namespace com_tesk {

/// Waits until a socket is ready for any of `events`, has failed, or the deadline has passed. Signals do not end the
/// wait. A cancellation point.
/// @param events  as for `poll`.
/// @return the events, as from `poll`; 0 when the deadline has passed; -1 when the system cannot wait.
short waitUntilReady(int descriptor, short events, std::chrono::steady_clock::time_point deadline);

}  // namespace com_tesk
