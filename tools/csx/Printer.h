#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "session/Number.h"
#include "tools/csx/DataOutput.h"

namespace com_tesk::csx {

enum class Format { TEXT, JSON, CSV };

/// The first column of a value: its time of receipt in UTC, the seconds since the first line, the seconds since the
/// line before, or nothing.
enum class TimeStyle { ABSOLUTE, RELATIVE, DELTA, NONE };

/// A column of a record. In JSON, a text that is no UTF-8 becomes hexadecimal digits, and `_hex` follows the name.
struct Field {
    std::string name;
    std::string text;
    /// The text is a number, or `true` or `false`.
    bool isLiteral = false;
};

/// Prints values and records as text, as JSON with an object a line, or as CSV after a header line.
class Printer {
  public:
    using SteadyTime = std::chrono::steady_clock::time_point;

    /// @param lines  outlives this object.
    Printer(Format outputFormat, TimeStyle style, DataOutput& lines)
        : format(outputFormat), timeStyle(style), output(lines), hasColours(DataOutput::hasColours()) {}

    /// Prints a value.
    /// @param isNew  on a terminal, the value is highlighted.
    void value(SteadyTime received, const std::string& name, const Number& number, bool isNew);

    /// Prints a record. All records of a program have the same columns. As text, a blank separates the texts.
    void record(const std::vector<Field>& fields);

  private:
    std::optional<Field> timeField(SteadyTime received);
    std::chrono::system_clock::time_point wallTime(SteadyTime received);
    void jsonLine(const std::vector<Field>& fields);
    void csvLine(const std::vector<Field>& fields);

    const Format format;
    const TimeStyle timeStyle;
    DataOutput& output;
    const bool hasColours;
    bool hasHeader = false;
    /// From the steady clock to the clock on the wall.
    std::chrono::nanoseconds wallOffset{0};
    /// The time that the next one is relative to.
    std::optional<SteadyTime> reference;
};

}  // namespace com_tesk::csx
