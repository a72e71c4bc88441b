#pragma once

#include <cstdint>

namespace com_tesk::test {

/// Returns the seed of a test that uses random numbers. It is `CSCLIENT_SEED` when that is set, so that a failure can
/// be repeated, and otherwise a new one. Prints the seed and records it as the test's property `seed`.
std::uint64_t newSeed();

}  // namespace com_tesk::test
