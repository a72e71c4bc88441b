#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "client/CSClient.h"

namespace com_tesk::test {

/// The longest name, and two that are too long.
inline const std::string kName31(31, 'x');
inline const std::string kName32(32, 'x');
inline const std::string kName33(33, 'x');

CSClient::InputDef input(const std::string& name, CSClient::ParameterType type = CSClient::TYPE_FLOAT,
                         std::uint32_t mode = 1);
CSClient::OutputDef output(const std::string& name, CSClient::ParameterType type = CSClient::TYPE_FLOAT);

/// Returns a parameter whose value has these bits.
CSClient::Parameter parameter(const std::string& name, CSClient::ParameterType type, std::uint32_t bits);
CSClient::Parameter floatParameter(const std::string& name, float value);
CSClient::Parameter intParameter(const std::string& name, std::int32_t value);

/// Returns the bits of a value, copied as bytes so that no floating-point register changes them.
std::uint32_t bitsOf(const CSClient::Value& value);

/// Returns, for example, "A type 1 bits 3F800000 reserved 0".
std::string text(const CSClient::Parameter& parameter);
std::vector<std::string> texts(const std::vector<CSClient::Parameter>& parameters);

}  // namespace com_tesk::test
