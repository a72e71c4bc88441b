#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "client/CSClient.h"
#include "message/RawMessage.h"
#include "simulator/MessageLayout.h"

namespace com_tesk::layout {

/// Reading and writing words where the caller has made sure that there are four bytes.
/// @{

/// The word at `at`.
inline std::uint32_t wordAt(const char* at) {
    unsigned char bytes[4];
    std::memcpy(bytes, at, sizeof bytes);
    return std::uint32_t{bytes[0]} << 24U | std::uint32_t{bytes[1]} << 16U | std::uint32_t{bytes[2]} << 8U |
           std::uint32_t{bytes[3]};
}

/// Writes a word.
/// @return the place behind it.
inline char* putWord(char* at, std::uint32_t word) {
    const unsigned char bytes[4] = {static_cast<unsigned char>(word >> 24U), static_cast<unsigned char>(word >> 16U),
                                    static_cast<unsigned char>(word >> 8U), static_cast<unsigned char>(word)};
    std::memcpy(at, bytes, sizeof bytes);
    return at + sizeof bytes;
}

/// @}

inline std::uint32_t bitsOf(CSClient::Value value) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

inline CSClient::Value valueOf(std::uint32_t bits) {
    CSClient::Value value;
    std::memcpy(&value, &bits, sizeof bits);
    return value;
}

/// The text of a zero-padded field that lies inside the message: up to its first zero byte, or all of it. In the message
/// itself.
inline std::string_view textAt(const RawMessage& message, std::size_t offset, std::size_t fieldLength) {
    const char* const field = message.data() + offset;
    return {field, strnlen(field, fieldLength)};
}

/// Sets a parameter's value, by the integer flag beside it. The caller has made sure that both words are there.
inline void readValue(const char* flag, const char* value, CSClient::Parameter& parameter) {
    parameter.type = wordAt(flag) != 0 ? CSClient::TYPE_INT : CSClient::TYPE_FLOAT;
    parameter.value = valueOf(wordAt(value));
}

}  // namespace com_tesk::layout
