#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "client/CSClient.h"

namespace com_tesk::test {

/// The longest name, and two that are too long.
inline const std::string kName31(31, 'x');
inline const std::string kName32(32, 'x');
inline const std::string kName33(33, 'x');

inline CSClient::InputDef input(const std::string& name, CSClient::ParameterType type = CSClient::TYPE_FLOAT,
                                std::uint32_t mode = 1) {
    return {name, type, mode};
}

inline CSClient::OutputDef output(const std::string& name, CSClient::ParameterType type = CSClient::TYPE_FLOAT) {
    return {name, type};
}

/// Returns a parameter whose value has these bits.
inline CSClient::Parameter parameter(const std::string& name, CSClient::ParameterType type, std::uint32_t bits) {
    CSClient::Parameter made{name, {}, type, 0};
    std::memcpy(&made.value, &bits, sizeof bits);
    return made;
}

inline CSClient::Parameter floatParameter(const std::string& name, float value) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return parameter(name, CSClient::TYPE_FLOAT, bits);
}

inline CSClient::Parameter intParameter(const std::string& name, std::int32_t value) {
    return parameter(name, CSClient::TYPE_INT, static_cast<std::uint32_t>(value));
}

/// Returns the bits of a value, copied as bytes so that no floating-point register changes them.
inline std::uint32_t bitsOf(const CSClient::Value& value) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

/// Returns, for example, "A type 1 bits 3F800000 reserved 0".
inline std::string text(const CSClient::Parameter& parameter) {
    char bits[9];
    std::snprintf(bits, sizeof bits, "%08X", static_cast<unsigned int>(bitsOf(parameter.value)));
    return parameter.name + " type " + std::to_string(parameter.type) + " bits " + bits + " reserved " +
           std::to_string(parameter.reserved);
}

inline std::vector<std::string> texts(const std::vector<CSClient::Parameter>& parameters) {
    std::vector<std::string> result;
    result.reserve(parameters.size());
    for (const CSClient::Parameter& each : parameters) {
        result.push_back(text(each));
    }
    return result;
}

}  // namespace com_tesk::test
