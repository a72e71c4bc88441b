#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "host/HostEvent.h"
#include "host/HostOptions.h"
#include "host/Value.h"

namespace com_tesk {

/// A simulation host for desks that have none: it serves any number of clients over TCP, keeps one store of named
/// values, and passes every published value on to whoever subscribed to its name.
///
///     LoopbackHost host({});  // On 127.0.0.1, on a port that the system picks.
///     SimClient client(1, CSClient::OPTION_SILENT);
///     client.registerOutputParameter({"ALT", CSClient::TYPE_FLOAT});
///     client.open("127.0.0.1", host.port(), nullptr);
///     client.waitForOutputsToBeRegistered(5);
///     client.publishParameter({"ALT", {12.5F}, CSClient::TYPE_FLOAT});
///     const bool isStored = host.waitForValue("ALT", HostValue::real(12.5F), std::chrono::seconds(5));
///
/// (tests/docs/HostExampleTest.cpp compiles and runs these lines.)
///
/// What it answers
/// - A version request: status 1, the version text, the protocol version and the client's own simulator id, or the
///   one that the options assign.
/// - Inputs and outputs: confirmed with ids from 1 up, assigned per client and in one row for both; 0 and 0xFFFFF
///   are never among them. A name that the client has registered already gets the same id again and takes over the
///   new type; after it was unregistered it gets a fresh one. An input is answered with the current value: of the
///   type that it was stored with, or 0 of the input's own type when the name has none yet.
/// - A publish: each value is stored under its output's name, integer or float as the output was registered,
///   whatever the record says, and goes at once to every subscriber, the publisher itself included: one update
///   message per client, in the order of the records. An id that this client has no output for is reported and its
///   record ignored.
/// - Unsubscriptions and unregistrations: honoured, not answered. Values stay when their publisher leaves.
/// - No request has to wait for another; the version may be asked for at any time or never.
///
/// What it does not take
/// - A request that is none (wrong protocol bytes, an unknown code, a size that its count or its sub-header does
///   not state) is reported and ignored as a whole; the client is served on.
/// - A client is dropped, and only that one, when its stream is lost (header length not 32, a frame shorter than
///   its header or longer than 16 MiB), when it stalls in the middle of a frame, and when it does not read what
///   waits for it; see HostOptions.
///
/// Threads: one of its own does all the serving. Every operation may be called from any thread, unless it says
/// otherwise; after stop() they still answer, from what is left.
class LoopbackHost {
  public:
    using Options = HostOptions;

    enum class DropMode {
        GRACEFUL,  ///< the client reads what was sent to it, then the end of the stream
        RESET,     ///< the client's next read or write fails: connection reset
    };

    /// Listens and serves from here on. Takes a copy of the options.
    /// @throws std::system_error that names address and port, when the address is none of this machine or the
    ///         port is taken by another listener. Connections left over from a host that was
    ///         stopped are no obstacle: it can be started again on the same port at once.
    explicit LoopbackHost(Options options);

    /// stop(). Not from the event sink.
    ~LoopbackHost();

    LoopbackHost(const LoopbackHost&) = delete;
    LoopbackHost& operator=(const LoopbackHost&) = delete;

    /// The port it listens on, also when the system picked it; the same after stop(). Does not block.
    std::uint16_t port() const;

    /// Closes every client and the port, and ends the thread; again: nothing. When it returns, no event is reported
    /// any more. Blocks for as long as the event sink takes. Not from the event sink.
    void stop();

    /// Closes the connections of all clients that are connected now and goes on listening. When it returns they are
    /// closed and clientCount() no longer has them. Not from the event sink.
    /// @return how many there were.
    std::size_t dropClients(DropMode mode);

    /// Stores a value and sends it to all who subscribed to the name, as if it had been published. When it returns,
    /// the updates are queued; called from the event sink, it returns at once and that follows.
    void setValue(const std::string& name, HostValue value);

    /// The value stored under the name; nothing when it was never published or set. Short lock, does not block.
    std::optional<HostValue> value(const std::string& name) const;

    /// Clients connected now. A client counts from when it is let in, which may be after its own
    /// connect succeeded. Short lock, does not block.
    std::size_t clientCount() const;

    /// Clients that are subscribed to the name now. Short lock, does not block.
    std::size_t subscriberCount(const std::string& name) const;

    /// Each blocks until the condition holds, at most for `limit`.
    /// @return whether it held. Not from the event sink.
    bool waitForValue(const std::string& name, HostValue value, std::chrono::milliseconds limit) const;
    bool waitForClients(std::size_t exactly, std::chrono::milliseconds limit) const;
    bool waitForSubscribers(const std::string& name, std::size_t exactly, std::chrono::milliseconds limit) const;

  private:
    class Impl;
    const std::unique_ptr<Impl> impl;
};

}  // namespace com_tesk
