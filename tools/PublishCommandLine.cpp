#include "tools/PublishCommandLine.h"

#include <cstdlib>

namespace com_tesk {

namespace {

constexpr unsigned int kDefaultSimulatorId = 1;
constexpr int kDecimal = 10;

}  // namespace

PublishCommandLine PublishCommandLine::parse(int argumentCount, const char* const* arguments) {
    constexpr int kFirstArgument = 1;
    constexpr int kFewestArguments = 4;
    constexpr int kFewestArgumentsWithId = 6;

    PublishCommandLine commandLine;
    if (argumentCount > kFirstArgument && std::string(arguments[kFirstArgument]) == "-version") {
        if (argumentCount == kFirstArgument + 1) {
            commandLine.request = SHOW_VERSION;
        }
        return commandLine;
    }
    if (argumentCount < kFewestArguments) {
        return commandLine;
    }
    int next = kFirstArgument;
    unsigned int simulatorId = kDefaultSimulatorId;
    if (std::string(arguments[next]) == "-csid") {
        if (argumentCount < kFewestArgumentsWithId) {
            return commandLine;
        }
        simulatorId = static_cast<unsigned int>(std::strtol(arguments[next + 1], nullptr, kDecimal));
        next += 2;
    }
    // The address, followed by whole pairs.
    if ((argumentCount - next) % 2 == 0) {
        return commandLine;
    }
    commandLine.request = PUBLISH_VALUES;
    commandLine.simulatorId = simulatorId;
    commandLine.address = arguments[next++];
    for (; next < argumentCount; next += 2) {
        commandLine.values.push_back({arguments[next], static_cast<float>(std::strtod(arguments[next + 1], nullptr))});
    }
    return commandLine;
}

}  // namespace com_tesk
