#pragma once

#include <array>
#include <cstdio>
#include <string>
#include <string_view>

/// The texts of JSON lines, for all tools that print them.
namespace com_tesk::tools {

/// Returns the number of bytes of the UTF-8 character at the beginning of a text; 0 when it is invalid.
inline std::size_t utf8Size(std::string_view text) {
    const auto byte = [&text](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    const unsigned char first = byte(0);
    if (first < 0x80) {
        return 1;
    }
    const std::size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < size) {
        return 0;
    }
    for (std::size_t i = 1; i < size; ++i) {
        if ((byte(i) & 0xC0U) != 0x80) {
            return 0;
        }
    }
    const unsigned char second = byte(1);
    const bool isTooLong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool isNoCharacter = (first == 0xED && second > 0x9F) || (first == 0xF4 && second > 0x8F);
    return isTooLong || isNoCharacter ? 0 : size;
}

/// Returns true for a text that is valid UTF-8.
inline bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t size = utf8Size(text);
        if (size == 0) {
            return false;
        }
        text.remove_prefix(size);
    }
    return true;
}

/// Returns the bytes as hexadecimal digits.
inline std::string hexOf(std::string_view bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 0xFU];
    }
    return text;
}

/// Returns the text as a string of JSON. It must be UTF-8.
inline std::string jsonString(std::string_view text) {
    std::string quoted = "\"";
    for (const char character : text) {
        std::array<char, 8> escape{};
        if (character == '"' || character == '\\') {
            quoted += '\\';
            quoted += character;
        } else if (static_cast<unsigned char>(character) < 0x20) {
            std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned int>(character));
            quoted += escape.data();
        } else {
            quoted += character;
        }
    }
    return quoted + '"';
}

/// Returns a member of an object of JSON: `"name":"text"`. A text that is no UTF-8 becomes hexadecimal digits, and
/// `_hex` follows the name.
inline std::string jsonMember(const std::string& name, std::string_view text) {
    return isUtf8(text) ? jsonString(name) + ':' + jsonString(text)
                        : jsonString(name + "_hex") + ':' + jsonString(hexOf(text));
}

}  // namespace com_tesk::tools
