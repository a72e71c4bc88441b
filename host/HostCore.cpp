#include "host/HostCore.h"

#include <set>
#include <type_traits>
#include <utility>
#include <variant>

#include "host/Layout.h"

namespace com_tesk::host {

using Kind = HostEvent::Kind;

HostCore::HostCore(const HostOptions& hostOptions, SharedState& sharedState, HostOutlet& hostOutlet)
    : options(hostOptions), assignedId(hostOptions.assignId), state(sharedState), outlet(hostOutlet) {
    state.change([&](HostState& s) { s.values = options.initialValues; });
}

void HostCore::addClient(ClientNumber client) {
    Session& session = sessions[client];
    session.number = client;
    session.ids = IdSource(lastIdBefore);
    state.change([](HostState& s) { ++s.clients; });
}

void HostCore::removeClient(ClientNumber client) {
    const auto found = sessions.find(client);
    if (found == sessions.end()) {
        return;
    }
    for (const auto& [id, input] : found->second.inputs.all()) {
        unsubscribe(found->second, input);
    }
    sessions.erase(found);
    state.change([](HostState& s) { --s.clients; });
}

void HostCore::restart(std::uint32_t lastId) {
    lastIdBefore = lastId;
    state.change([&](HostState& s) { s.values = options.initialValues; });
}

void HostCore::handle(ClientNumber client, const Frame& frame) {
    Session& session = sessions.at(client);
    if (frame.kind != layout::kDataFrame) {
        reportText(Kind::REQUEST_IGNORED, session, "frame of kind " + std::to_string(frame.kind) + " is no data frame");
        return;
    }
    std::visit(
        [&](const auto& request) {
            if constexpr (!std::is_same_v<std::decay_t<decltype(request)>, BadRequest>) {
                noteSimulatorId(session, request.simulatorId);
            }
            serve(session, request);
        },
        parseRequest(frame.body));
}

void HostCore::setValues(const std::vector<std::pair<std::string, HostValue>>& values) {
    Updates updates;
    for (const auto& [name, value] : values) {
        HostEvent event;
        event.kind = Kind::VALUE_SET;
        event.name = name;
        event.value = value;
        outlet.report(std::move(event));
        store(name, value, updates);
    }
    sendUpdates(updates);
}

void HostCore::serve(Session& session, const VersionRequest& request) {
    const std::uint16_t id = assignedId.value_or(request.simulatorId);
    reportText(Kind::VERSION_ANSWERED, session,
               "simulator id " + std::to_string(id) + " to its " + std::to_string(request.simulatorId) +
                   ", protocol version " + std::to_string(options.protocolVersion));
    outlet.send(session.number, encodeVersionReply(id, options.versionText, options.protocolVersion));
}

void HostCore::serve(Session& session, const SubscribeInputs& request) {
    std::vector<InputConfirmation> confirmations;
    for (const SubscribeInputs::Record& record : request.inputs) {
        if (!isKnown(record.name)) {
            reportUnknownName(session, record.name);
            continue;
        }
        const Registration& input = session.inputs.add(record.name, record.isInteger, session.ids);
        const HostValue value = currentValue(input);
        reportName(Kind::INPUT_CONFIRMED, session, input, value);
        subscribe(session, input);
        confirmations.push_back({input.id, record.rate, record.secondRate, value, record.name});
    }
    outlet.send(session.number, encodeInputsReply(request.simulatorId, confirmations));
}

void HostCore::serve(Session& session, const RegisterOutputs& request) {
    std::vector<OutputConfirmation> confirmations;
    for (const RegisterOutputs::Record& record : request.outputs) {
        if (!isKnown(record.name)) {
            reportUnknownName(session, record.name);
            continue;
        }
        const Registration& output = session.outputs.add(record.name, record.integerFlag != 0, session.ids);
        HostEvent event;
        event.kind = Kind::OUTPUT_CONFIRMED;
        event.client = session.number;
        event.name = output.name;
        event.id = output.id;
        event.text = output.isInteger ? "integer" : "float";
        outlet.report(std::move(event));
        confirmations.push_back({output.id, record.rate, record.integerFlag, record.name});
    }
    outlet.send(session.number, encodeOutputsReply(request.simulatorId, confirmations));
}

void HostCore::serve(Session& session, const UnsubscribeInputs& request) {
    for (const std::uint32_t id : request.ids) {
        if (const auto input = session.inputs.remove(id)) {
            reportName(Kind::INPUT_UNSUBSCRIBED, session, *input);
            unsubscribe(session, *input);
        } else {
            reportText(Kind::UNKNOWN_ID, session, "input unsubscription", id);
        }
    }
}

void HostCore::serve(Session& session, const UnregisterOutputs& request) {
    for (const std::uint32_t id : request.ids) {
        if (const auto output = session.outputs.remove(id)) {
            reportName(Kind::OUTPUT_UNREGISTERED, session, *output);
        } else {
            reportText(Kind::UNKNOWN_ID, session, "output unregistration", id);
        }
    }
}

void HostCore::serve(Session& session, const Publish& request) {
    Updates updates;
    for (const Publish::Record& record : request.values) {
        const Registration* const output = session.outputs.byId(record.id);
        if (output == nullptr) {
            reportText(Kind::UNKNOWN_ID, session, "publish", record.id);
            continue;
        }
        const HostValue value = HostValue::fromBits(record.bits, output->isInteger);
        reportName(Kind::PUBLISHED, session, *output, value);
        if (options.areValuesShared) {
            store(output->name, value, updates);
        }
    }
    sendUpdates(updates);
}

void HostCore::serve(const Session& session, const BadRequest& request) {
    reportText(Kind::REQUEST_IGNORED, session, request.why);
}

void HostCore::noteSimulatorId(Session& session, std::uint16_t id) {
    const auto previous = std::exchange(session.simulatorId, id);
    if (previous && *previous != id) {
        reportText(Kind::SIMULATOR_ID_CHANGED, session, {}, id);
    }
}

bool HostCore::isKnown(const std::string& name) const {
    return !options.knownNames || options.knownNames->count(name) != 0;
}

void HostCore::reportUnknownName(const Session& session, const std::string& name) {
    HostEvent event;
    event.kind = Kind::NAME_REFUSED;
    event.client = session.number;
    event.name = name;
    outlet.report(std::move(event));
}

HostValue HostCore::currentValue(const Registration& input) const {
    return state.read([&](const HostState& s) {
        const auto stored = s.values.find(input.name);
        return stored != s.values.end() ? stored->second : HostValue::fromBits(0, input.isInteger);
    });
}

void HostCore::subscribe(const Session& session, const Registration& input) {
    state.change([&](HostState& s) { s.subscribers[input.name].insert(session.number); });
}

void HostCore::unsubscribe(const Session& session, const Registration& input) {
    state.change([&](HostState& s) {
        const auto subscribers = s.subscribers.find(input.name);
        subscribers->second.erase(session.number);
        if (subscribers->second.empty()) {
            s.subscribers.erase(subscribers);
        }
    });
}

void HostCore::store(const std::string& name, HostValue value, Updates& updates) {
    const auto subscribers = state.change([&](HostState& s) {
        s.values.insert_or_assign(name, value);
        const auto found = s.subscribers.find(name);
        return found == s.subscribers.end() ? std::set<ClientNumber>() : found->second;
    });
    for (const ClientNumber subscriber : subscribers) {
        const Session& session = sessions.at(subscriber);
        const Registration& input = *session.inputs.byName(name);
        reportName(Kind::UPDATED, session, input, value);
        updates[subscriber].push_back({input.id, value});
    }
}

void HostCore::sendUpdates(const Updates& updates) {
    for (const auto& [client, values] : updates) {
        const std::uint16_t simulatorId = sessions.at(client).simulatorId.value_or(0);
        outlet.send(client, encodeUpdate(simulatorId, values));
    }
}

void HostCore::reportName(HostEvent::Kind kind, const Session& session, const Registration& registration,
                          std::optional<HostValue> value) {
    HostEvent event;
    event.kind = kind;
    event.client = session.number;
    event.name = registration.name;
    event.id = registration.id;
    event.value = value;
    outlet.report(std::move(event));
}

void HostCore::reportText(HostEvent::Kind kind, const Session& session, std::string text, std::uint32_t id) {
    HostEvent event;
    event.kind = kind;
    event.client = session.number;
    event.id = id;
    event.text = std::move(text);
    outlet.report(std::move(event));
}

}  // namespace com_tesk::host
