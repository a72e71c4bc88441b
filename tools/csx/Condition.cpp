#include "tools/csx/Condition.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include "tools/csx/Texts.h"

namespace com_tesk::csx {

namespace {

struct OperatorText {
    std::string_view text;
    Condition::Operator comparison;
};

/// A text that begins with another one comes before it.
constexpr OperatorText kOperators[] = {
    {"==", Condition::Operator::EQUAL},         {"!=", Condition::Operator::UNEQUAL},
    {"<=", Condition::Operator::LESS_OR_EQUAL}, {">=", Condition::Operator::GREATER_OR_EQUAL},
    {"<", Condition::Operator::LESS},           {">", Condition::Operator::GREATER},
    {"~", Condition::Operator::NEAR},
};

std::optional<double> boundOf(std::string_view text) {
    if (text.substr(0, 2) == "i:") {
        text.remove_prefix(2);
    }
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') {
        text.remove_prefix(1);
    }
    double number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || stop != text.data() + text.size() || std::isnan(number)) {
        return std::nullopt;
    }
    return number;
}

template <typename T>
bool compare(Condition::Operator comparison, T value, T bound) {
    switch (comparison) {
        case Condition::Operator::EQUAL:
            return value == bound;
        case Condition::Operator::UNEQUAL:
            return value != bound;
        case Condition::Operator::LESS:
            return value < bound;
        case Condition::Operator::LESS_OR_EQUAL:
            return value <= bound;
        case Condition::Operator::GREATER:
            return value > bound;
        case Condition::Operator::GREATER_OR_EQUAL:
            return value >= bound;
        case Condition::Operator::NEAR:
            break;
    }
    return false;
}

bool isNear(double value, double bound, double tolerance) {
    if (value == bound) {
        return true;  // Also for two infinities.
    }
    const double rounding = std::max(std::abs(value), std::abs(bound)) * std::numeric_limits<float>::epsilon();
    return std::isfinite(value) && std::isfinite(bound) && std::abs(value - bound) <= tolerance + rounding;
}

}  // namespace

bool Condition::holdsFor(const Number& value) const {
    if (comparison == Operator::NEAR) {
        return isNear(valueOf(value), bound, tolerance);
    }
    return value.isInteger ? compare<double>(comparison, value.integer, bound)
                           : compare(comparison, value.real, static_cast<float>(bound));
}

std::optional<Condition> conditionOf(std::string_view text, std::string& flaw) {
    Condition condition;
    condition.text = std::string(text);
    std::string_view rest;
    const std::size_t at = text.find_first_of("=!<>~");
    for (const OperatorText& candidate : kOperators) {
        if (at != std::string_view::npos && text.substr(at, candidate.text.size()) == candidate.text) {
            condition.comparison = candidate.comparison;
            rest = text.substr(at + candidate.text.size());
            break;
        }
    }
    if (rest.data() == nullptr) {
        flaw = "no condition, such as 'altitude>=100': " + shownName(text);
        return std::nullopt;
    }
    condition.name = std::string(text.substr(0, at));
    flaw = nameError(condition.name);
    if (!flaw.empty()) {
        return std::nullopt;
    }
    if (condition.comparison == Condition::Operator::NEAR) {
        std::size_t separator = rest.find("\u00B1");
        separator = separator != std::string_view::npos ? separator : rest.find("+-");
        const bool hasTolerance = separator != std::string_view::npos;
        // Both separators have two bytes.
        const auto tolerance = hasTolerance ? boundOf(rest.substr(separator + 2)) : std::nullopt;
        if (!tolerance || !std::isfinite(*tolerance) || std::signbit(*tolerance)) {
            flaw = "no tolerance, such as 'level~1.5+-0.1': " + shownName(text);
            return std::nullopt;
        }
        condition.tolerance = *tolerance;
        rest = rest.substr(0, separator);
    }
    const auto bound = boundOf(rest);
    if (!bound) {
        flaw = "no number after the comparison: " + shownName(text);
        return std::nullopt;
    }
    condition.bound = *bound;
    return condition;
}

}  // namespace com_tesk::csx
