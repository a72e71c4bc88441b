#include "tools/csx/Texts.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>

#include "tools/WholeNumber.h"

namespace com_tesk::csx {

namespace {

std::string_view withoutPlus(std::string_view text) {
    const bool hasPlus = text.size() > 1 && text[0] == '+' && text[1] != '-' && text[1] != '+';
    return hasPlus ? text.substr(1) : text;
}

}  // namespace

std::optional<Number> numberOf(std::string_view text) {
    if (text.substr(0, 2) == "i:") {
        const auto integer = tools::wholeNumber<std::int32_t>(withoutPlus(text.substr(2)));
        return integer ? std::optional<Number>(Number{true, static_cast<float>(*integer), *integer}) : std::nullopt;
    }
    const auto real = tools::wholeNumber<float>(withoutPlus(text));
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

}  // namespace com_tesk::csx
