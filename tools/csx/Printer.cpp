// The formats of the output.

#include "tools/csx/Printer.h"

#include <array>
#include <cmath>
#include <cstdio>

#include "tools/Json.h"
#include "tools/csx/Texts.h"

namespace com_tesk::csx {

namespace {

constexpr char kHighlight[] = "\x1B[1;33m";
constexpr char kPlain[] = "\x1B[0m";

std::string csvField(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char character : text) {
        quoted += character == '"' ? "\"\"" : std::string(1, character);
    }
    return quoted + '"';
}

}  // namespace

std::optional<Field> Printer::timeField(SteadyTime received) {
    using std::chrono::duration_cast;
    using std::chrono::microseconds;
    switch (timeStyle) {
        case TimeStyle::NONE:
            return std::nullopt;
        case TimeStyle::ABSOLUTE:
            return Field{"t", utcOf(wallTime(received))};
        default: {
            const auto since = duration_cast<microseconds>(received - reference.value_or(received));
            if (timeStyle == TimeStyle::DELTA || !reference) {
                reference = received;
            }
            std::array<char, 40> text{};
            std::snprintf(text.data(), text.size(), "%.6f", static_cast<double>(since.count()) / 1e6);
            return Field{"t", text.data(), true};
        }
    }
}

std::chrono::system_clock::time_point Printer::wallTime(SteadyTime received) {
    using std::chrono::nanoseconds;
    // The two clocks are read one after the other, so the offset varies a little. Values of one update get one time.
    constexpr nanoseconds kVariation = std::chrono::milliseconds(1);
    const nanoseconds offset = nanoseconds(std::chrono::system_clock::now().time_since_epoch()) -
                               nanoseconds(std::chrono::steady_clock::now().time_since_epoch());
    if (offset > wallOffset + kVariation || offset < wallOffset - kVariation) {
        wallOffset = offset;
    }
    return std::chrono::system_clock::time_point(std::chrono::duration_cast<std::chrono::system_clock::duration>(
        nanoseconds(received.time_since_epoch()) + wallOffset));
}

void Printer::value(SteadyTime received, const std::string& name, const Number& number, bool isNew) {
    const std::optional<Field> time = timeField(received);
    const std::string text = textOf(number);
    if (format == Format::TEXT) {
        const bool isHighlighted = isNew && hasColours;
        output.line((time ? time->text + ' ' : std::string()) + shownName(name) + ' ' +
                    (isHighlighted ? kHighlight + text + kPlain : text));
        return;
    }
    std::vector<Field> fields;
    if (time) {
        fields.push_back(*time);
    }
    fields.push_back({"name", name});
    fields.push_back({"type", number.isInteger ? "int" : "float"});
    // Readers of JSON take -0 for an integer, which has no sign.
    const bool isNegativeZero = format == Format::JSON && text == "-0";
    fields.push_back({"value", isNegativeZero ? "-0.0" : text, number.isInteger || std::isfinite(number.real)});
    record(fields);
}

void Printer::record(const std::vector<Field>& fields) {
    if (format == Format::JSON) {
        jsonLine(fields);
    } else if (format == Format::CSV) {
        csvLine(fields);
    } else {
        std::string line;
        for (const Field& field : fields) {
            line += (line.empty() ? "" : " ") + field.text;
        }
        output.line(line);
    }
}

void Printer::jsonLine(const std::vector<Field>& fields) {
    std::string line = "{";
    for (const Field& field : fields) {
        line += line.size() > 1 ? "," : "";
        line += field.isLiteral ? tools::jsonString(field.name) + ':' + field.text
                                : tools::jsonMember(field.name, field.text);
    }
    output.line(line + '}');
}

void Printer::csvLine(const std::vector<Field>& fields) {
    std::string header;
    std::string line;
    for (const Field& field : fields) {
        const char* const separator = &field == &fields.front() ? "" : ",";
        header += separator + csvField(field.name);
        line += separator + csvField(field.text);
    }
    if (!hasHeader) {
        hasHeader = true;
        output.line(header + '\r');
    }
    output.line(line + '\r');
}

}  // namespace com_tesk::csx
