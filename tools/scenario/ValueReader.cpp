#include "tools/scenario/ValueReader.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fstream>

#include "host/scenario/Numbers.h"

namespace com_tesk::scenario {

namespace {

Ramp readRamp(Fields& fields, const YAML::Node& node) {
    Ramp ramp;
    ramp.over = std::chrono::seconds(10);
    if (fields.isMapOf(node, {"from", "to", "over", "rate", "repeat"})) {
        ramp.from = node["from"] ? fields.number(node["from"], "from") : ramp.from;
        ramp.to = node["to"] ? fields.number(node["to"], "to") : ramp.to;
        ramp.over = node["over"] ? fields.duration(node["over"], "over") : ramp.over;
        ramp.rate = node["rate"] ? fields.rate(node["rate"]) : ramp.rate;
        ramp.isRepeated = node["repeat"] && fields.word(node["repeat"], "repeat", {"true", "false"}) == "true";
    }
    if (ramp.over.count() == 0) {
        fields.report(node, "a ramp takes more than no time");
        ramp.over = std::chrono::seconds(1);
    }
    return ramp;
}

Sine readSine(Fields& fields, const YAML::Node& node) {
    Sine sine;
    sine.period = std::chrono::seconds(10);
    if (fields.isMapOf(node, {"offset", "amplitude", "period", "rate"})) {
        sine.offset = node["offset"] ? fields.number(node["offset"], "offset") : sine.offset;
        sine.amplitude = node["amplitude"] ? fields.number(node["amplitude"], "amplitude") : sine.amplitude;
        sine.period = node["period"] ? fields.duration(node["period"], "period") : sine.period;
        sine.rate = node["rate"] ? fields.rate(node["rate"]) : sine.rate;
    }
    if (sine.period.count() == 0) {
        fields.report(node, "a period is longer than no time");
        sine.period = std::chrono::seconds(1);
    }
    return sine;
}

Steps readSteps(Fields& fields, const YAML::Node& node) {
    Steps steps;
    if (!fields.isList(node, "steps")) {
        return steps;
    }
    for (const YAML::Node& step : node) {
        if (!step.IsSequence() || step.size() != 2) {
            fields.report(step, "a step is a time and a value, as in [2s, 1.5]");
            continue;
        }
        const Duration time = fields.duration(step[0], "the time of a step");
        if (!steps.values.empty() && time <= steps.values.back().first) {
            fields.report(step, "the times of steps ascend");
        }
        steps.values.emplace_back(time, fields.number(step[1], "the value of a step"));
    }
    return steps;
}

std::vector<std::string> cellsOf(const std::string& line) {
    std::vector<std::string> cells(1);
    for (const char character : line) {
        if (character == ',') {
            cells.emplace_back();
        } else if (character != '\r' && character != '"' && character != ' ') {
            cells.back() += character;
        }
    }
    return cells;
}

std::optional<double> numberIn(const std::string& cell) {
    double number = 0;
    const auto parsed = std::from_chars(cell.data(), cell.data() + cell.size(), number);
    return !cell.empty() && parsed.ec == std::errc() && parsed.ptr == cell.data() + cell.size() ? std::optional(number)
                                                                                                : std::nullopt;
}

/// Reads the seconds in the first column, and the values in the column of this name.
Steps readCsv(Fields& fields, const YAML::Node& node, const std::string& path, const std::string& column) {
    Steps steps;
    std::ifstream file(path);
    std::string line;
    if (!file || !std::getline(file, line)) {
        fields.report(node, "cannot read " + path);
        return steps;
    }
    const std::vector<std::string> header = cellsOf(line);
    const auto found = std::find(header.begin() + 1, header.end(), column);
    if (found == header.end()) {
        fields.report(node, path + " has no column \"" + column + "\" after that of the times");
        return steps;
    }
    const auto index = static_cast<std::size_t>(found - header.begin());
    for (unsigned number = 2; std::getline(file, line); ++number) {
        const std::vector<std::string> cells = cellsOf(line);
        if (cells.size() == 1 && cells[0].empty()) {
            continue;
        }
        const auto time = numberIn(cells[0]);
        const auto value = index < cells.size() ? numberIn(cells[index]) : std::nullopt;
        constexpr double kLatest = 1e9;
        if (!time || !value || !(*time >= 0 && *time < kLatest)) {
            fields.report(node, path + ", line " + std::to_string(number) + ": expected seconds and a value");
            return steps;
        }
        const auto at = Duration(std::llround(*time * 1e6));
        if (!steps.values.empty() && at <= steps.values.back().first) {
            fields.report(node, path + ", line " + std::to_string(number) + ": the times ascend");
            return steps;
        }
        steps.values.emplace_back(at, *value);
    }
    return steps;
}

}  // namespace

ValueSource readValueSource(Fields& fields, const YAML::Node& name, const YAML::Node& node,
                            const std::string& directory) {
    ValueSource source;
    source.name = fields.name(name);
    if (node.IsScalar()) {
        const HostValue value = fields.value(node);
        source.shape = Constant{numberOf(value)};
        source.isInteger = value.isInteger();
        return source;
    }
    if (!fields.isMapOf(node, {"ramp", "sine", "steps", "from", "column", "type"})) {
        return source;
    }
    int shapes = 0;
    if (node["ramp"]) {
        ++shapes;
        source.shape = readRamp(fields, node["ramp"]);
    }
    if (node["sine"]) {
        ++shapes;
        source.shape = readSine(fields, node["sine"]);
    }
    if (node["steps"]) {
        ++shapes;
        source.shape = readSteps(fields, node["steps"]);
    }
    if (node["from"]) {
        ++shapes;
        const std::string file = fields.text(node["from"], "from");
        const std::string path = file.rfind('/', 0) == 0 ? file : directory + '/' + file;
        const std::string column = node["column"] ? fields.text(node["column"], "column") : source.name;
        source.shape = readCsv(fields, node["from"], path, column);
    }
    if (shapes != 1) {
        fields.report(node, "a value is a number, or has one of the keys ramp, sine, steps and from");
    }
    if (node["column"] && !node["from"]) {
        fields.report(node["column"], "only from has a column");
    }
    source.isInteger = node["type"] && fields.word(node["type"], "type", {"float", "int"}) == "int";
    return source;
}

}  // namespace com_tesk::scenario
