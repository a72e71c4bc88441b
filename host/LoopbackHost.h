#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/HostEvent.h"
#include "host/HostOptions.h"
#include "host/Scenario.h"
#include "host/Value.h"

namespace com_tesk {

/// A simulation host for tests and development: serves any number of clients over TCP, stores named values, and sends
/// every published value to all subscribers of its name.
///
///     LoopbackHost host({});  // On 127.0.0.1, on a port that the system picks.
///     SimClient client(1, CSClient::OPTION_SILENT);
///     client.registerOutputParameter({"ALT", CSClient::TYPE_FLOAT});
///     client.open("127.0.0.1", host.port(), nullptr);
///     client.waitForOutputsToBeRegistered(5);
///     client.publishParameter({"ALT", {12.5F}, CSClient::TYPE_FLOAT});
///     const bool isStored = host.waitForValue("ALT", HostValue::real(12.5F), std::chrono::seconds(5));
///
/// (tests/docs/DocumentsTest.cpp compiles and runs these lines.)
///
/// Requests
/// - Version: the reply contains status 1, the version text, the protocol version and the client's own simulator id, or
///   the id that the options assign.
/// - Inputs and outputs: the host confirms each with an id. Each client has one sequence of ids for both, which starts
///   at 1 and never contains 0 and 0xFFFFF. A name that is registered again keeps its id and gets the new type. A name
///   that was unregistered gets a new id. The confirmation of an input contains the current value, in the type that it
///   was stored with. When the name has no value, it contains 0 of the input's own type.
/// - Publish: the host stores each value under the name of its output. The type is that of the output's registration;
///   the flag in the record is ignored. All subscribers receive the values immediately, including the publisher itself:
///   one update message per client, in the order of the records. A record with an id that is not an output of this
///   client is reported and ignored.
/// - Unsubscriptions and unregistrations: they take effect without a reply. Values stay when their publisher leaves.
/// - Requests may arrive in any order. A version request may arrive at any time or never.
///
/// Errors
/// - A malformed request is reported and ignored as a whole, and the client is still served. This applies to wrong
///   protocol bytes, to an unknown code, and to a size other than its count or its sub-header states.
/// - The host drops a client whose stream cannot be read further: a header length other than 32, a frame shorter than
///   its header or longer than 16 MiB. It also drops a client that stalls in the middle of a frame, and one that does
///   not read what is queued for it; see HostOptions. Other clients are not affected.
///
/// Threads: the host serves all clients on one thread of its own. Any thread may call every operation, unless the
/// operation says otherwise. After stop() the operations still work on the stored values.
class LoopbackHost {
  public:
    using Options = HostOptions;  ///< Short name.

    /// How `dropClients` closes connections.
    enum class DropMode {
        GRACEFUL,  ///< The client reads what was sent to it, then the end of the stream.
        RESET,     ///< The client's next read or write fails: connection reset.
    };

    /// Starts to listen and to serve. Copies the options.
    /// @throws std::system_error that names address and port when this machine does not have the address, or another
    ///         listener uses the port. Connections of a stopped host are no obstacle: a host can be started on the same
    ///         port immediately.
    explicit LoopbackHost(Options options);

    /// Calls stop(). Not from the event sink.
    ~LoopbackHost();

    LoopbackHost(const LoopbackHost&) = delete;
    LoopbackHost& operator=(const LoopbackHost&) = delete;

    /// Returns the port, also when the system picked it; the same after stop(). Does not block.
    std::uint16_t port() const;

    /// Closes every client connection and the port, and ends the thread. A second call has no effect. No event is
    /// reported after it returns. Blocks for as long as the event sink takes. Not from the event sink.
    void stop();

    /// Closes the connections of all clients that are connected now, and keeps listening. When it returns, they are
    /// closed and clientCount() no longer includes them. Not from the event sink.
    /// @return the number of closed connections.
    std::size_t dropClients(DropMode mode);

    /// Stores a value and sends it to all subscribers of the name, as if a client had published it. When it returns,
    /// the updates are queued. In a call from the event sink it returns immediately, and the host stores the value
    /// later.
    void setValue(const std::string& name, HostValue value);

    /// The same for several values. Each subscriber receives one update message with those of its names, in this order.
    void setValues(const std::vector<std::pair<std::string, HostValue>>& values);

    /// Plays a scenario from now on: the host fails as it says, and compares what the clients do with what it expects.
    /// One scenario at a time: another one interrupts it. Not from the event sink. Blocks shortly.
    /// @return the verdict, which is there when the scenario has ended, at the latest when the host stops. Waiting for
    ///         it blocks for as long as the scenario says.
    std::future<ScenarioVerdict> play(Scenario scenario);

    /// Returns the stored value; nothing when the name was never published or set. Takes a short lock; does not block.
    std::optional<HostValue> value(const std::string& name) const;

    /// Returns how many clients are connected now. The host counts a client when it accepts the connection, which may
    /// be after the client's connect succeeded. Takes a short lock; does not block.
    std::size_t clientCount() const;

    /// Returns how many clients are subscribed to the name now. Takes a short lock; does not block.
    std::size_t subscriberCount(const std::string& name) const;

    /// Each wait blocks until the condition holds, at most for `limit`. Not from the event sink.
    /// @return true when the condition held.
    /// @{
    bool waitForValue(const std::string& name, HostValue value, std::chrono::milliseconds limit) const;
    bool waitForClients(std::size_t exactly, std::chrono::milliseconds limit) const;
    bool waitForSubscribers(const std::string& name, std::size_t exactly, std::chrono::milliseconds limit) const;
    /// @}

  private:
    class Impl;
    const std::unique_ptr<Impl> impl;
};

}  // namespace com_tesk
