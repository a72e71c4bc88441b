#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

/// Durations in command lines, files and messages.
namespace com_tesk::tools {

/// Reads a duration: a number without sign, and `us`, `ms`, `s`, `m` or `h`. "1.5s" is permitted.
/// @return nothing when the text is no duration, or longer than a thousand hours.
std::optional<std::chrono::microseconds> durationOf(std::string_view text);

/// Returns a duration for people: "250 ms", "5 s", "0.12 ms".
std::string textOf(std::chrono::microseconds duration);

}  // namespace com_tesk::tools
