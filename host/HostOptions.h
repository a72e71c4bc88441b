#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "host/HostEvent.h"
#include "host/Value.h"

namespace com_tesk {

/// What a `LoopbackHost` listens on, answers and tolerates.
struct HostOptions {
    /// The text of an IPv4 address; "0.0.0.0" for every interface.
    std::string listenAddress = "127.0.0.1";
    /// With 0 the system picks the port, and LoopbackHost::port() returns it.
    std::uint16_t port = 0;

    /// The version text and the protocol version in version replies. The text is cut to 128 bytes.
    /// @{
    std::string versionText = "csclient loopback host";
    std::uint32_t protocolVersion = 1;
    /// @}
    /// The simulator id in every version reply. Without it, each client receives its own id.
    std::optional<std::uint16_t> assignId;

    /// The names that clients may register. The host does not confirm others. Without it, every name is known.
    std::optional<std::set<std::string>> knownNames;

    /// The values before the first client connects. No client can request a name of more than 32 bytes.
    std::map<std::string, HostValue> initialValues;

    /// With false the host only reports published values. It neither stores them nor sends them to subscribers, whose
    /// values then come from `LoopbackHost::setValue` and `setValues` alone.
    bool areValuesShared = true;

    /// The host drops a client when a message would bring its queue above this many bytes. An empty queue accepts a
    /// message of any size, so that no reply is too long.
    std::size_t maxQueuedBytes = std::size_t{16} * 1024 * 1024;
    /// The host drops a client that has begun a frame and sends no further byte of it for this time. Between frames a
    /// client may be silent indefinitely.
    std::chrono::milliseconds stallLimit = std::chrono::seconds(30);

    /// Called for each event, one call at a time. The first call (LISTENING) is on the constructing thread, all others
    /// on the host's own thread, which serves no client during the call. An event is reported before it has an effect
    /// on the wire or on the results of LoopbackHost. A test that has seen the effect can thus rely on the event. Must
    /// not throw. May call every LoopbackHost operation except stop(), dropClients() and the waits.
    std::function<void(const HostEvent&)> eventSink;

    /// Called on the host's own thread once every `heartbeatInterval`, for as long as this thread serves clients. A
    /// service feeds its watchdog with it: when the thread hangs, the calls end. The rules are those of `eventSink`.
    /// @{
    std::function<void()> heartbeat;
    std::chrono::milliseconds heartbeatInterval = std::chrono::seconds(1);
    /// @}
};

}  // namespace com_tesk
