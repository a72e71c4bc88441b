#pragma once

#include <asio/io_context.hpp>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "host/ClientConnection.h"
#include "host/FrameReader.h"
#include "host/HostState.h"
#include "host/scenario/Actions.h"
#include "host/scenario/DelayLine.h"
#include "host/scenario/FaultSelector.h"

namespace com_tesk::scenario {

using host::ClientNumber;
using host::CloseMode;

/// What faults need of a host. I/O thread only. Inside `FaultLayer::send` the layer calls only `sendNow` and
/// `reportFault`.
class FaultyHost {
  public:
    virtual void sendNow(ClientNumber client, Bytes bytes) = 0;
    virtual void serve(ClientNumber client, const host::Frame& frame) = 0;
    /// Ends the connection; without effect when it has ended.
    virtual void drop(ClientNumber client, CloseMode mode, const std::string& why) = 0;
    virtual void setReading(ClientNumber client, bool isReading) = 0;
    /// A fault acts now; 0 is the host itself. Also called inside `FaultLayer::send`.
    virtual void reportFault(ClientNumber client, const std::string& what) = 0;
    /// Performs one of the actions to the host.
    virtual void perform(const Action& action) = 0;

  protected:
    ~FaultyHost() = default;
};

/// Stands between the core of a host and its connections, and lets faults act on what passes. Messages that no fault
/// concerns pass unchanged and at once. The order is kept, except by `Reorder`. I/O thread only.
class FaultLayer {
  public:
    /// Both references outlive the layer, and the run of the context outlives its timers.
    FaultLayer(asio::io_context& ioContext, FaultyHost& faultyHost, std::vector<Fault> faults, std::uint64_t seed,
               std::size_t maxDelayedBytes);
    FaultLayer(const FaultLayer&) = delete;
    FaultLayer& operator=(const FaultLayer&) = delete;
    ~FaultLayer();

    /// The host has accepted a connection.
    void add(ClientNumber client);
    /// The connection has ended.
    void remove(ClientNumber client);

    /// The core sends a frame.
    void send(ClientNumber client, Bytes frame);
    /// A frame has arrived.
    void receive(ClientNumber client, const host::Frame& frame);

    /// Performs an action of the timeline, on every connection or on the host.
    void perform(const Action& action);

  private:
    struct Line;
    /// What is to happen to one message.
    struct Outgoing;

    static void learnNames(Line& line, const Bytes& body, Message message);
    static std::vector<Record> namedRecords(const Line& line, const Bytes& body, Message message);
    void change(Outgoing& outgoing, const FaultSelector::Choice& choice, Message message);
    void queue(Line& line, const Outgoing& outgoing);
    void queuePieces(Line& line, const Bytes& frame, const Outgoing& outgoing);
    void leave(Line& line, Bytes bytes);
    /// Performs an action that is no change of a message.
    void performOn(Line& line, const Action& action);
    /// Calls the host later, because it must not be called inside its own operations.
    void later(std::function<void()> call);

    asio::io_context& context;
    FaultyHost& host;
    const std::size_t delayedBytesLimit;
    FaultSelector selector;
    std::map<ClientNumber, std::unique_ptr<Line>> lines;
    unsigned connections = 0;
    std::shared_ptr<bool> isAlive = std::make_shared<bool>(true);
};

}  // namespace com_tesk::scenario
