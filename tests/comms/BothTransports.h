#pragma once

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

#include "tests/comms/BufferedPair.h"
#include "tests/comms/OpenTransport.h"

namespace com_tesk::test {

/// The parameters of a typed test of what both transports have in common.
using BothTransports = testing::Types<VisibleTransport, VisibleBuffered>;

struct TransportNames {
    template <typename Transport>
    static std::string GetName(int /*index*/) {
        return std::is_same_v<Transport, VisibleBuffered> ? "Buffered" : "Standard";
    }
};

/// A transport of either kind, and a host that it can connect to.
template <typename Transport>
class ConnectedTransport : public testing::Test {
  protected:
    void connect() {
        ASSERT_TRUE(transport.openConnection(ScriptedHost::address(), host.port()));
        peer = host.accept();
        ASSERT_TRUE(peer);
    }

    ScriptedHost host;
    Transport transport;
    std::unique_ptr<ScriptedHost::Peer> peer;
};

}  // namespace com_tesk::test
