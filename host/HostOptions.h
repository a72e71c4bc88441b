#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "host/HostEvent.h"
#include "host/Value.h"

namespace com_tesk {

struct HostOptions {
    /// IPv4 address text; "0.0.0.0" for every interface.
    std::string listenAddress = "127.0.0.1";
    /// 0: the system picks one, LoopbackHost::port() tells which.
    std::uint16_t port = 0;

    /// What version requests are answered with. The text is cut to 128 bytes.
    std::string versionText = "csclient loopback host";
    std::uint32_t protocolVersion = 1;
    /// The simulator id in every version reply; without it, each client is answered with its own.
    std::optional<std::uint16_t> assignId;

    /// Values that are there before the first client. Names of more than 32 bytes can never be asked for.
    std::map<std::string, HostValue> initialValues;

    /// A client is dropped when a message would bring what waits to be sent to it above this many bytes. A single
    /// message is always taken when nothing waits, so that no answer is too long to be given.
    std::size_t maxQueuedBytes = std::size_t{16} * 1024 * 1024;
    /// A client is dropped when it has begun a frame and no further byte of it comes for this long.
    /// Between frames it may be silent for ever.
    std::chrono::milliseconds stallLimit = std::chrono::seconds(30);

    /// Called for each event, one call at a time: the first (LISTENING) on the constructing thread, all others on
    /// the host's own thread, which serves nobody meanwhile. An event is reported before anything of it can be
    /// noticed, on the wire or through LoopbackHost: whoever has seen an effect finds its event recorded. Must not
    /// throw; may call any LoopbackHost operation but stop(), dropClients() and the waits.
    std::function<void(const HostEvent&)> eventSink;
};

}  // namespace com_tesk
