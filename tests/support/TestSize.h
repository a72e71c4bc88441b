#pragma once

#include <cstdlib>

namespace com_tesk::test {

/// True when sweeps and stress tests run in their long form: `CSCLIENT_FULL_SIZE` is set. scripts/soak sets it.
inline bool isFullSize() {
    return std::getenv("CSCLIENT_FULL_SIZE") != nullptr;
}

/// Returns how often a sweep or stress test repeats its work: `normal` in the suite, `full` in the long form.
template <typename Count>
Count sized(Count normal, Count full) {
    return isFullSize() ? full : normal;
}

}  // namespace com_tesk::test
