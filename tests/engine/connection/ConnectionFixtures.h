#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "comms/ThreadSafety.h"
#include "tests/support/FakeTransport.h"
#include "tests/support/Hex.h"
#include "tests/support/TestEngine.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {

/// What an operation that sleeps exactly one second may take. The upper bound leaves room for a busy machine, but not for
/// a second sleep.
inline bool isOneSecond(double seconds) {
    return seconds >= 0.99 && seconds < 1.9;
}

using ProbeTransport = FakeTransport;

/// A test engine with an id that no test of connections depends on.
class ConnectionEngine : public TestEngine {
  public:
    explicit ConnectionEngine(unsigned int optionFlags = 0) : TestEngine(1, optionFlags) {}

    FakeTransport& probe() { return fakeTransport(); }

    /// Asks for a copy of the registry in the registry itself.
    int copyRegistryOntoItself() { return getCallbackInterfaces(PartAccess::callbacks(engineParts().callbacks)); }
};

/// Ends the connection of an engine whose worker runs, also when a test gives up early.
class EndOnExit {
  public:
    explicit EndOnExit(CSClientProtocol& engineToEnd) : engine(engineToEnd) {}
    EndOnExit(const EndOnExit&) = delete;
    EndOnExit& operator=(const EndOnExit&) = delete;
    ~EndOnExit() {
        engine.forceCloseConnection();
        waitUntil([this] { return engine.getState() == CSClient::STATE_DISCONNECTED; });
    }

  private:
    CSClientProtocol& engine;
};

inline bool waitForState(const CSClientProtocol& engine, CSClient::State wanted) {
    return waitUntil([&engine, wanted] { return engine.getState() == wanted; });
}

/// The frame of the version request of simulator 1, the first that a connection sends.
inline const char* versionRequestFrame() {
    return "00 00 00 34 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
           "04 02 7F FF 00 00 00 14 00 7F 00 06 00 01 00 00 00 00 00 00";
}

inline RawMessage messageOf(RawMessage::Type type, const std::string& bodyHex) {
    RawMessage message(type);
    const Bytes bytes = hex(bodyHex);
    message.insert(message.end(), bytes.begin(), bytes.end());
    return message;
}

/// What a failed write prints: EPIPE is 32.
constexpr const char* kBrokenPipeLine = "Error writing to server (32) \n";

}  // namespace com_tesk::test
