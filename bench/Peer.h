#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/Load.h"

/// The same work with other client libraries ("peers"): publish one small value per call, and receive such values.

namespace com_tesk::bench {

/// One connection of a peer's client library. All values are published to one subject and received from it.
class PeerClient {
  public:
    PeerClient() = default;
    PeerClient(const PeerClient&) = delete;
    PeerClient& operator=(const PeerClient&) = delete;
    virtual ~PeerClient() = default;

    /// Publishes `count` values, one by one, and returns when they have been sent.
    virtual void publish(unsigned int count) = 0;
    /// Subscribes, and returns when the server has registered the subscription.
    virtual void subscribe() = 0;
    /// Blocks until `count` values have arrived.
    virtual void receive(unsigned int count) = 0;
};

struct Peer {
    std::string name;
    /// The server's program and arguments. "PORT" is replaced by its port.
    std::vector<std::string> server;
    std::function<std::unique_ptr<PeerClient>(unsigned int port)> connect;
};

/// Returns the rows of one peer. When its server is not installed, prints that and returns none.
std::vector<Work> workOf(const Peer& peer);

Peer redisPeer();
Peer natsPeer();
Peer mosquittoPeer();

}  // namespace com_tesk::bench
