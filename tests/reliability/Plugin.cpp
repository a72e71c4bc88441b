// A plugin of an application: the only module of the test's process that is linked to the client's shared library.

#include <arpa/inet.h>

#include <chrono>
#include <thread>

#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "simulator/SimulatorProtocol.h"

namespace {

using com_tesk::CSClient;
using com_tesk::SimulatorProtocol;

bool waitForState(const SimulatorProtocol& engine, CSClient::State wanted) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (engine.getState() != wanted) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(1));
    }
    return true;
}

}  // namespace

/// Opens a connection to a port of 127.0.0.1, closes it, and deletes the engine as soon as its state is
/// `STATE_DISCONNECTED`. Returns false when the connection does not begin or end in time.
/// @param untilReady  closes only after `STATE_READY`.
extern "C" __attribute__((visibility("default"))) bool useConnection(unsigned int port, bool untilReady) {
    // Kept after a failure: the worker still uses it then.
    auto* const engine = new SimulatorProtocol(1, CSClient::OPTION_SILENT);
    engine->changeCommsInterface(new com_tesk::CSCommsInterfaceTCPBuffered);
    if (engine->openConnection(htonl(INADDR_LOOPBACK), port, nullptr) != 0 ||
        (untilReady && !waitForState(*engine, CSClient::STATE_READY))) {
        return false;
    }
    engine->forceCloseConnection();
    if (!waitForState(*engine, CSClient::STATE_DISCONNECTED)) {
        return false;
    }
    delete engine;
    return true;
}
