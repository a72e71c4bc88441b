#pragma once

#include <string>
#include <vector>

#include "comms/CSLockGuard.h"
#include "engine/EngineLocks.h"
#include "message/RawMessage.h"
#include "simulator/SimulatorProtocol.h"
#include "tests/support/FakeTransport.h"
#include "tests/support/Hex.h"

namespace com_tesk {
namespace test {

/// A simulator engine without socket and worker, whose insides a test can look at: its transport is a `FakeTransport`,
/// and its state is what the test sets.
class TestEngine : public SimulatorProtocol {
  public:
    explicit TestEngine(unsigned int id = 1, unsigned int optionFlags = 0) : SimulatorProtocol(id, optionFlags) {
        auto* const newTransport = new FakeTransport;
        changeCommsInterface(newTransport);
        fake = newTransport;
    }

    /// Owned by the engine.
    FakeTransport& fakeTransport() { return *fake; }

    /// Sets the state without any of what a change of state does.
    void pretendState(CSClient::State pretended) { state = pretended; }

    /// A real change of state, under the lock that it needs.
    void changeState(CSClient::State newState) {
        underConnectionLock([this, newState]() CSCLIENT_REQUIRES(connectionMutex) { setState(newState); });
    }

    /// Hands over a message body, as the worker does.
    void receive(const std::string& bodyHex) {
        const Bytes bytes = hex(bodyHex);
        RawMessage message(RawMessage::DATA);
        message.insert(message.end(), bytes.begin(), bytes.end());
        handleReceivedMessage(message);
    }

    using CSClientProtocol::callbacks;
    using CSClientProtocol::inputNamesById;
    using CSClientProtocol::inputsByName;
    using CSClientProtocol::outputsById;
    using CSClientProtocol::outputsByName;
    using CSClientProtocol::serverAddress;
    using CSClientProtocol::serverPort;

  private:
    FakeTransport* fake;
};

}  // namespace test
}  // namespace com_tesk
