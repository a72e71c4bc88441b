#pragma once

#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "host/Value.h"
#include "host/scenario/Actions.h"

namespace com_tesk::scenario {

/// A value from the beginning on.
struct Constant {
    double value = 0;
};

/// A straight line.
struct Ramp {
    double from = 0;
    double to = 1;
    Duration over{};
    double rate = 10;         ///< Values a second.
    bool isRepeated = false;  ///< Begins again after `over`; otherwise the last value stays.
};

/// A sine wave.
struct Sine {
    double offset = 0;
    double amplitude = 1;
    Duration period{};
    double rate = 10;  ///< Values a second.
};

/// Values at their times, ascending.
struct Steps {
    std::vector<std::pair<Duration, double>> values;
};

/// The values that a host gives to a name in the course of a scenario.
struct ValueSource {
    std::string name;
    std::variant<Constant, Ramp, Sine, Steps> shape;
    bool isInteger = false;  ///< Each number becomes the nearest integer.

    /// Returns the time of the first value that comes after `time`; nothing when there is none. Times are since the
    /// beginning of the scenario. Sources with a rate have values at multiples of its inverse.
    std::optional<Duration> nextAfter(Duration time) const;

    /// True when the values are samples of a function. A sample that a newer one follows may then be left out.
    bool isSampled() const;

    /// Returns the value at that time; nothing before the first step.
    std::optional<HostValue> at(Duration time) const;
};

}  // namespace com_tesk::scenario
