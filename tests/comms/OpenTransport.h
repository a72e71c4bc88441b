#pragma once

#include <memory>
#include <stdexcept>

#include "comms/CSCommsInterfaceTCP.h"
#include "comms/TcpConnection.h"
#include "tests/support/ScriptedHost.h"

namespace com_tesk::test {

/// A transport whose descriptor a test can see.
class VisibleTransport : public CSCommsInterfaceTCP {
  public:
    explicit VisibleTransport(const Options& givenOptions = Options()) : CSCommsInterfaceTCP(givenOptions) {}

    int descriptor() const { return connection().descriptor(); }
};

/// A transport that is connected to a peer.
struct OpenTransport {
    OpenTransport() {
        if (!transport.openConnection(ScriptedHost::address(), host.port())) {
            throw std::runtime_error("no connection");
        }
        peer = host.accept();
        if (peer == nullptr) {
            throw std::runtime_error("no peer");
        }
    }

    ScriptedHost host;
    VisibleTransport transport;
    std::unique_ptr<ScriptedHost::Peer> peer;
};

}  // namespace com_tesk::test
