#include "tools/recording_tools/Plot.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include "tools/ParameterNames.h"
#include "tools/recording_tools/PlotSeries.h"
#include "tools/recording_tools/Texts.h"

namespace com_tesk::recording {

namespace {

constexpr std::size_t kMaxNames = 32;
constexpr unsigned kWidth = 1200;
constexpr unsigned kHeightOfName = 220;
constexpr unsigned kHeightOfRest = 60;

std::string digitsOf(double number) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.9g", number);
    return text.data();
}

/// Returns a text for gnuplot. In single quotes, only these quotes mean anything. Bytes that are not printable are \xNN.
std::string quoted(const std::string& text) {
    std::string result = "'";
    for (const char character : tools::printable(text)) {
        result.append(character == '\'' ? 2 : 1, character);
    }
    return result + '\'';
}

void appendSpans(std::string& script, const std::vector<Spans::Span>& spans, const char* colour) {
    for (const auto& [begin, end] : spans) {
        script += "set object rectangle from " + secondsOf(begin) + ", graph 0 to " + secondsOf(end) +
                  ", graph 1 back fillcolor rgb '" + colour + "' fillstyle solid 1.0 noborder\n";
    }
}

/// A constant gets a range around it, because an empty range cannot be drawn.
std::string rangeOf(const PlotSeries::Name& name) {
    double least = 0;
    double largest = 0;
    bool isFirst = true;
    for (const auto& points : name.points) {
        for (const auto& [time, value] : points) {
            least = isFirst ? value : std::min(least, value);
            largest = isFirst ? value : std::max(largest, value);
            isFirst = false;
        }
    }
    constexpr double kMargin = 0.05;
    const double margin = least == largest ? std::max(1.0, std::abs(least) * kMargin) : (largest - least) * kMargin;
    return "set yrange [" + digitsOf(least - margin) + ':' + digitsOf(largest + margin) + "]\n";
}

class PlotWriter {
  public:
    PlotWriter(const PlotSeries& plotSeries, std::size_t names, Picture picture) : series(plotSeries) {
        const std::string size =
            std::to_string(kWidth) + ',' + std::to_string(kHeightOfRest + kHeightOfName * static_cast<unsigned>(names));
        plot.script = std::string("set terminal ") + (picture == Picture::SVG ? "svg" : "pngcairo") + " size " + size +
                      " noenhanced background rgb 'white'\nset encoding utf8\nset multiplot layout " +
                      std::to_string(names) + ",1\nset xrange [0:" + secondsOf(std::max(series.duration(), Time(1))) +
                      "]\nset grid\nset key outside right top\nset lmargin 14\nset rmargin 16\nset xlabel 'seconds'\n";
    }

    void add(const std::string& name) {
        const PlotSeries::Name& found = series.of(name);
        if (found.points[0].empty() && found.points[1].empty()) {
            throw std::runtime_error("no finite value of " + tools::shownName(name) + " is in the recording");
        }
        plot.script += "unset object\n";
        appendSpans(plot.script, found.stale, "#dddddd");
        appendSpans(plot.script, series.outages(), "#f4b6b0");
        plot.script += rangeOf(found) + "set ylabel " + quoted(name) + " noenhanced\nplot ";
        bool isFirst = true;
        for (std::size_t i = 0; i < found.points.size(); ++i) {
            if (!found.points.at(i).empty()) {
                plot.script += std::string(isFirst ? "" : ", ") + "'/dev/fd/3' index " + std::to_string(blocks) +
                               " using 1:2 with steps linewidth 1.5 linecolor rgb " +
                               (i == 0 ? "'#1f5fa8' title 'received'" : "'#c0501f' title 'published'");
                appendBlock(found.points.at(i));
                isFirst = false;
            }
        }
        plot.script += '\n';
    }

    Plot finished() {
        plot.script += "unset multiplot\n";
        return std::move(plot);
    }

  private:
    /// Two empty lines separate blocks. A value holds until the end.
    void appendBlock(const std::vector<Envelope::Point>& points) {
        for (const auto& [time, value] : points) {
            plot.values += secondsOf(time) + ' ' + digitsOf(value) + '\n';
        }
        plot.values += secondsOf(series.duration()) + ' ' + digitsOf(points.back().second) + "\n\n\n";
        ++blocks;
    }

    const PlotSeries& series;
    Plot plot;
    unsigned blocks = 0;
};

}  // namespace

Plot plotOf(Reading& reading, const std::vector<std::string>& names, Picture picture) {
    if (names.size() > kMaxNames) {
        throw std::runtime_error("a picture has at most " + std::to_string(kMaxNames) + " names");
    }
    const PlotSeries series(reading, names);
    PlotWriter writer(series, names.size(), picture);
    for (const std::string& name : names) {
        writer.add(name);
    }
    return writer.finished();
}

}  // namespace com_tesk::recording
