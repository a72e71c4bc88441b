#pragma once

#include <chrono>
#include <cstdint>
#include <map>

namespace com_tesk::replay {

/// Counts durations, and tells their percentiles. Its memory does not grow with their number.
class Distribution {
  public:
    using Duration = std::chrono::microseconds;

    /// Negative durations are permitted.
    void add(Duration duration);

    std::uint64_t count() const { return total; }
    /// Returns the largest one; 0 without any.
    Duration max() const { return largest; }
    /// Returns a duration that this share of all durations does not exceed, within 2 %; 0 without any.
    Duration percentile(double share) const;

  private:
    std::map<std::int32_t, std::uint64_t> counts;  ///< By bucket. Buckets are as wide as 1/32 of their durations.
    std::uint64_t total = 0;
    Duration largest{};
};

}  // namespace com_tesk::replay
