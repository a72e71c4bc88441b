#include "tests/support/Parameters.h"

#include <cstdio>
#include <cstring>

namespace com_tesk::test {

CSClient::InputDef input(const std::string& name, CSClient::ParameterType type, std::uint32_t mode) {
    CSClient::InputDef definition;
    definition.name = name;
    definition.type = type;
    definition.subscriptionMode = mode;
    return definition;
}

CSClient::OutputDef output(const std::string& name, CSClient::ParameterType type) {
    CSClient::OutputDef definition;
    definition.name = name;
    definition.type = type;
    return definition;
}

CSClient::Parameter parameter(const std::string& name, CSClient::ParameterType type, std::uint32_t bits) {
    CSClient::Parameter made;
    made.name = name;
    made.type = type;
    std::memcpy(&made.value, &bits, sizeof bits);
    return made;
}

CSClient::Parameter floatParameter(const std::string& name, float value) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return parameter(name, CSClient::TYPE_FLOAT, bits);
}

CSClient::Parameter intParameter(const std::string& name, std::int32_t value) {
    return parameter(name, CSClient::TYPE_INT, static_cast<std::uint32_t>(value));
}

std::uint32_t bitsOf(const CSClient::Value& value) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

std::string text(const CSClient::Parameter& parameter) {
    char bits[9];
    std::snprintf(bits, sizeof bits, "%08X", static_cast<unsigned int>(bitsOf(parameter.value)));
    return parameter.name + " type " + std::to_string(parameter.type) + " bits " + bits + " reserved " +
           std::to_string(parameter.reserved);
}

std::vector<std::string> texts(const std::vector<CSClient::Parameter>& parameters) {
    std::vector<std::string> result;
    for (const CSClient::Parameter& each : parameters) {
        result.push_back(text(each));
    }
    return result;
}

}  // namespace com_tesk::test
