#pragma once

#include "tests/support/Waiting.h"

namespace com_tesk::session_test {

/// Names that this program resolves itself, so that no test asks a name server.
constexpr const char* kLoopbackName = "loopback.test";  ///< 127.0.0.1.
constexpr const char* kUnknownName = "unknown.test";    ///< No such name.
constexpr const char* kSlowName = "slow.test";          ///< Unknown, once `slowNameGate` is open.

/// Stops the look-ups of `kSlowName`.
test::Gate& slowNameGate();

}  // namespace com_tesk::session_test
