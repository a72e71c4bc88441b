#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "message/RawMessage.h"
#include "tests/support/Hex.h"

namespace com_tesk {

class CSCommsInterfaceTCP;

}  // namespace com_tesk

namespace com_tesk::test {

/// Sends the bytes of a fake transport over a real one, in both directions. Only one thread at a time may use it.
class Carrier {
  public:
    virtual ~Carrier() = default;

    /// Sends `bytes` from the host, and reads as many with the transport into `message`.
    /// @return the result of the transport.
    virtual int read(const Bytes& bytes, RawMessage& message) = 0;

    /// Writes `message` with the transport.
    /// @return the bytes that have arrived at the host.
    virtual RawMessage write(const RawMessage& message) = 0;
};

/// True when the environment has CSCLIENT_TEST_TRANSPORT=buffered. CTest runs such tests with the prefix "Buffered.".
bool isBufferedUnderTest();

/// Returns a new carrier over the buffered transport; null for the standard transport, whose fakes use no real one.
std::unique_ptr<Carrier> newCarrier();

/// Returns a new transport that the caller owns, or null for the standard transport, which is the engines' default.
CSCommsInterfaceTCP* newTransportUnderTest();

/// Makes a closed engine or client use the transport under test.
template <typename EngineOrClient>
void useTransportUnderTest(EngineOrClient& user) {
    CSCommsInterfaceTCP* const transport = newTransportUnderTest();
    if (transport != nullptr) {
        ASSERT_TRUE(user.changeCommsInterface(transport));
    }
}

}  // namespace com_tesk::test
