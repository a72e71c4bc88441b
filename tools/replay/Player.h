#pragma once

#include <functional>
#include <optional>

#include "tools/recording/Recording.h"
#include "tools/replay/Distribution.h"
#include "tools/replay/Plan.h"
#include "tools/replay/Timeline.h"

namespace com_tesk::replay {

/// Sleeps until the time has come.
/// @return false when a signal wants the replay to end.
using Sleep = std::function<bool(Clock::time_point)>;

/// Reads the entries of a replay, and hands out each at its time.
class Player {
  public:
    /// What the two roles do with the entries.
    struct Handler {
        /// An entry whose time has come, and its time in the replay.
        std::function<void(const recording::Entry&, Time play)> play;
        /// An entry that is no message, or not part of the replay: a header, a state, everything before the beginning.
        std::function<void(const recording::Entry&)> pass;
        /// Called at least every 20 ms while the replay waits. All entries before this time have been handed out.
        /// @return false to end the replay.
        std::function<bool(Time play)> idle;
    };

    /// The references outlive this object.
    Player(recording::Recording& source, const Plan& replayPlan, const Options& replayOptions, Sleep sleepFunction);

    /// Plays everything once. Its times are counted from `began`.
    /// @return false when it was ended before.
    bool play(Clock::time_point began, const Handler& handler);

    /// Waits so long after the end of the last `play`.
    bool waitAfterEnd(Clock::duration time, const Handler& handler);

    /// Hands the entries after the replay to `pass`.
    void passRest(const Handler& handler);

    const Timeline& timeline() const { return *current; }
    /// Returns the time of the end in the replay, and when it was or will be reached. Valid after `play`.
    /// @{
    Time end() const { return endPlay; }
    Clock::time_point endTime() const { return started + current->realTimeOf(endPlay); }
    /// @}

    /// How late the messages were.
    const Distribution& lateness() const { return late; }

  private:
    bool waitFor(Clock::time_point deadline, Time known, const Handler& handler);

    recording::Recording& recording;
    const Plan& plan;
    const Options& options;
    const Sleep sleepUntil;
    std::optional<Timeline> current;
    std::optional<recording::Entry> rest;
    Clock::time_point started;
    Time endPlay{};
    Distribution late;
};

}  // namespace com_tesk::replay
