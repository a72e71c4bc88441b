// Durations, numbers, names and times as texts.

#include "tools/csx/Texts.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>

namespace com_tesk::csx {

namespace {

constexpr std::size_t kMaxNameSize = 31;
constexpr double kMaxSeconds = 3'600'000;

bool isPrintable(char character) {
    return character >= ' ' && character <= '~';
}

std::string_view withoutPlus(std::string_view text) {
    const bool hasPlus = text.size() > 1 && text[0] == '+' && text[1] != '-' && text[1] != '+';
    return hasPlus ? text.substr(1) : text;
}

/// Reads all of the text as a number of this type.
template <typename T>
std::optional<T> whole(std::string_view text) {
    T number{};
    if (text.find('(') != std::string_view::npos) {
        return std::nullopt;  // `from_chars` would read "nan(1)".
    }
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end) {
        return std::nullopt;
    }
    return number;
}

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
        const auto number = whole<double>(text.substr(0, text.size() - unit.name.size()));
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

std::optional<Number> numberOf(std::string_view text) {
    if (text.substr(0, 2) == "i:") {
        const auto integer = whole<std::int32_t>(withoutPlus(text.substr(2)));
        return integer ? std::optional<Number>(Number{true, static_cast<float>(*integer), *integer}) : std::nullopt;
    }
    const auto real = whole<float>(withoutPlus(text));
    return real ? std::optional<Number>(Number{false, *real, 0}) : std::nullopt;
}

std::string textOf(const Number& number) {
    std::array<char, 40> text{};
    char* const begin = text.data();
    if (!number.isInteger && std::isnan(number.real)) {
        return "nan";
    }
    const std::to_chars_result result = number.isInteger ? std::to_chars(begin, begin + text.size(), number.integer)
                                                         : std::to_chars(begin, begin + text.size(), number.real);
    return {begin, result.ptr};
}

double valueOf(const Number& number) {
    return number.isInteger ? number.integer : static_cast<double>(number.real);
}

bool isSame(const Number& one, const Number& other) {
    if (one.isInteger != other.isInteger) {
        return false;
    }
    if (one.isInteger) {
        return one.integer == other.integer;
    }
    return one.real == other.real || (std::isnan(one.real) && std::isnan(other.real));
}

std::string nameError(std::string_view name) {
    if (name.empty()) {
        return "a name is empty";
    }
    if (name.size() > kMaxNameSize) {
        return "a name has at most 31 bytes: " + shownName(name);
    }
    return name.find('\0') == std::string_view::npos ? std::string() : "a name has a zero byte: " + shownName(name);
}

std::string shownName(std::string_view name) {
    bool isPlain = !name.empty();
    std::string text = "\"";
    for (const char character : name) {
        const bool isSpecial = character == '"' || character == '\\' || !isPrintable(character);
        isPlain = isPlain && !isSpecial && character != ' ';
        text += isSpecial ? "\\x" + hexOf({&character, 1}) : std::string(1, character);
    }
    return isPlain ? std::string(name) : text + '"';
}

std::string printable(std::string_view text) {
    std::string shown;
    for (const char character : text) {
        shown += isPrintable(character) ? std::string(1, character) : "\\x" + hexOf({&character, 1});
    }
    return shown;
}

}  // namespace com_tesk::csx
