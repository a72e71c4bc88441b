#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include "tests/model/Step.h"

namespace com_tesk::test {

/// Where the engine and the model first differ.
struct Difference {
    std::size_t step = 0;
    std::string what;
};

/// Performs a sequence with the engine and with the model. Compares after each step what has happened, the four tables, and
/// the answers of queries about a few names; of all names every now and then and at the end.
/// @param onFrame  called with each frame that the engine has sent.
std::optional<Difference> firstDifference(
    const StepSequence& sequence,
    const std::function<void(const std::string& frame)>& onFrame = [](const std::string&) {});

}  // namespace com_tesk::test
