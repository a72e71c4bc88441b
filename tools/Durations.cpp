#include "tools/Durations.h"

#include <array>
#include <cmath>
#include <cstdio>

#include "tools/WholeNumber.h"

namespace com_tesk::tools {

namespace {

constexpr double kMaxSeconds = 3'600'000;

}  // namespace

std::optional<std::chrono::microseconds> durationOf(std::string_view text) {
    struct Unit {
        std::string_view name;
        double seconds;
    };
    // "s" comes after those that end with it.
    constexpr Unit kUnits[] = {{"us", 1e-6}, {"ms", 1e-3}, {"s", 1}, {"m", 60}, {"h", 3'600}};
    for (const Unit& unit : kUnits) {
        if (text.size() <= unit.name.size() || text.substr(text.size() - unit.name.size()) != unit.name) {
            continue;
        }
        const auto number = wholeNumber<double>(text.substr(0, text.size() - unit.name.size()));
        if (!number || !std::isfinite(*number) || std::signbit(*number) || *number * unit.seconds > kMaxSeconds) {
            return std::nullopt;
        }
        return std::chrono::microseconds(std::llround(*number * unit.seconds * 1e6));
    }
    return std::nullopt;
}

std::string textOf(std::chrono::microseconds duration) {
    std::array<char, 40> text{};
    const double milliseconds = static_cast<double>(duration.count()) / 1e3;
    if (milliseconds >= 1e6) {
        std::snprintf(text.data(), text.size(), "%.0f s", milliseconds / 1'000);
    } else if (milliseconds >= 999.5) {  // A shorter time has at most three digits before the point.
        std::snprintf(text.data(), text.size(), "%.4g s", milliseconds / 1'000);
    } else {
        std::snprintf(text.data(), text.size(), "%.3g ms", milliseconds);
    }
    return text.data();
}

}  // namespace com_tesk::tools
