#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/recording_tools/Connections.h"
#include "tools/recording_tools/Reading.h"
#include "tools/recording_tools/Series.h"
#include "tools/recording_tools/Values.h"

namespace com_tesk::recording {

/// The values of some names, reduced to what a picture can show.
class PlotSeries {
  public:
    struct Name {
        std::array<std::vector<Envelope::Point>, 2> points;  ///< Received, published.
        std::vector<Spans::Span> stale;
    };

    /// Reads the recording twice.
    PlotSeries(Reading& reading, const std::vector<std::string>& wanted);

    /// Returns what is known about a name that was wanted.
    const Name& of(const std::string& name) const { return results.at(name); }
    Time duration() const { return latest; }
    const std::vector<Spans::Span>& outages() const { return away; }

  private:
    class Staleness;
    struct Collected;

    void measure(Reading& reading);
    void collect(Reading& reading);

    std::map<std::string, std::array<MedianInterval, 2>> intervals;
    std::map<std::string, Name> results;
    std::vector<Spans::Span> away;
    Time latest{};
};

}  // namespace com_tesk::recording
