#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/Bytes.h"
#include "host/FrameReader.h"
#include "host/HostEvent.h"
#include "host/HostOptions.h"
#include "host/HostState.h"
#include "host/Registrations.h"
#include "host/Replies.h"
#include "host/Requests.h"

namespace com_tesk::host {

/// Receives the core's replies, updates and reports. The core calls it inside its own operations. An implementation
/// must not call the core, not even to remove a client when a send fails.
class HostOutlet {
  public:
    virtual void send(ClientNumber client, Bytes frame) = 0;
    virtual void report(HostEvent event) = 0;  ///< The outlet adds the time.

  protected:
    ~HostOutlet() = default;
};

/// Serves requests: keeps the sessions of the clients and distributes values to subscribers. Each event is reported
/// before it has an effect on the wire or in `state`. No socket, thread or clock. One thread at a time. Other threads
/// may read `state` at any time.
class HostCore {
  public:
    /// Stores the initial values in the state. All three arguments must outlive the core.
    HostCore(const HostOptions& hostOptions, SharedState& sharedState, HostOutlet& hostOutlet);

    void addClient(ClientNumber client);

    /// Erases the client and its registrations. The values that it published stay.
    void removeClient(ClientNumber client);

    /// Serves one frame of a client that was added and not removed yet.
    void handle(ClientNumber client, const Frame& frame);

    /// Begins anew: with the initial values, and with ids that begin after `lastId` for every client. There must be no
    /// client.
    void restart(std::uint32_t lastId);

    /// From now on, every version reply has this simulator id.
    void assignId(std::uint16_t id) { assignedId = id; }

    /// Stores the values and sends them to every subscriber, as if they had been published with one request.
    void setValues(const std::vector<std::pair<std::string, HostValue>>& values);

  private:
    struct Session {
        ClientNumber number = 0;
        std::optional<std::uint16_t> simulatorId;  // of the last request
        IdSource ids;
        Registrations inputs;
        Registrations outputs;
    };
    /// One update message per client and request, for all values that the request changed.
    using Updates = std::map<ClientNumber, std::vector<InputUpdate>>;

    void serve(Session& session, const VersionRequest& request);
    void serve(Session& session, const SubscribeInputs& request);
    void serve(Session& session, const RegisterOutputs& request);
    void serve(Session& session, const UnsubscribeInputs& request);
    void serve(Session& session, const UnregisterOutputs& request);
    void serve(Session& session, const Publish& request);
    void serve(const Session& session, const BadRequest& request);

    void noteSimulatorId(Session& session, std::uint16_t id);
    /// Returns the stored value; 0 of the input's own type when there is none.
    HostValue currentValue(const Registration& input) const;
    void subscribe(const Session& session, const Registration& input);
    void unsubscribe(const Session& session, const Registration& input);
    void store(const std::string& name, HostValue value, Updates& updates);
    void sendUpdates(const Updates& updates);
    void reportName(HostEvent::Kind kind, const Session& session, const Registration& registration,
                    std::optional<HostValue> value = std::nullopt);
    void reportText(HostEvent::Kind kind, const Session& session, std::string text, std::uint32_t id = 0);

    bool isKnown(const std::string& name) const;
    void reportUnknownName(const Session& session, const std::string& name);

    const HostOptions& options;
    std::optional<std::uint16_t> assignedId;
    std::uint32_t lastIdBefore = 0;  // of each client
    SharedState& state;
    HostOutlet& outlet;
    std::map<ClientNumber, Session> sessions;
};

}  // namespace com_tesk::host
