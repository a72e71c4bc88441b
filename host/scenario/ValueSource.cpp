#include "host/scenario/ValueSource.h"

#include <algorithm>
#include <cmath>

#include "host/scenario/Numbers.h"

namespace com_tesk::scenario {

namespace {

constexpr double kPi = 3.14159265358979323846;

double secondsOf(Duration time) {
    return std::chrono::duration<double>(time).count();
}

/// Returns the first multiple of the rate's inverse after `time`.
Duration nextTick(Duration time, double rate) {
    const double microseconds = 1e6 / rate;
    auto number = std::floor(static_cast<double>(time.count()) / microseconds) + 1;
    auto next = Duration(std::llround(number * microseconds));
    if (next <= time) {  // Rounded down to where it was.
        next = Duration(std::llround((number + 1) * microseconds));
    }
    return next;
}

std::optional<Duration> nextOf(const Constant& /*shape*/, Duration time) {
    return time < Duration(0) ? std::optional(Duration(0)) : std::nullopt;
}

std::optional<Duration> nextOf(const Ramp& shape, Duration time) {
    if (time < Duration(0)) {
        return Duration(0);
    }
    if (shape.isRepeated) {
        return nextTick(time, shape.rate);
    }
    return time < shape.over ? std::optional(std::min(nextTick(time, shape.rate), shape.over)) : std::nullopt;
}

std::optional<Duration> nextOf(const Sine& shape, Duration time) {
    return time < Duration(0) ? Duration(0) : nextTick(time, shape.rate);
}

std::optional<Duration> nextOf(const Steps& shape, Duration time) {
    const auto next = std::upper_bound(shape.values.begin(), shape.values.end(), time,
                                       [](Duration after, const auto& step) { return after < step.first; });
    return next == shape.values.end() ? std::nullopt : std::optional(next->first);
}

std::optional<double> valueOf(const Constant& shape, Duration /*time*/) {
    return shape.value;
}

std::optional<double> valueOf(const Ramp& shape, Duration time) {
    const double over = secondsOf(shape.over);
    const double passed = shape.isRepeated ? std::fmod(secondsOf(time), over) : std::min(secondsOf(time), over);
    return shape.from + (shape.to - shape.from) * (over > 0 ? passed / over : 1);
}

std::optional<double> valueOf(const Sine& shape, Duration time) {
    return shape.offset + shape.amplitude * std::sin(2 * kPi * secondsOf(time) / secondsOf(shape.period));
}

std::optional<double> valueOf(const Steps& shape, Duration time) {
    const auto next = std::upper_bound(shape.values.begin(), shape.values.end(), time,
                                       [](Duration at, const auto& step) { return at < step.first; });
    return next == shape.values.begin() ? std::nullopt : std::optional(std::prev(next)->second);
}

}  // namespace

std::optional<Duration> ValueSource::nextAfter(Duration time) const {
    return std::visit([time](const auto& form) { return nextOf(form, time); }, shape);
}

bool ValueSource::isSampled() const {
    return std::holds_alternative<Ramp>(shape) || std::holds_alternative<Sine>(shape);
}

std::optional<HostValue> ValueSource::at(Duration time) const {
    const auto number = std::visit([time](const auto& form) { return valueOf(form, time); }, shape);
    return number ? std::optional(hostValueOf(*number, isInteger)) : std::nullopt;
}

}  // namespace com_tesk::scenario
