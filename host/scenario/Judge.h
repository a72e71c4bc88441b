#pragma once

#include <cstddef>
#include <deque>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/HostEvent.h"
#include "host/scenario/Expectation.h"

namespace com_tesk::scenario {

/// How an expectation has ended.
struct Outcome {
    Expectation expectation;
    bool isMet = false;
    std::string reason;                   ///< What came instead; empty when it is met.
    std::vector<std::string> lastEvents;  ///< Up to ten, with their times; empty when it is met.
    Duration decidedAt{};                 ///< Since the beginning of the scenario.
};

/// Compares what a client does with the expectations. No clock and no thread: the owner tells the time, which never
/// decreases. One thread at a time.
class Judge {
  public:
    explicit Judge(const std::vector<Expectation>& expectations);

    /// An event of the host.
    void note(const HostEvent& event, Duration now);
    /// An action of the timeline has begun.
    void noteAction(const std::string& name, Duration now);
    /// Decides what time alone decides.
    void advance(Duration now);
    /// The scenario has ended. Everything is then decided.
    void finish(Duration now);

    /// True when no expectation can change any more.
    bool isDecided() const;
    /// True when every expectation that can be met before the end is met. Those about what never happens are not
    /// waited for.
    bool isAllMet() const;
    /// Returns when `advance` has something to decide; nothing when only events decide.
    std::optional<Duration> nextDeadline() const;
    /// Returns the outcomes in the order of the expectations, each before what comes `then`.
    std::vector<Outcome> outcomes() const;

  private:
    enum class State { WAITING, OPEN, MET, FAILED };
    struct Names {
        std::set<std::string> inputs;
        std::set<std::string> outputs;
    };
    struct Watch {
        Expectation expectation;
        std::size_t previous = kNone;  ///< The watch that must be met before.
        State state = State::WAITING;
        Duration began{};
        Duration decidedAt{};
        unsigned count = 0;
        std::map<std::uint64_t, Names> names{};  ///< By client.
        std::optional<Duration> since{};         ///< The first publication of those that last.
        std::string nearest{};                   ///< The last event that was similar.
        std::string reason{};
        std::vector<std::string> lastEvents{};
    };

    static constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();
    static constexpr std::size_t kMaxEvents = 10;

    void add(const Expectation& expectation, std::size_t previous);
    void open(std::size_t index, Duration now);
    void meet(std::size_t index, Duration now);
    void fail(Watch& watch, Duration now, const std::string& reason);
    void happened(std::size_t index, Duration now, const std::string& text);
    void noteNames(std::size_t index, const HostEvent& event, Duration now, const std::string& text);
    void notePublication(std::size_t index, const HostEvent& event, Duration now, const std::string& text);
    void advance(std::size_t index, Duration now);
    void expire(std::size_t index, Duration now);
    static std::optional<Duration> deadlineOf(const Watch& watch);
    static std::string missing(const Watch& watch);

    std::vector<Watch> watches;
    std::map<std::string, Duration> actions;  ///< When each happened first.
    std::deque<std::string> events;
};

}  // namespace com_tesk::scenario
