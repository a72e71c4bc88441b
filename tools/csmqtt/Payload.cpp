#include "tools/csmqtt/Payload.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>

namespace com_tesk::mqtt {

namespace {

constexpr std::size_t kMaxPayloadSize = 4'096;

template <typename Number>
std::string shortestText(Number number) {
    std::array<char, 32> text{};
    const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), number);
    return {text.data(), end};
}

/// Reads all of the text. A number that the type cannot hold is out of range.
template <typename Number>
ReadNumber readAll(std::string_view text) {
    Number number{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (stop != end || error == std::errc::invalid_argument) {
        return {};
    }
    return error == std::errc() ? ReadNumber{Verdict::ACCEPTED, static_cast<double>(number)}
                                : ReadNumber{Verdict::OUT_OF_RANGE, 0};
}

ReadNumber readText(std::string_view text, NumberType type) {
    if (text.empty() || text.find_first_not_of("0123456789+-.eE") != std::string_view::npos) {
        return {};  // This excludes "nan" and "inf", which `from_chars` reads.
    }
    return type == NumberType::INTEGER ? readAll<std::int32_t>(text) : readAll<double>(text);
}

ReadNumber readJson(std::string_view text, NumberType type) {
    const auto parsed = nlohmann::json::parse(text.begin(), text.end(), nullptr, false);
    const auto* number = &parsed;
    if (parsed.is_object()) {
        const auto member = parsed.find("v");
        if (member == parsed.end()) {
            return {};
        }
        number = &*member;
    }
    if (!number->is_number() || (type == NumberType::INTEGER && !number->is_number_integer())) {
        return {};
    }
    if (number->is_number_unsigned()) {
        return {Verdict::ACCEPTED, static_cast<double>(number->get<std::uint64_t>())};
    }
    return {Verdict::ACCEPTED, number->get<double>()};
}

bool isInRange(double value, const FromMqtt& target) {
    if (target.type == NumberType::INTEGER) {
        using Limits = std::numeric_limits<std::int32_t>;
        if (value < Limits::min() || value > Limits::max()) {
            return false;
        }
    } else if (!std::isfinite(static_cast<float>(value))) {
        return false;
    }
    return value >= target.minimum.value_or(value) && value <= target.maximum.value_or(value);
}

}  // namespace

std::string numberText(double value, NumberType type) {
    if (std::isnan(value)) {
        return "nan";
    }
    return type == NumberType::INTEGER ? shortestText(static_cast<std::int64_t>(value))
                                       : shortestText(static_cast<float>(value));
}

std::string timeText(std::chrono::system_clock::time_point time) {
    const auto since = std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count();
    const auto seconds = static_cast<std::time_t>(since / 1'000'000);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::array<char, 80> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%06dZ", parts.tm_year + 1'900,
                  parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                  static_cast<int>(since % 1'000'000));
    return text.data();
}

std::string payloadOf(const Sample& sample, NumberType type, PayloadForm form) {
    std::string number = numberText(sample.value, type);
    if (form == PayloadForm::TEXT) {
        return number;
    }
    if (!std::isfinite(sample.value)) {
        number = "null";
    }
    return R"({"v":)" + number + R"(,"t":")" + timeText(sample.time) + R"(","n":)" + std::to_string(sample.sequence) +
           '}';
}

ReadNumber readNumber(std::string_view payload, const FromMqtt& target) {
    if (payload.size() > kMaxPayloadSize) {
        return {};
    }
    const ReadNumber read =
        target.payload == PayloadForm::JSON ? readJson(payload, target.type) : readText(payload, target.type);
    if (read.verdict == Verdict::ACCEPTED && !isInRange(read.value, target)) {
        return {Verdict::OUT_OF_RANGE, 0};
    }
    return read;
}

}  // namespace com_tesk::mqtt
