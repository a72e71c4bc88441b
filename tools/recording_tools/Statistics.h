#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "tools/recording_tools/Connections.h"
#include "tools/recording_tools/Values.h"

namespace com_tesk::recording {

/// What a recording says about the values of one name in one direction.
struct NameStatistics {
    std::uint64_t count = 0;
    std::uint64_t notFinite = 0;  ///< Of these, infinities and what is no number. Extremes and mean leave them out.
    double least = 0;
    double largest = 0;
    double mean = 0;
    Time first{};
    Time last{};
    Time longestGap{};    ///< Between two values.
    Time longestGapAt{};  ///< When it began.

    void add(Time time, double value);

    /// Returns the values a second between the first and the last one; 0 without two values at different times.
    double rate() const;
};

/// Collects figures. The memory depends on the number of names only.
class Statistics {
  public:
    using Key = std::pair<std::string, Source>;

    void note(const Entry& entry);

    const std::map<Key, NameStatistics>& names() const { return byName; }
    const Connections& connections() const { return following; }
    /// Returns the time of the last entry.
    Time duration() const { return latest; }
    /// Returns the time without a connection, after there has been one.
    Time away() const;
    /// True when the recorder has ended in order.
    bool isEnded() const { return hasEnd; }

  private:
    std::map<Key, NameStatistics> byName;
    Connections following;
    Time awayBefore{};
    Time latest{};
    bool hasEnd = false;
};

}  // namespace com_tesk::recording
