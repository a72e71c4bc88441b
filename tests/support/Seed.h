#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>

namespace com_tesk::test {

/// Returns the seed of a test that uses random numbers. It is `CSCLIENT_SEED` when that is set, so that a failure can
/// be repeated, and otherwise a new one. Prints the seed and records it as the test's property `seed`.
inline std::uint64_t newSeed() {
    const char* const given = std::getenv("CSCLIENT_SEED");
    const std::uint64_t seed = given != nullptr
                                   ? std::strtoull(given, nullptr, 10)
                                   : (std::uint64_t{std::random_device()()} << 32U) + std::random_device()();
    const std::string line = "CSCLIENT_SEED=" + std::to_string(seed);
    std::cout << "[     SEED ] " << line << std::endl;
    testing::Test::RecordProperty("seed", line);
    return seed;
}

}  // namespace com_tesk::test
