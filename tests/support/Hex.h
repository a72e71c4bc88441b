#pragma once

#include <cctype>
#include <stdexcept>
#include <string>
#include <vector>

namespace com_tesk::test {

using Bytes = std::vector<unsigned char>;

inline unsigned int hexDigitValue(char digit) {
    if (digit >= '0' && digit <= '9') {
        return static_cast<unsigned int>(digit - '0');
    }
    if (digit >= 'a' && digit <= 'f') {
        return static_cast<unsigned int>(digit - 'a') + 10U;
    }
    if (digit >= 'A' && digit <= 'F') {
        return static_cast<unsigned int>(digit - 'A') + 10U;
    }
    throw std::invalid_argument(std::string("not a hex digit: ") + digit);
}

/// Returns the bytes of a text such as "04 02 7F ff". Blanks and newlines are ignored. Any other text throws.
inline Bytes hex(const std::string& text) {
    Bytes bytes;
    bool isHalf = false;
    unsigned int high = 0;
    for (const char character : text) {
        if (std::isspace(static_cast<unsigned char>(character)) != 0) {
            continue;
        }
        if (isHalf) {
            bytes.push_back(static_cast<unsigned char>(high << 4U | hexDigitValue(character)));
        } else {
            high = hexDigitValue(character);
        }
        isHalf = !isHalf;
    }
    if (isHalf) {
        throw std::invalid_argument("half a byte at the end of: " + text);
    }
    return bytes;
}

/// Returns the text of bytes: two upper-case digits each, separated by blanks. Tests compare texts, because a failure
/// then shows the difference.
inline std::string hexText(const Bytes& bytes) {
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    for (const unsigned char byte : bytes) {
        if (!text.empty()) {
            text += ' ';
        }
        text += digits[byte >> 4U];
        text += digits[byte & 0xFU];
    }
    return text;
}

/// The same for any container of `char`, such as a RawMessage.
inline std::string hexText(const std::vector<char>& bytes) {
    return hexText(Bytes(bytes.begin(), bytes.end()));
}

/// Returns the hex text of a zero-padded field that holds `text`.
inline std::string hexField(const std::string& text, std::size_t length = 32) {
    Bytes field(text.begin(), text.end());
    if (field.size() > length) {
        throw std::invalid_argument("does not fit the field: " + text);
    }
    field.resize(length, 0);
    return hexText(field);
}

/// Returns the hex text of a big-endian 32-bit word.
inline std::string hexWord(unsigned int value) {
    return hexText(Bytes{static_cast<unsigned char>(value >> 24U), static_cast<unsigned char>(value >> 16U & 0xFFU),
                         static_cast<unsigned char>(value >> 8U & 0xFFU), static_cast<unsigned char>(value & 0xFFU)});
}

/// Returns the hex text of a data frame with this body: lengths, kind 0, sub-kind 0, sixteen times FF, body. It does
/// not use the library, so tests write the bytes of a host with it.
inline std::string hexFrame(const std::string& bodyHex) {
    const std::size_t bodyLength = hex(bodyHex).size();
    return hexWord(static_cast<unsigned int>(bodyLength) + 32U) + " 00 00 00 20 00 00 00 00 00 00 00 00 " +
           "FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF" + (bodyLength == 0 ? "" : " ") + bodyHex;
}

}  // namespace com_tesk::test
