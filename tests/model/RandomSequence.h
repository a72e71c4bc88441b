#pragma once

#include <cstddef>
#include <random>
#include <string>

#include "tests/model/Step.h"

namespace com_tesk::test {

/// A sequence of `count` random steps. They use few names and ids, so that steps often concern the same parameters.
/// @param rules  replace rules of the grammar in RandomSequence.cpp, in the same form.
StepSequence randomSequence(std::mt19937_64& random, std::size_t count, const std::string& rules = "");

}  // namespace com_tesk::test
