#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "client/CSClient.h"
#include "message/BigEndian.h"
#include "message/RawMessage.h"
#include "simulator/MessageLayout.h"

namespace com_tesk::layout {

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
    parameter.type = big_endian::wordAt(flag) != 0 ? CSClient::TYPE_INT : CSClient::TYPE_FLOAT;
    parameter.value = valueOf(big_endian::wordAt(value));
}

}  // namespace com_tesk::layout
