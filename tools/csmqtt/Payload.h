#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "tools/csmqtt/Config.h"

/// Numbers in payloads. Independent of the locale.
namespace com_tesk::mqtt {

/// A value as it is published.
struct Sample {
    double value = 0;            ///< Of a float, exactly the float.
    std::uint64_t sequence = 0;  ///< Counts the values that the host has sent for this name.
    std::chrono::system_clock::time_point time;
};

/// Returns the shortest text that reads back as the same number: `12.5`, `-3`, `nan`, `inf`.
std::string numberText(double value, NumberType type);

/// Returns the time in UTC: `2026-11-22T17:02:02.571265Z`.
std::string timeText(std::chrono::system_clock::time_point time);

/// Returns the payload. JSON has no number for what is not finite, so `v` is null then.
std::string payloadOf(const Sample& sample, NumberType type, PayloadForm form);

/// The result of reading the payload of a command.
enum class Verdict : std::uint8_t {
    ACCEPTED,
    INVALID,       ///< No number, or none of the type.
    OUT_OF_RANGE,  ///< Outside the type, the minimum or the maximum.
};

/// The number of a payload; 0 unless it was accepted.
struct ReadNumber {
    Verdict verdict = Verdict::INVALID;
    double value = 0;
};

/// Reads the payload of a command. The whole payload has to be a number: no blank, no unit, no `nan` and no `inf`. An
/// integer has no decimal point and no exponent. With JSON, the payload is an object whose member `v` is such a number,
/// or that number alone. A payload of more than 4096 bytes is invalid.
ReadNumber readNumber(std::string_view payload, const FromMqtt& target);

}  // namespace com_tesk::mqtt
