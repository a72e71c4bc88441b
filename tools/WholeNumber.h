#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace com_tesk::tools {

/// Reads all of the text as a number of this type.
/// @return nothing when a part of the text is no number, or the number is out of range.
template <typename T>
std::optional<T> wholeNumber(std::string_view text) {
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

}  // namespace com_tesk::tools
