// The publisher's command line. The input holds the arguments after the program's name, with a zero byte between them.

#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/Fuzzing.h"
#include "tools/PublishCommandLine.h"

using com_tesk::PublishCommandLine;

namespace {

std::vector<std::string> argumentsIn(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> arguments{"cspublish"};
    if (size > 0) {
        arguments.emplace_back();
    }
    for (std::size_t i = 0; i < size; ++i) {
        if (data[i] == 0) {
            arguments.emplace_back();
        } else {
            arguments.back() += static_cast<char>(data[i]);
        }
    }
    return arguments;
}

/// Returns the request of the command line, by the rules of the syntax line.
PublishCommandLine::Request requestOf(const std::vector<std::string>& arguments) {
    if (arguments.size() == 2 && arguments[1] == "-version") {
        return PublishCommandLine::SHOW_VERSION;
    }
    const bool isVersionAndMore = arguments.size() > 2 && arguments[1] == "-version";
    const bool hasId = arguments.size() > 2 && arguments[1] == "-csid";
    const bool isOdd = arguments.size() % 2 != 0;
    if (isVersionAndMore || arguments.size() < (hasId ? 6U : 4U) || isOdd) {
        return PublishCommandLine::SYNTAX_ERROR;
    }
    return PublishCommandLine::PUBLISH_VALUES;
}

/// True when both have the same bits. A text can give a NaN, which differs even from itself.
bool hasSameBytes(float one, float other) {
    std::array<unsigned char, sizeof one> bytes{};
    std::array<unsigned char, sizeof other> otherBytes{};
    std::memcpy(bytes.data(), &one, sizeof one);
    std::memcpy(otherBytes.data(), &other, sizeof other);
    return bytes == otherBytes;
}

void checkRun(const PublishCommandLine& commandLine, const std::vector<std::string>& arguments) {
    const bool hasId = arguments[1] == "-csid";
    const std::size_t address = hasId ? 3 : 1;
    const auto id = hasId ? static_cast<unsigned int>(std::strtol(arguments[2].c_str(), nullptr, 10)) : 1U;
    CSCLIENT_FUZZ_CHECK(commandLine.simulatorId == id);
    CSCLIENT_FUZZ_CHECK(commandLine.address == arguments[address]);
    CSCLIENT_FUZZ_CHECK(!commandLine.values.empty());
    CSCLIENT_FUZZ_CHECK(2 * commandLine.values.size() == arguments.size() - address - 1);
    for (std::size_t i = 0; i < commandLine.values.size(); ++i) {
        const std::size_t name = address + 1 + 2 * i;
        const auto expected = static_cast<float>(std::strtod(arguments[name + 1].c_str(), nullptr));
        CSCLIENT_FUZZ_CHECK(commandLine.values[i].name == arguments[name]);
        CSCLIENT_FUZZ_CHECK(hasSameBytes(commandLine.values[i].value, expected));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<std::string> arguments = argumentsIn(data, size);
    std::vector<const char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
        pointers.push_back(argument.c_str());
    }
    pointers.push_back(nullptr);

    const PublishCommandLine commandLine =
        PublishCommandLine::parse(static_cast<int>(arguments.size()), pointers.data());

    CSCLIENT_FUZZ_CHECK(commandLine.request == requestOf(arguments));
    if (commandLine.request == PublishCommandLine::PUBLISH_VALUES) {
        checkRun(commandLine, arguments);
    } else {
        CSCLIENT_FUZZ_CHECK(commandLine.simulatorId == 0 && commandLine.address.empty() && commandLine.values.empty());
    }
    return 0;
}
