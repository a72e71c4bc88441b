#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <random>
#include <string>

#include "tests/model/Step.h"

namespace com_tesk::test {

/// A sequence of `count` random steps. They use few names and ids, so that steps often concern the same parameters.
/// @param rules  replace rules of the grammar in RandomSequence.cpp, in the same form.
StepSequence randomSequence(std::mt19937_64& random, std::size_t count, const std::string& rules = "");

/// Returns a shorter sequence that still fails. Removes lines of the text form, then words of its lines, for as long as
/// that helps and the time lasts: many at once first, then single ones.
/// @param fails  whether a sequence fails; true for `sequence`.
StepSequence shrunk(const StepSequence& sequence, const std::function<bool(const StepSequence&)>& fails,
                    std::chrono::milliseconds time);

}  // namespace com_tesk::test
