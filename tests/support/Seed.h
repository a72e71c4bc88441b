#pragma once

#include <cstdint>

namespace com_tesk {
namespace test {

/// The seed of a test that draws random numbers: `CSCLIENT_SEED` when it is set, so that a failure can be repeated,
/// otherwise a new one each time. Prints it and records it as the test's property `seed`.
std::uint64_t newSeed();

}  // namespace test
}  // namespace com_tesk
