#include "tools/csmqtt/TopicName.h"

#include <cstdint>

namespace com_tesk::mqtt {

namespace {

constexpr std::string_view kDigits = "0123456789ABCDEF";

std::uint32_t byteAt(std::string_view text, std::size_t index) {
    return static_cast<unsigned char>(text[index]);
}

/// Reads the continuation bytes of a character of `size` bytes. Returns nothing when one is missing.
std::optional<std::uint32_t> codePoint(std::string_view text, std::size_t size) {
    constexpr std::uint32_t kFirstBits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    std::uint32_t code = byteAt(text, 0) & kFirstBits[size];
    for (std::size_t i = 1; i < size; ++i) {
        if (i >= text.size() || (byteAt(text, i) & 0xC0U) != 0x80U) {
            return std::nullopt;
        }
        code = (code << 6U) | (byteAt(text, i) & 0x3FU);
    }
    return code;
}

bool isPermitted(std::uint32_t code, std::size_t size) {
    constexpr std::uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool isControl = code < 0x20 || (code >= 0x7F && code < 0xA0);
    const bool isSurrogate = code >= 0xD800 && code < 0xE000;
    const bool isNoncharacter = (code >= 0xFDD0 && code < 0xFDF0) || (code & 0xFFFEU) == 0xFFFEU;
    return code >= kLeast[size] && code <= 0x10FFFF && !isControl && !isSurrogate && !isNoncharacter;
}

std::optional<unsigned> digitOf(char character) {
    const char upper = character >= 'a' && character <= 'f' ? static_cast<char>(character - 'a' + 'A') : character;
    const std::size_t found = kDigits.find(upper);
    return found == std::string_view::npos ? std::nullopt : std::optional(static_cast<unsigned>(found));
}

}  // namespace

std::size_t characterSize(std::string_view text) {
    if (text.empty()) {
        return 0;
    }
    const std::uint32_t first = byteAt(text, 0);
    std::size_t size = 0;
    if (first < 0x80) {
        size = 1;
    } else if (first >= 0xC0 && first < 0xE0) {
        size = 2;
    } else if (first >= 0xE0 && first < 0xF0) {
        size = 3;
    } else if (first >= 0xF0 && first < 0xF8) {
        size = 4;
    }
    const auto code = size == 0 ? std::nullopt : codePoint(text, size);
    return code && isPermitted(*code, size) ? size : 0;
}

std::string encodedName(std::string_view name) {
    constexpr std::string_view kReserved = "/+#%$ ";
    std::string level;
    for (std::size_t at = 0; at < name.size();) {
        const std::size_t size = characterSize(name.substr(at));
        if (size == 0 || kReserved.find(name[at]) != std::string_view::npos) {
            const std::uint32_t byte = byteAt(name, at);
            level += '%';
            level += kDigits[byte >> 4U];
            level += kDigits[byte & 0xFU];
            ++at;
        } else {
            level += name.substr(at, size);
            at += size;
        }
    }
    return level;
}

std::optional<std::string> decodedName(std::string_view level) {
    std::string name;
    for (std::size_t at = 0; at < level.size(); ++at) {
        if (level[at] != '%') {
            name += level[at];
            continue;
        }
        const auto high = level.size() - at > 2 ? digitOf(level[at + 1]) : std::nullopt;
        const auto low = level.size() - at > 2 ? digitOf(level[at + 2]) : std::nullopt;
        if (!high || !low) {
            return std::nullopt;
        }
        name += static_cast<char>((*high << 4U) | *low);
        at += 2;
    }
    return name;
}

std::string baseError(std::string_view base) {
    constexpr std::size_t kMaxSize = 1'000;
    if (base.empty() || base.size() > kMaxSize) {
        return "it has 1 to 1000 bytes";
    }
    if (base.front() == '$') {
        return "topics that begin with $ are the broker's";
    }
    if (base.front() == '/' || base.back() == '/' || base.find("//") != std::string_view::npos) {
        return "it has no slash at an end, and no two in a row";
    }
    if (base.find_first_of("+#") != std::string_view::npos) {
        return "+ and # are wildcards";
    }
    return isPlainText(base) ? std::string() : "it is valid UTF-8 without control characters";
}

bool isPlainText(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t size = characterSize(text.substr(at));
        if (size == 0) {
            return false;
        }
        at += size;
    }
    return true;
}

}  // namespace com_tesk::mqtt
