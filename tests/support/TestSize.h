#pragma once

#include <cstdlib>

namespace com_tesk {
namespace test {

/// Whether the long form of the sweeps and storms is wanted: `CSCLIENT_FULL_SIZE` is set. scripts/soak sets it.
inline bool isFullSize() {
    return std::getenv("CSCLIENT_FULL_SIZE") != nullptr;
}

/// How often a sweep or storm does what it does: `normal` in the suite, `full` in its long form.
template <typename Count>
Count sized(Count normal, Count full) {
    return isFullSize() ? full : normal;
}

}  // namespace test
}  // namespace com_tesk
