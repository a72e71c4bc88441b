#include "tests/support/Seed.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <random>
#include <string>

namespace com_tesk::test {

std::uint64_t newSeed() {
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
