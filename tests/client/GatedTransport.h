#pragma once

#include "tests/support/FakeTransport.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {

/// Where a client with a transport of these connects to: it never gets as far as the network.
constexpr unsigned int kAnyAddress = 0x0100007FU;

/// A transport whose reads hold the worker up until the test lets it go, as a host does that stalls in the middle of a
/// message.
class GatedTransport : public FakeTransport {
  public:
    explicit GatedTransport(Gate& readGate) : gate(readGate) {}

    int readMessage(unsigned int count, RawMessage& message) override {
        gate.pass();
        return FakeTransport::readMessage(count, message);
    }

  private:
    Gate& gate;
};

}  // namespace com_tesk::test
