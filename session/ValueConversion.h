#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "client/CSClient.h"
#include "session/Health.h"

/// Converts values between the types of parameters. A value is stored as the 32 bits that its declared type has on
/// the wire.
namespace com_tesk::session {

using ValueType = ParameterStatus::Type;

/// Returns the declared type of the handles with this C++ type.
/// @{
template <typename T>
constexpr ValueType typeOf();
template <>
constexpr ValueType typeOf<float>() {
    return ValueType::FLOAT;
}
template <>
constexpr ValueType typeOf<std::int32_t>() {
    return ValueType::INT;
}
template <>
constexpr ValueType typeOf<bool>() {
    return ValueType::BOOL;
}
template <>
constexpr ValueType typeOf<Number>() {
    return ValueType::NUMBER;
}
/// @}

/// Returns the type that a request announces.
constexpr CSClient::ParameterType wireType(ValueType type) {
    return type == ValueType::FLOAT || type == ValueType::NUMBER ? CSClient::TYPE_FLOAT : CSClient::TYPE_INT;
}

template <typename T>
std::uint32_t toBits(T value) {
    std::uint32_t bits = 0;
    static_assert(sizeof value == sizeof bits);
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}
inline std::uint32_t toBits(bool value) {
    return value ? 1 : 0;
}

template <typename T>
T fromBits(std::uint32_t bits) {
    T value;
    static_assert(sizeof value == sizeof bits);
    std::memcpy(&value, &bits, sizeof bits);
    return value;
}
template <>
inline bool fromBits<bool>(std::uint32_t bits) {
    return bits != 0;
}

/// Returns the integer nearest to a number: 0 for what is no number, and the limits for what does not fit.
inline std::int32_t toInteger(float number) {
    constexpr float kBeyond = 2147483648.0F;  // The first number above the largest integer.
    if (std::isnan(number)) {
        return 0;
    }
    if (number >= kBeyond) {
        return std::numeric_limits<std::int32_t>::max();
    }
    if (number <= -kBeyond) {
        return std::numeric_limits<std::int32_t>::min();
    }
    return static_cast<std::int32_t>(std::lrint(number));
}

/// Returns the bits of a received value in the declared type. `Number` has those of the host's type.
inline std::uint32_t convert(const CSClient::Parameter& received, ValueType declared) {
    const bool isInteger = received.type == CSClient::TYPE_INT;
    switch (declared) {
        case ValueType::FLOAT:
            return toBits(isInteger ? static_cast<float>(received.value.asInt) : received.value.asFloat);
        case ValueType::INT:
            return toBits(isInteger ? received.value.asInt : toInteger(received.value.asFloat));
        case ValueType::BOOL:
            return toBits(isInteger ? received.value.asInt != 0
                                    : received.value.asFloat != 0.0F && !std::isnan(received.value.asFloat));
        case ValueType::NUMBER:
            return isInteger ? toBits(received.value.asInt) : toBits(received.value.asFloat);
    }
    return 0;
}

/// Returns the bits of a value as a number. `type` is not `NUMBER`.
inline double toNumber(std::uint32_t bits, ValueType type) {
    switch (type) {
        case ValueType::FLOAT:
            return static_cast<double>(fromBits<float>(bits));
        case ValueType::INT:
            return fromBits<std::int32_t>(bits);
        case ValueType::BOOL:
            return bits != 0 ? 1.0 : 0.0;
        case ValueType::NUMBER:
            break;
    }
    return 0;
}

}  // namespace com_tesk::session
