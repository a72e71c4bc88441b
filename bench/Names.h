#pragma once

#include <string>
#include <vector>

#include "client/CSClient.h"

namespace com_tesk::bench {

/// Names of exactly 20 characters, in ascending order.
inline std::string parameterName(unsigned int number) {
    const std::string digits = std::to_string(number);
    return "parameter." + std::string(10 - digits.size(), '0') + digits;
}

inline std::vector<CSClient::OutputDef> outputDefinitions(unsigned int count) {
    std::vector<CSClient::OutputDef> definitions;
    definitions.reserve(count);
    for (unsigned int i = 0; i < count; ++i) {
        definitions.push_back({parameterName(i), CSClient::TYPE_FLOAT});
    }
    return definitions;
}

inline std::vector<CSClient::InputDef> inputDefinitions(unsigned int count) {
    std::vector<CSClient::InputDef> definitions;
    definitions.reserve(count);
    for (unsigned int i = 0; i < count; ++i) {
        definitions.push_back({parameterName(i), CSClient::TYPE_FLOAT, 1});
    }
    return definitions;
}

/// `count` parameters starting at `first`, in the form that publish calls take.
inline std::vector<CSClient::Parameter> parameters(unsigned int first, unsigned int count) {
    std::vector<CSClient::Parameter> all;
    all.reserve(count);
    for (unsigned int i = 0; i < count; ++i) {
        all.push_back({parameterName(first + i), {1.0F}, CSClient::TYPE_FLOAT});
    }
    return all;
}

template <typename Definition>
std::vector<std::string> namesOf(const std::vector<Definition>& definitions) {
    std::vector<std::string> names;
    names.reserve(definitions.size());
    for (const Definition& definition : definitions) {
        names.push_back(definition.name);
    }
    return names;
}

}  // namespace com_tesk::bench
