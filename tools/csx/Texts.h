#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "session/Number.h"
#include "tools/Json.h"

/// Texts of command lines and of output lines.
namespace com_tesk::csx {

/// Reads a duration: a number without sign, and `us`, `ms`, `s`, `m` or `h`. "1.5s" is permitted.
/// @return nothing when the text is no duration, or longer than a thousand hours.
std::optional<std::chrono::microseconds> durationOf(std::string_view text);

/// Returns a duration for people: "250 ms", "5 s", "0.12 ms".
std::string textOf(std::chrono::microseconds duration);

/// Reads a value: `i:` and a decimal 32-bit integer, otherwise a decimal float, `nan`, `inf` or `-inf`.
/// @return nothing when any part of the text is not such a number, or the number is out of range.
std::optional<Number> numberOf(std::string_view text);

/// Returns the shortest text that reads back the same. An integer has no `i:`.
std::string textOf(const Number& number);

/// Returns the value; of an integer too.
double valueOf(const Number& number);

/// True when the values and types are the same; what is no number equals itself.
bool isSame(const Number& one, const Number& other);

/// Returns the reason why a text is no name of a parameter; an empty text when it is one.
std::string nameError(std::string_view name);

/// Returns the name for people: in double quotes when it is empty or contains a blank, a quote, a backslash or a byte
/// that is not printable. All of these but blanks are then \xNN.
std::string shownName(std::string_view name);

/// Returns the text with every byte that is not printable as \xNN.
std::string printable(std::string_view text);

using tools::hexOf;
using tools::isUtf8;
using tools::utcOf;

}  // namespace com_tesk::csx
