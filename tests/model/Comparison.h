#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "tests/model/Step.h"

namespace com_tesk::test {

/// Where the engine and the model part.
struct Difference {
    std::size_t step = 0;
    std::string what;
};

/// Lives a life with the engine and with the model, and compares after each step what has happened, the four tables,
/// the counters, and the answers of queries about a few names; of all names every now and then and at the end.
std::optional<Difference> firstDifference(const Life& life);

}  // namespace com_tesk::test
