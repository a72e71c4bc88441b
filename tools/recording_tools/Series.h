#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "tools/recording/Entry.h"

/// What pictures need of many values, in memory that does not depend on their number.
namespace com_tesk::recording {

/// Finds the median of the times between values. Each time is counted in one of eight classes for each power of two, so the
/// result is at most an eighth too large.
class MedianInterval {
  public:
    void add(Time time);

    /// Returns nothing with fewer than two values.
    std::optional<Time> median() const;

  private:
    static constexpr unsigned kClassBits = 3;
    static constexpr std::size_t kClasses = 64U << kClassBits;

    static std::size_t classOf(std::uint64_t micros);
    static std::uint64_t upperEnd(std::size_t index);

    std::array<std::uint64_t, kClasses> counts{};
    std::uint64_t total = 0;
    std::optional<Time> last;
};

/// Stretches of time. Stretches with less than `resolution` between them become one, so that there are never more than the
/// duration has such parts.
class Spans {
  public:
    using Span = std::pair<Time, Time>;

    explicit Spans(Time leastGap) : resolution(leastGap) {}

    /// Beginnings ascend.
    void add(Time begin, Time end);

    const std::vector<Span>& all() const { return spans; }

  private:
    const Time resolution;
    std::vector<Span> spans;
};

/// Reduces values to what a picture can show: of each part of the time the first, the smallest, the largest and the last.
class Envelope {
  public:
    using Point = std::pair<Time, double>;

    /// @param width  of a part.
    explicit Envelope(Time width) : partWidth(width) {}

    /// Times ascend. Values are finite.
    void add(Time time, double value);

    /// Returns the points in the order of their times.
    std::vector<Point> points() const;

  private:
    struct Part {
        Time::rep number;
        Point first;
        Point least;
        Point largest;
        Point last;
    };
    const Time partWidth;
    std::vector<Part> parts;
};

}  // namespace com_tesk::recording
