#include "tools/recording/Base64.h"

#include <algorithm>
#include <cstdint>

namespace com_tesk::recording {

namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPadding = '=';

}  // namespace

void appendBase64(std::string& text, std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t taken = std::min<std::size_t>(bytes.size(), 3);
        std::uint32_t group = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            group = group << 8U | (i < taken ? static_cast<unsigned char>(bytes[i]) : 0U);
        }
        for (std::size_t i = 0; i < 4; ++i) {
            text += i <= taken ? kAlphabet[group >> (18U - 6U * i) & 0x3FU] : kPadding;
        }
        bytes.remove_prefix(taken);
    }
}

std::optional<std::string> bytesOfBase64(std::string_view text) {
    if (text.size() % 4 != 0) {
        return std::nullopt;
    }
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3);
    for (; !text.empty(); text.remove_prefix(4)) {
        std::size_t digits = 4;
        if (text.size() == 4) {
            digits = text[3] != kPadding ? 4 : text[2] != kPadding ? 3 : 2;
        }
        std::uint32_t group = 0;
        for (std::size_t i = 0; i < 4; ++i) {
            const std::size_t digit = i < digits ? kAlphabet.find(text[i]) : 0;
            if (digit == std::string_view::npos) {
                return std::nullopt;
            }
            group = group << 6U | static_cast<std::uint32_t>(digit);
        }
        const std::uint32_t unused = digits == 4 ? 0 : digits == 3 ? 0xFFU : 0xFFFFU;
        if ((group & unused) != 0) {
            return std::nullopt;
        }
        for (std::size_t i = 0; i + 1 < digits; ++i) {
            bytes += static_cast<char>(group >> (16U - 8U * i) & 0xFFU);
        }
    }
    return bytes;
}

}  // namespace com_tesk::recording
