// csx stats: figures about the values of a recording.

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <utility>
#include <vector>

#include "tools/csx/Analysis.h"
#include "tools/csx/OpenRecording.h"
#include "tools/csx/Texts.h"
#include "tools/recording_tools/Reading.h"
#include "tools/recording_tools/Statistics.h"
#include "tools/recording_tools/Texts.h"

namespace com_tesk::csx {

namespace {

using recording::NameStatistics;
using recording::Source;
using recording::Statistics;
using Record = std::vector<Field>;

std::string digitsOf(double number) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.9g", number);
    return text.data();
}

Field numberField(const std::string& name, const std::string& text) {
    return {name, text, true};
}

/// In JSON, a number that there is not is null. In the other formats, the text is empty or a dash.
Field finiteField(const std::string& name, const NameStatistics& figures, double number, Format format) {
    if (figures.notFinite != figures.count) {
        return numberField(name, digitsOf(number));
    }
    return numberField(name, format == Format::JSON ? "null" : format == Format::CSV ? "" : "-");
}

Record recordOf(const Statistics::Key& key, const NameStatistics& figures, Format format) {
    return {{"name", format == Format::TEXT ? shownName(key.first) : key.first},
            {"direction", key.second == Source::RECEIVED ? "update" : "publish"},
            numberField("count", std::to_string(figures.count)),
            numberField("rate", digitsOf(figures.rate())),
            finiteField("min", figures, figures.least, format),
            finiteField("max", figures, figures.largest, format),
            finiteField("mean", figures, figures.mean, format),
            numberField("first", recording::secondsOf(figures.first)),
            numberField("last", recording::secondsOf(figures.last)),
            numberField("longest_gap", recording::secondsOf(figures.longestGap)),
            numberField("longest_gap_at", recording::secondsOf(figures.longestGapAt)),
            numberField("not_finite", std::to_string(figures.notFinite))};
}

Record summaryOf(const Statistics& statistics) {
    const recording::Connections& connections = statistics.connections();
    return {numberField("duration", recording::secondsOf(statistics.duration())),
            numberField("connections", std::to_string(connections.established())),
            numberField("lost_by_host", std::to_string(connections.lostByHost())),
            numberField("lost_by_client", std::to_string(connections.lostByClient())),
            numberField("unanswered", std::to_string(connections.unanswered())),
            numberField("away", recording::secondsOf(statistics.away())),
            numberField("ended", statistics.isEnded() ? "true" : "false")};
}

/// Prints a heading and the records in columns. The first two columns are texts, the others numbers.
void printTable(const std::vector<Record>& records, DataOutput& output) {
    std::vector<std::vector<std::string>> rows(1);
    for (const Field& field : records.front()) {
        rows.front().push_back(field.name);
    }
    for (const Record& record : records) {
        std::vector<std::string> row;
        std::transform(record.begin(), record.end(), std::back_inserter(row),
                       [](const Field& field) { return field.text; });
        rows.push_back(std::move(row));
    }
    std::vector<std::size_t> widths(rows.front().size());
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string blanks(widths[i] - row[i].size(), ' ');
            line += i == 0 ? "" : "  ";
            line += i < 2 ? row[i] + blanks : blanks + row[i];
        }
        output.line(line);
    }
}

void printText(const Statistics& statistics, const std::vector<Record>& records, DataOutput& output) {
    for (const Field& field : summaryOf(statistics)) {
        output.line(field.name + ' ' + field.text);
    }
    if (!records.empty()) {
        output.line("");
        printTable(records, output);
    }
}

}  // namespace

ExitCode stats(const CommonOptions& common, const AnalysisOptions& options, Signals& signals) {
    const auto source = openRecording(options.log);
    if (!source) {
        return NO_HOST;
    }
    recording::Reading reading(*source, [&signals] { throwWhenInterrupted(signals); });
    Statistics statistics;
    while (const auto entry = reading.next()) {
        statistics.note(*entry);
    }
    std::vector<Record> records;
    records.reserve(statistics.names().size());
    for (const auto& [key, figures] : statistics.names()) {
        records.push_back(recordOf(key, figures, common.format));
    }
    DataOutput output(signals);
    if (common.format == Format::TEXT) {
        printText(statistics, records, output);
    } else {
        Printer printer(common.format, TimeStyle::NONE, output);
        if (common.format == Format::JSON) {
            printer.record(summaryOf(statistics));
        }
        for (const Record& record : records) {
            printer.record(record);
        }
    }
    reportFlaws(*source);
    return DONE;
}

}  // namespace com_tesk::csx
