#pragma once

#include <chrono>
#include <functional>

#include "tests/model/Step.h"

namespace com_tesk::test {

/// A shorter life that still fails: takes away runs of steps, from long ones to single ones, then single records, for
/// as long as that helps and the time lasts.
/// @param fails  whether a life fails; true for `life`.
Life shrunk(Life life, const std::function<bool(const Life&)>& fails, std::chrono::milliseconds time);

}  // namespace com_tesk::test
