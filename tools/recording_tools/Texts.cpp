#include "tools/recording_tools/Texts.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace com_tesk::recording {

std::string textOf(const HostValue& value) {
    if (!value.isInteger() && std::isnan(value.asReal())) {
        return "nan";
    }
    std::array<char, 40> digits{};
    char* const begin = digits.data();
    char* const end = begin + digits.size();
    const auto result =
        value.isInteger() ? std::to_chars(begin, end, value.asInteger()) : std::to_chars(begin, end, value.asReal());
    return {begin, result.ptr};
}

double numberOf(const HostValue& value) {
    return value.isInteger() ? value.asInteger() : static_cast<double>(value.asReal());
}

std::string nameOf(const NamedValue& value) {
    return value.name.empty() ? '#' + std::to_string(value.id) : value.name;
}

std::string secondsOf(Time time) {
    constexpr Time::rep kSecond = 1'000'000;
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), "%lld.%06lld", static_cast<long long>(time.count() / kSecond),
                  static_cast<long long>(time.count() % kSecond));
    return text.data();
}

double numberOf(Time time) {
    return std::chrono::duration<double>(time).count();
}

tools::UtcTime beginOf(const Header& header) {
    return tools::timeOfUtc(header.started).value_or(tools::UtcTime(0));
}

}  // namespace com_tesk::recording
