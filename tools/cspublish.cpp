// cspublish: publishes values to a simulation host, and is an example of how to use the library.

#include <unistd.h>

#include <iostream>
#include <sstream>

#include "client/SimClient.h"
#include "tools/PublishCommandLine.h"

using com_tesk::CSClient;
using com_tesk::PublishCommandLine;
using com_tesk::SimClient;

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;

constexpr unsigned int kHostPort = 55580;
constexpr unsigned int kConnectSeconds = 3;
constexpr unsigned int kConfirmSeconds = 4;
constexpr unsigned int kLastAnswerSeconds = 1;

/// Writes a line in one insertion, so that it never mixes with lines of the library.
void printLine(std::ostream& stream, const std::ostringstream& line) {
    stream << line.str() + '\n' << std::flush;
}

bool connect(SimClient& client, const std::string& address) {
    return client.open(address.c_str(), kHostPort, nullptr) == 0 &&
           client.waitForConnectionState(CSClient::STATE_READY, kConnectSeconds);
}

/// Registers one output, waits for its confirmation and publishes its value.
/// @return false when this failed. A printed line then says why.
bool publish(SimClient& client, const PublishCommandLine::NamedValue& namedValue) {
    std::ostringstream line;

    // The result of the registration is not needed: without a pending output, publishing below fails and reports it.
    client.registerOutputParameter({namedValue.name, CSClient::TYPE_FLOAT});
    if (!client.waitForOutputsToBeRegistered(kConfirmSeconds)) {
        line << "No response from server to registration for " << namedValue.name << ". Leaving now.";
        printLine(std::cerr, line);
        return false;
    }

    CSClient::Parameter parameter;
    parameter.name = namedValue.name;
    parameter.value.asFloat = namedValue.value;
    parameter.type = CSClient::TYPE_FLOAT;
    const int result = client.publishParameter(parameter);
    if (result != 0) {
        line << "Error publishing parameter '" << namedValue.name << "' (" << result << "). Leaving now.";
        printLine(std::cerr, line);
        return false;
    }
    line << "Published " << namedValue.name << " with value " << namedValue.value;
    printLine(std::cout, line);
    return true;
}

int run(const PublishCommandLine& commandLine) {
    SimClient client(commandLine.simulatorId, CSClient::OPTION_AUTO_RECONNECT);
    if (!connect(client, commandLine.address)) {
        std::cerr << "Failed to open connection. Exiting.\n" << std::flush;
        return kExitFailed;
    }
    std::cout << "Connected.\n" << std::flush;

    for (const PublishCommandLine::NamedValue& namedValue : commandLine.values) {
        if (!publish(client, namedValue)) {
            break;
        }
    }

    // Exit with success also after an early stop: earlier values stay published, and the host is left in order.
    // NOLINTNEXTLINE(concurrency-mt-unsafe): uses no alarm signal on Linux, so any thread may call it.
    sleep(kLastAnswerSeconds);
    client.unregisterAllOutputParameters();
    client.close();
    return kExitOk;
}

}  // namespace

int main(int argc, char** argv) {
    const PublishCommandLine commandLine = PublishCommandLine::parse(argc, argv);
    switch (commandLine.request) {
        case PublishCommandLine::SHOW_VERSION:
            std::cout << std::string(CSClient::getClientVersion()) + '\n' << std::flush;
            return kExitOk;
        case PublishCommandLine::PUBLISH_VALUES:
            return run(commandLine);
        case PublishCommandLine::SYNTAX_ERROR:
            break;
    }
    std::ostringstream line;
    line << "Syntax: " << (argc > 0 ? argv[0] : "cspublish")
         << " [-csid <id>] <IP Address> <parameter name> <value> [<parameter name> <value>] [...]";
    printLine(std::cerr, line);
    return kExitFailed;
}
