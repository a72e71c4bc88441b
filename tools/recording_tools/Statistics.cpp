#include "tools/recording_tools/Statistics.h"

#include <algorithm>
#include <cmath>

#include "tools/recording_tools/Texts.h"

namespace com_tesk::recording {

void NameStatistics::add(Time time, double value) {
    if (count == 0) {
        first = time;
    } else if (time - last > longestGap) {
        longestGap = time - last;
        longestGapAt = last;
    }
    last = time;
    ++count;
    if (!std::isfinite(value)) {
        ++notFinite;
        return;
    }
    const std::uint64_t finite = count - notFinite;
    least = finite == 1 ? value : std::min(least, value);
    largest = finite == 1 ? value : std::max(largest, value);
    mean += (value - mean) / static_cast<double>(finite);
}

double NameStatistics::rate() const {
    return last == first ? 0 : static_cast<double>(count - 1) / numberOf(last - first);
}

void Statistics::note(const Entry& entry) {
    latest = entry.time;
    hasEnd = std::holds_alternative<End>(entry.content);
    if (const auto outage = following.note(entry)) {
        awayBefore += outage->end - outage->begin;
    }
    forEachValue(entry, [&](Source source, const NamedValue& value) {
        byName[{nameOf(value), source}].add(entry.time, numberOf(value.value));
    });
}

Time Statistics::away() const {
    return awayBefore + (following.current() ? latest - following.current()->begin : Time(0));
}

}  // namespace com_tesk::recording
