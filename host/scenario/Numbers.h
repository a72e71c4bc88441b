#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "host/Value.h"

namespace com_tesk::scenario {

/// Returns the number as a value: the nearest integer of 32 bits, or the nearest float. What is no number becomes the
/// integer 0.
inline HostValue hostValueOf(double number, bool isInteger) {
    if (!isInteger) {
        return HostValue::real(static_cast<float>(number));
    }
    if (std::isnan(number)) {
        return HostValue::integer(0);
    }
    constexpr double kLeast = std::numeric_limits<std::int32_t>::min();
    constexpr double kLargest = std::numeric_limits<std::int32_t>::max();
    return HostValue::integer(static_cast<std::int32_t>(std::clamp(std::round(number), kLeast, kLargest)));
}

/// Returns the value as a number.
inline double numberOf(const HostValue& value) {
    return value.isInteger() ? value.asInteger() : static_cast<double>(value.asReal());
}

}  // namespace com_tesk::scenario
