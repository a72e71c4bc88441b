#include "tools/replay/Comparison.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <vector>

#include "tools/Durations.h"
#include "tools/ParameterNames.h"

namespace com_tesk::replay {

namespace {

using Row = std::vector<std::string>;

std::string latencyOf(const Distribution& latency, double share, double rate) {
    if (latency.count() == 0) {
        return "-";
    }
    const Time value(std::llround(static_cast<double>(latency.percentile(share).count()) / rate));
    return (value.count() < 0 ? "-" : "") + tools::textOf(std::chrono::abs(value));
}

std::string secondsOf(Time time) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.3f s", std::chrono::duration<double>(time).count());
    return text.data();
}

Row rowOf(const std::string& name, const Finding& found, const std::function<Time(Time)>& recordedTimeOf, double rate) {
    std::string difference = "none";
    if (found.first) {
        difference = secondsOf(recordedTimeOf(found.first->time)) + ": expected " + found.first->expected + ", got " +
                     found.first->got;
    }
    std::array<char, 40> error{};
    std::snprintf(error.data(), error.size(), "%.6g", found.largestError);
    return {tools::shownName(name),
            std::to_string(found.compared),
            difference,
            std::isinf(found.largestError) ? "-" : error.data(),
            latencyOf(found.latency, 0.5, rate),
            latencyOf(found.latency, 0.99, rate)};
}

std::string aligned(const std::vector<Row>& rows) {
    std::vector<std::size_t> widths(rows.front().size());
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    std::string text;
    for (const Row& row : rows) {
        for (std::size_t i = 0; i + 1 < row.size(); ++i) {
            text += row[i];
            text.append(widths[i] + 2 - row[i].size(), ' ');
        }
        text += row.back();
        text += '\n';
    }
    return text;
}

}  // namespace

void Comparison::know(const std::string& name, HostValue value) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (OutputCheck* const output = outputOf(name)) {
        output->know(value);
    }
}

void Comparison::expect(const std::string& name, Time time, HostValue value) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (OutputCheck* const output = outputOf(name)) {
        output->expect(time, value);
    }
}

void Comparison::publish(const std::string& name, Time time, HostValue value) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (OutputCheck* const output = outputOf(name)) {
        output->publish(time, value);
    }
}

void Comparison::advance(Time known) {
    constexpr Time kInterval{20'000};
    const std::lock_guard<std::mutex> lock(mutex);
    if (known - advanced < kInterval) {
        return;
    }
    advanced = known;
    for (const auto& [name, output] : outputs) {
        if (output != nullptr) {
            output->advance(known);
        }
    }
}

void Comparison::finish(Time end) {
    const std::lock_guard<std::mutex> lock(mutex);
    for (const auto& [name, output] : outputs) {
        if (output != nullptr) {
            output->finish(end);
        }
    }
}

bool Comparison::isEqual() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return std::none_of(outputs.begin(), outputs.end(), [](const auto& output) {
        return output.second != nullptr && output.second->finding().first.has_value();
    });
}

std::string Comparison::table(const std::function<Time(Time)>& recordedTimeOf, double rate) const {
    const std::lock_guard<std::mutex> lock(mutex);
    std::vector<Row> rows{{"name", "compared", "first difference", "largest error", "latency p50", "p99"}};
    for (const auto& [name, output] : outputs) {
        rows.push_back(output == nullptr ? Row{tools::shownName(name), "-", "ignored", "-", "-", "-"}
                                         : rowOf(name, output->finding(), recordedTimeOf, rate));
    }
    return aligned(rows);
}

OutputCheck* Comparison::outputOf(const std::string& name) {
    const auto [found, isNew] = outputs.try_emplace(name);
    if (const Rule& rule = rules.of(name); isNew && rule.mode != Mode::IGNORE) {
        found->second = checkOf(rule);
    }
    return found->second.get();
}

}  // namespace com_tesk::replay
