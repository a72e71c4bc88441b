#include "tools/recording_tools/ScenarioValues.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "tools/Json.h"
#include "tools/recording_tools/Texts.h"

namespace com_tesk::recording {

namespace {

constexpr std::size_t kPieceSize = 8192;  // Small, because each name has one.

std::string withoutExtension(const std::string& file) {
    for (const char* const extension : {".yaml", ".yml"}) {
        const std::string end = extension;
        if (file.size() > end.size() && file.compare(file.size() - end.size(), end.size(), end) == 0) {
            return file.substr(0, file.size() - end.size());
        }
    }
    return file;
}

std::string trimmedSeconds(Time time) {
    std::string text = secondsOf(time);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') {
        text.pop_back();
    }
    return text;
}

}  // namespace

std::string durationText(Time time) {
    return trimmedSeconds(time) + 's';
}

std::string yamlText(const std::string& text) {
    std::string quoted;
    for (const char character : tools::jsonString(text)) {
        constexpr char kDelete = 0x7F;  // YAML demands an escape for it, and JSON does not.
        if (character == kDelete) {
            quoted += R"(\x7f)";
        } else {
            quoted += character;
        }
    }
    return quoted;
}

ScenarioValues::ScenarioValues(const ScenarioFacts& facts, const std::string& scenarioPath)
    : origin(facts.origin().value_or(Time(0))) {
    const std::size_t slash = scenarioPath.rfind('/');
    directory = slash == std::string::npos ? "" : scenarioPath.substr(0, slash + 1);
    const std::string stem = withoutExtension(scenarioPath.substr(directory.size()));
    unsigned files = 0;
    for (const auto& [name, input] : facts.inputs()) {
        if (facts.outputs().count(name) != 0) {
            continue;  // The host of a scenario sends back what the program publishes.
        }
        if (input.steps == 1) {
            constants[name] = (input.first.isInteger() ? "i:" : "") + textOf(input.first);
            continue;
        }
        Column& column = columns[name];
        column.isInteger = input.isInteger;
        if (input.steps > kMaxStepsInScenario) {
            column.file = stem + '-' + std::to_string(++files) + ".csv";
            column.rows = "seconds,value\n";
        }
    }
}

void ScenarioValues::flush(Column& column) const {
    const std::string path = directory + column.file;
    const int how = column.hasFile ? O_APPEND : O_CREAT | O_TRUNC;
    constexpr mode_t kForEveryone = 0666;  // The system takes away what the user's mask says.
    const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC | how, kForEveryone);
    std::size_t done = 0;
    bool isWritten = file >= 0;
    while (isWritten && done < column.rows.size()) {
        const ssize_t written = ::write(file, column.rows.data() + done, column.rows.size() - done);
        isWritten = written >= 0 || errno == EINTR;
        done += static_cast<std::size_t>(std::max<ssize_t>(written, 0));
    }
    const int error = errno;
    if (file >= 0) {
        close(file);
    }
    if (!isWritten) {
        throw std::system_error(error, std::generic_category(), "cannot write " + path);
    }
    column.hasFile = true;
    column.rows.clear();
}

void ScenarioValues::add(Column& column, Time time, const HostValue& value) {
    // Scenarios demand ascending times. The first value is there before the client asks for it.
    const Time at = column.last < Time(0) ? Time(0) : std::max(time - origin, column.last + Time(1));
    column.last = at;
    if (column.file.empty()) {
        column.rows += column.rows.empty() ? "[" : ", [";
        column.rows += durationText(at) + ", " + textOf(value) + ']';
        return;
    }
    column.rows += trimmedSeconds(at) + ',' + textOf(value) + '\n';
    if (column.rows.size() >= kPieceSize) {
        flush(column);
    }
}

void ScenarioValues::read(Reading& reading) {
    HostSteps steps;
    while (const auto entry = reading.next()) {
        steps.forEach(*entry, [&](const std::string& name, const HostValue& value) {
            if (const auto column = columns.find(name); column != columns.end()) {
                add(column->second, entry->time, value);
            }
        });
    }
    for (auto& [name, column] : columns) {
        if (!column.file.empty()) {
            flush(column);
        }
    }
}

std::string ScenarioValues::text() const {
    std::string text = constants.empty() && columns.empty() ? "" : "values:\n";
    for (const auto& [name, value] : constants) {
        text += "  " + yamlText(name) + ": " + value + '\n';
    }
    for (const auto& [name, column] : columns) {
        text += "  " + yamlText(name) + ": {";
        text +=
            column.file.empty() ? "steps: [" + column.rows + ']' : "from: " + yamlText(column.file) + ", column: value";
        text += column.isInteger ? ", type: int}\n" : "}\n";
    }
    return text;
}

}  // namespace com_tesk::recording
