#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/Load.h"

/// The same work by other client libraries: one small value a publish call, and receiving such values.

namespace com_tesk::bench {

/// One connection of a peer's client library. Values go to, and come from, one subject.
class PeerClient {
  public:
    PeerClient() = default;
    PeerClient(const PeerClient&) = delete;
    PeerClient& operator=(const PeerClient&) = delete;
    virtual ~PeerClient() = default;

    /// Publishes so many values, one by one, and sees to it that they leave.
    virtual void publish(unsigned int count) = 0;
    /// Subscribes, and returns when the server knows.
    virtual void subscribe() = 0;
    /// Blocks until so many values have arrived.
    virtual void receive(unsigned int count) = 0;
};

struct Peer {
    std::string name;
    /// The server's program and arguments; "PORT" stands for its port.
    std::vector<std::string> server;
    std::function<std::unique_ptr<PeerClient>(unsigned int port)> connect;
};

/// The rows of one peer; none, and a line that says why, when its server is not installed.
std::vector<Work> workOf(const Peer& peer);

Peer redisPeer();
Peer natsPeer();
Peer mosquittoPeer();

}  // namespace com_tesk::bench
