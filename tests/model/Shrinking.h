#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "tests/model/Step.h"

namespace com_tesk::test {

/// Returns a shorter sequence that still fails. Removes lines of the text form, then words of its lines, for as long as
/// that helps and the time lasts: many at once first, then single ones.
/// @param fails  whether a sequence fails; true for `sequence`.
StepSequence shrunk(const StepSequence& sequence, const std::function<bool(const StepSequence&)>& fails,
                    std::chrono::milliseconds time);

}  // namespace com_tesk::test
