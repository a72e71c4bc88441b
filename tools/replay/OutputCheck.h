#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "host/Value.h"
#include "tools/replay/Distribution.h"
#include "tools/replay/Rules.h"

namespace com_tesk::replay {

/// The result of the check of one output.
struct Finding {
    struct Difference {
        Time time{};           ///< Of the replay.
        std::string expected;  ///< For people: the value within the window that is nearest to `got`, or "nothing".
        std::string got;       ///< And the one that is nearest to `expected`.
    };

    std::uint64_t compared = 0;  ///< Recorded values.
    std::optional<Difference> first;
    double largestError = 0;  ///< Infinite when there was nothing to compare with.
    Distribution latency;     ///< Of the program's values after the recorded ones, in the time of the replay.

    /// Notes a difference, when it is the earliest.
    void note(Time time, std::string expected, std::string got);
};

/// Compares what a program publishes for one output with what was recorded. One thread at a time.
class OutputCheck {
  public:
    virtual ~OutputCheck() = default;

    /// The recorded client has published this value before the replay. The program may publish it too.
    virtual void know(HostValue value) = 0;
    /// Values of the recording and of the program, each in the order of time.
    /// @{
    virtual void expect(Time time, HostValue value) = 0;
    virtual void publish(Time time, HostValue value) = 0;
    /// @}

    /// All values before that time have been given. Judges what can be judged.
    virtual void advance(Time known) = 0;
    /// The replay has ended at `end`, and the program had the time of its window after it.
    virtual void finish(Time end) = 0;

    const Finding& finding() const { return found; }

  protected:
    OutputCheck() = default;
    Finding found;
};

/// Makes the check of an output that is not ignored.
std::unique_ptr<OutputCheck> checkOf(const Rule& rule);

/// The difference of two values; 0 when they are equal within the tolerance of 0, infinite between a number and what is
/// no number, and between an integer and a float.
double errorOf(HostValue one, HostValue other);

/// Returns the shortest text that reads back the same value: 12.5, or i:3 for an integer.
std::string textOf(HostValue value);

}  // namespace com_tesk::replay
