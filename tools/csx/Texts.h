#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "session/Number.h"
#include "tools/Durations.h"
#include "tools/Json.h"
#include "tools/ParameterNames.h"
#include "tools/Utc.h"

/// Texts of command lines and of output lines.
namespace com_tesk::csx {

/// Reads a value: `i:` and a decimal 32-bit integer, otherwise a decimal float, `nan`, `inf` or `-inf`.
/// @return nothing when any part of the text is not such a number, or the number is out of range.
std::optional<Number> numberOf(std::string_view text);

/// Returns the shortest text that reads back the same. An integer has no `i:`.
std::string textOf(const Number& number);

/// Returns the value; of an integer too.
double valueOf(const Number& number);

/// True when the values and types are the same; what is no number equals itself.
bool isSame(const Number& one, const Number& other);

using tools::durationOf;
using tools::hexOf;
using tools::isUtf8;
using tools::nameError;
using tools::printable;
using tools::shownName;
using tools::textOf;
using tools::utcOf;

}  // namespace com_tesk::csx
