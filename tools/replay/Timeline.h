#pragma once

#include <optional>
#include <utility>
#include <vector>

#include "tools/replay/Options.h"

namespace com_tesk::replay {

/// The time of a replay: it begins with 0, has the speed of the recording, and its long gaps are shortened.
class Timeline {
  public:
    Timeline(Time recordedBegin, double playRate, std::optional<Time> longestGap)
        : begin(recordedBegin), rate(playRate), maxGap(longestGap), last(recordedBegin) {}

    /// Returns the time of an entry in the replay. Call it for each entry that is played, in order.
    Time playTimeOf(Time recorded);

    /// Returns the time of the recording at a time of the replay.
    Time recordedTimeOf(Time play) const;

    /// Returns how long after its beginning the replay reaches that time.
    Clock::duration realTimeOf(Time play) const;

    /// Returns the time of the replay, so long after its beginning.
    Time playTimeAfter(Clock::duration real) const;

  private:
    const Time begin;
    const double rate;
    const std::optional<Time> maxGap;
    Time last;
    Time removed{};
    std::vector<std::pair<Time, Time>> gaps;  ///< From this time of the replay on, so much has been removed.
};

}  // namespace com_tesk::replay
