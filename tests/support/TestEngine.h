#pragma once

#include <string>
#include <vector>

#include "comms/CSLockGuard.h"
#include "message/RawMessage.h"
#include "tests/support/FakeTransport.h"
#include "tests/support/Hex.h"
#include "tests/support/OpenEngine.h"

namespace com_tesk::test {

/// A simulator engine without a socket and a worker, whose parts a test can read. Its transport is a `FakeTransport`,
/// and the test sets its state.
class TestEngine : public OpenEngine {
  public:
    explicit TestEngine(unsigned int id = 1, unsigned int optionFlags = 0) : OpenEngine(id, optionFlags) {
        auto* const newTransport = new FakeTransport;
        changeCommsInterface(newTransport);
        fake = newTransport;
    }

    /// Owned by the engine.
    FakeTransport& fakeTransport() { return *fake; }

    /// Passes a message body to the engine, as the worker does.
    void receive(const std::string& bodyHex) {
        const Bytes bytes = hex(bodyHex);
        RawMessage message(RawMessage::DATA);
        message.insert(message.end(), bytes.begin(), bytes.end());
        handleReceivedMessage(message);
    }

  private:
    FakeTransport* fake;
};

}  // namespace com_tesk::test
