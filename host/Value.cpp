#include "host/Value.h"

#include <charconv>
#include <cstring>
#include <sstream>

namespace com_tesk {

namespace {

template <class To, class From>
To sameBits(From from) {
    static_assert(sizeof(To) == sizeof(From), "only the type changes, never the bits");
    To to;
    std::memcpy(&to, &from, sizeof(to));
    return to;
}

template <class Number>
std::optional<Number> wholeNumber(std::string_view text) {
    Number number{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end) {
        return std::nullopt;
    }
    return number;
}

}  // namespace

HostValue HostValue::integer(std::int32_t number) {
    return {sameBits<std::uint32_t>(number), true};
}

HostValue HostValue::real(float number) {
    return {sameBits<std::uint32_t>(number), false};
}

std::optional<HostValue> HostValue::fromText(std::string_view text) {
    constexpr std::string_view kIntegerMark = "i:";
    if (text.substr(0, kIntegerMark.size()) == kIntegerMark) {
        const auto number = wholeNumber<std::int32_t>(text.substr(kIntegerMark.size()));
        return number ? std::optional(integer(*number)) : std::nullopt;
    }
    const auto number = wholeNumber<float>(text);
    return number ? std::optional(real(*number)) : std::nullopt;
}

std::int32_t HostValue::asInteger() const {
    return sameBits<std::int32_t>(rawBits);
}

float HostValue::asReal() const {
    return sameBits<float>(rawBits);
}

std::string HostValue::text() const {
    std::ostringstream out;
    if (holdsInteger) {
        out << asInteger();
    } else {
        out << asReal();
    }
    return out.str();
}

}  // namespace com_tesk
