#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

#include "host/LoopbackHost.h"
#include "tools/replay/Blessing.h"
#include "tools/replay/Comparison.h"
#include "tools/replay/Player.h"
#include "tools/scenario/Program.h"

namespace com_tesk::replay {

/// Prints a line for people on standard error, after the program's name.
using Say = std::function<void(const std::string&)>;

/// The program could not be started.
class ProgramNotStarted : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Plays the host's side of a recording for a client, and compares what the client publishes.
class HostReplay {
  public:
    /// The references outlive this object.
    HostReplay(const Options& replayOptions, const Rules& outputRules, recording::Recording& source,
               Sleep sleepFunction, Say sayFunction);

    /// Plays it, on the calling thread. Prints the table of the check on standard output.
    /// @throws std::system_error  the host cannot listen, or a file cannot be written.
    /// @throws ProgramNotStarted
    /// @throws std::runtime_error the recording has nothing to replay.
    Result run();

    const Player& played() const { return player; }

  private:
    enum class Ending : std::uint8_t { AT_END, SIGNAL, PROGRAM };

    void note(const HostEvent& event);
    bool waitForClient();
    void playAll();
    void play(const recording::Entry& entry, Time time);
    void confirm(const recording::Confirmation& confirmation);
    void lose(const Plan::Loss& loss);
    bool idle(Time known);
    void beginAgain();
    Result finish();
    void reportMissing() const;

    const Options& options;
    const Selection selection;
    recording::Recording& recording;
    const Say say;
    const Sleep sleep;
    const Plan plan;
    const Timeline clock;  ///< For the thread of the host, because the player makes a new one for each pass.
    Player player;
    Time window{};  ///< The largest one, in real time.
    std::optional<Comparison> comparison;
    std::optional<Blessing> blessing;
    std::optional<LoopbackHost> host;
    std::optional<scenario::Program> program;
    std::optional<std::string> programEnd;
    Time programEndTime{};  ///< In the recording.
    std::size_t nextLoss = 0;
    Ending ending = Ending::AT_END;

    mutable std::mutex mutex;
    std::map<Plan::Registered, bool> missing;  // guarded by mutex: what the client has not registered
    std::optional<Clock::time_point> began;    // guarded by mutex
    bool isOver = false;                       // guarded by mutex: what is published from now on does not count
};

}  // namespace com_tesk::replay
