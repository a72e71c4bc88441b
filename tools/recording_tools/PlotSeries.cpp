#include "tools/recording_tools/PlotSeries.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "tools/recording_tools/Texts.h"

namespace com_tesk::recording {

/// Finds the times at which a name had no recent value.
class PlotSeries::Staleness {
  public:
    Staleness(std::optional<Time> permittedSilence, Time resolution) : permitted(permittedSilence), spans(resolution) {}

    /// The last connection was lost.
    void lose(Time time) {
        if (last && !lostAt) {
            lostAt = time;
        }
    }
    /// There is a value, or the recording ends.
    void take(Time time) {
        if (last) {
            Time begin = permitted ? *last + *permitted : time;
            begin = lostAt ? std::min(begin, *lostAt) : begin;
            if (begin < time) {
                spans.add(begin, time);
            }
        }
        last = time;
        lostAt.reset();
    }
    const std::vector<Spans::Span>& all() const { return spans.all(); }

  private:
    const std::optional<Time> permitted;
    std::optional<Time> last;
    std::optional<Time> lostAt;
    Spans spans;
};

struct PlotSeries::Collected {
    Collected(std::optional<Time> permitted, Time width)
        : staleness(permitted, width), envelopes{Envelope(width), Envelope(width)} {}

    Staleness staleness;
    std::array<Envelope, 2> envelopes;
};

PlotSeries::PlotSeries(Reading& reading, const std::vector<std::string>& wanted) {
    for (const std::string& name : wanted) {
        intervals[name];
        results[name];
    }
    measure(reading);
    reading.rewind();
    collect(reading);
}

void PlotSeries::measure(Reading& reading) {
    while (const auto entry = reading.next()) {
        latest = entry->time;
        forEachValue(*entry, [&](Source source, const NamedValue& value) {
            if (const auto found = intervals.find(nameOf(value)); found != intervals.end()) {
                found->second.at(static_cast<std::size_t>(source)).add(entry->time);
            }
        });
    }
}

void PlotSeries::collect(Reading& reading) {
    constexpr Time::rep kParts = 1000;
    constexpr Time kLeastSilence = std::chrono::seconds(1);
    constexpr int kIntervals = 10;
    const Time width(latest.count() / kParts + 1);
    std::map<std::string, Collected> collected;
    for (const auto& [name, medians] : intervals) {
        const std::optional<Time> one = medians[0].median();
        const std::optional<Time> other = medians[1].median();
        std::optional<Time> permitted;
        if (one || other) {
            permitted = std::max(kLeastSilence, kIntervals * std::max(one.value_or(Time(0)), other.value_or(Time(0))));
        }
        collected.try_emplace(name, permitted, width);
    }
    Connections connections;
    Spans outages(width);
    while (const auto entry = reading.next()) {
        if (const auto outage = connections.note(*entry)) {
            outages.add(outage->begin, outage->end);
        }
        if (connections.current()) {
            for (auto& [name, each] : collected) {
                each.staleness.lose(connections.current()->begin);
            }
        }
        forEachValue(*entry, [&](Source source, const NamedValue& value) {
            const auto found = collected.find(nameOf(value));
            if (found == collected.end()) {
                return;
            }
            found->second.staleness.take(entry->time);
            if (const double number = numberOf(value.value); std::isfinite(number)) {
                found->second.envelopes.at(static_cast<std::size_t>(source)).add(entry->time, number);
            }
        });
    }
    if (connections.current()) {
        outages.add(connections.current()->begin, latest);
    }
    away = outages.all();
    for (auto& [name, each] : collected) {
        each.staleness.take(latest);
        Name& result = results[name];
        result.stale = each.staleness.all();
        for (std::size_t i = 0; i < result.points.size(); ++i) {
            result.points.at(i) = each.envelopes.at(i).points();
        }
    }
}

}  // namespace com_tesk::recording
