#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "message/RawMessage.h"
#include "tests/support/Hex.h"

namespace com_tesk {

class CSCommsInterfaceTCP;

namespace test {

/// Takes the bytes of a fake transport over a real one, both ways. Not for two threads at once.
class Carrier {
  public:
    virtual ~Carrier() = default;

    /// The host sends `bytes`, and the transport reads as many into `message`.
    /// @return the transport's result.
    virtual int read(const Bytes& bytes, RawMessage& message) = 0;

    /// The transport writes `message`.
    /// @return what has arrived at the host.
    virtual RawMessage write(const RawMessage& message) = 0;
};

// Which transport is under test is decided where the program is linked: each of these is defined once for the programs
// over the standard transport (StandardTransport.cpp) and once for those over the buffered one (BufferedTransport.cpp).

/// Null when fakes are to stay fakes.
std::unique_ptr<Carrier> newCarrier();

/// Null when engines are to keep the transport that they come with. Otherwise the caller's to own.
CSCommsInterfaceTCP* newTransportUnderTest();

/// Gives a closed engine or client the transport under test.
template <typename EngineOrClient>
void useTransportUnderTest(EngineOrClient& user) {
    CSCommsInterfaceTCP* const transport = newTransportUnderTest();
    if (transport != nullptr) {
        ASSERT_TRUE(user.changeCommsInterface(transport));
    }
}

}  // namespace test
}  // namespace com_tesk
