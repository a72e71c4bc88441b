#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

/// Times of day as texts. They are computed here because the system's functions end in 2038 on boards with 32 bits.
namespace com_tesk::tools {

/// Microseconds since the beginning of 1970.
using UtcTime = std::chrono::microseconds;

/// Returns the time in UTC: 2026-11-21T22:04:05.123456Z.
std::string utcOf(UtcTime time);
std::string utcOf(std::chrono::system_clock::time_point time);

/// Reads a time from 1970 to 9999 as `utcOf` writes it, with any number of decimals. Returns nothing for any other text.
std::optional<UtcTime> timeOfUtc(std::string_view text);

}  // namespace com_tesk::tools
