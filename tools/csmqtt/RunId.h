#pragma once

#include <string>
#include <string_view>

namespace com_tesk::mqtt {

/// Run ids tell the runs of bridges apart. One is the time of the start in milliseconds and a random number:
/// "1795453322571-123".

/// Returns a new run id.
std::string newRunId();

/// Returns whether the run `one` has started after the run `other`. False when `one` is no run id.
bool isLaterRun(std::string_view one, std::string_view other);

/// Returns the run id in the payload of `BASE/$stats`; empty without one.
std::string_view runIdInStatistics(std::string_view payload);

}  // namespace com_tesk::mqtt
