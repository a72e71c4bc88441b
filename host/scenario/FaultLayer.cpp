#include "host/scenario/FaultLayer.h"

#include <algorithm>
#include <asio/post.hpp>
#include <utility>

#include "host/Layout.h"

namespace com_tesk::scenario {

namespace {

using Clock = asio::steady_timer::clock_type;

template <typename... Alternatives>
bool isOneOf(const Action& action) {
    return (std::holds_alternative<Alternatives>(action) || ...);
}

bool isForConnection(const Action& action) {
    return isOneOf<Drop, StopReading, StopAnswering, Hang>(action);
}

bool isForHost(const Action& action) {
    return isOneOf<Refuse, Restart, AssignId, SetValue>(action);
}

/// Returns the fault and the message on which it acts, for events.
std::string textOf(const Action& action, Message message) {
    return nameOf(action) + std::string(" of ") + std::string(nameOf(message));
}

}  // namespace

/// One connection.
struct FaultLayer::Line {
    Line(asio::io_context& context, std::function<void(Bytes)> leave, std::function<void(host::Frame)> serve)
        : outgoing(context, std::move(leave)), incoming(context, std::move(serve)), hangTimer(context) {}

    /// A frame that waits for later ones.
    struct Held {
        Bytes frame;
        unsigned later;
    };

    ClientNumber client = 0;
    unsigned number = 0;
    DelayLine<Bytes> outgoing;
    DelayLine<host::Frame> incoming;
    std::size_t delayedBytes = 0;
    std::vector<Held> held;
    std::map<std::uint32_t, std::string> inputNames;
    std::map<std::uint32_t, std::string> outputNames;
    asio::steady_timer hangTimer;
    bool isAnswering = true;
    bool isReading = true;
};

struct FaultLayer::Outgoing {
    explicit Outgoing(Bytes wholeFrame) : frame(std::move(wholeFrame)) {}

    Bytes frame;
    bool isWithheld = false;
    Duration delay{};
    unsigned copies = 1;
    unsigned later = 0;
    const Split* split = nullptr;
};

FaultLayer::FaultLayer(asio::io_context& ioContext, FaultyHost& faultyHost, std::vector<Fault> faults,
                       std::uint64_t seed, std::size_t maxDelayedBytes)
    : context(ioContext), host(faultyHost), delayedBytesLimit(maxDelayedBytes), selector(std::move(faults), seed) {}

FaultLayer::~FaultLayer() {
    *isAlive = false;
}

void FaultLayer::add(ClientNumber client) {
    auto line = std::make_unique<Line>(
        context, [this, client](Bytes bytes) { leave(*lines.at(client), std::move(bytes)); },
        [this, client](const host::Frame& frame) { host.serve(client, frame); });
    line->client = client;
    line->number = ++connections;
    Line& added = *line;
    lines.emplace(client, std::move(line));
    for (const FaultSelector::Choice& choice :
         selector.choose({Trigger::Moment::ACCEPT, added.number, Message::ANY, {}})) {
        host.reportFault(client, nameOf(*choice.action) + std::string(" of the connection"));
        performOn(added, *choice.action);
    }
}

void FaultLayer::remove(ClientNumber client) {
    lines.erase(client);
}

void FaultLayer::send(ClientNumber client, Bytes frame) {
    const auto found = lines.find(client);
    if (found == lines.end()) {
        return;
    }
    Line& line = *found->second;
    const Bytes body = bodyOf(frame);
    const Message message = messageOf(body, true).value_or(Message::ANY);
    learnNames(line, body, message);
    Outgoing outgoing(std::move(frame));
    const Occasion occasion{Trigger::Moment::SEND, line.number, message, namedRecords(line, body, message)};
    for (const FaultSelector::Choice& choice : selector.choose(occasion)) {
        host.reportFault(client, textOf(*choice.action, message));
        if (isForConnection(*choice.action) || isForHost(*choice.action)) {
            outgoing.isWithheld = outgoing.isWithheld || std::holds_alternative<Drop>(*choice.action);
            performOn(line, *choice.action);
        } else {
            change(outgoing, choice, message);
        }
    }
    queue(line, outgoing);
}

void FaultLayer::receive(ClientNumber client, const host::Frame& frame) {
    const auto found = lines.find(client);
    if (found == lines.end()) {
        return;
    }
    Line& line = *found->second;
    if (!line.isReading) {
        return;  // The socket had read it before the order to stop, or before the drop.
    }
    const Message message = messageOf(frame.body, false).value_or(Message::ANY);
    Duration delay{};
    unsigned copies = 1;
    bool isWithheld = false;
    host::Frame served = frame;
    const Occasion occasion{Trigger::Moment::RECEIVE, line.number, message, namedRecords(line, frame.body, message)};
    for (const FaultSelector::Choice& choice : selector.choose(occasion)) {
        host.reportFault(client, textOf(*choice.action, message));
        if (std::holds_alternative<Withhold>(*choice.action)) {
            isWithheld = true;
        } else if (const auto* const later = std::get_if<Delay>(choice.action)) {
            delay += later->time;
        } else if (const auto* const more = std::get_if<Duplicate>(choice.action)) {
            copies += more->times;
        } else {
            isWithheld = isWithheld || std::holds_alternative<Drop>(*choice.action);
            performOn(line, *choice.action);
        }
    }
    if (isWithheld) {
        return;
    }
    for (unsigned i = 0; i < copies; ++i) {
        line.incoming.add(served, Clock::now() + delay);
    }
}

void FaultLayer::perform(const Action& action) {
    host.reportFault(0, nameOf(action));
    if (isForHost(action)) {
        host.perform(action);
        return;
    }
    // A drop removes the line.
    std::vector<ClientNumber> clients;
    clients.reserve(lines.size());
    for (const auto& [client, line] : lines) {
        clients.push_back(client);
    }
    for (const ClientNumber client : clients) {
        if (const auto found = lines.find(client); found != lines.end()) {
            performOn(*found->second, action);
        }
    }
}

void FaultLayer::learnNames(Line& line, const Bytes& body, Message message) {
    if (message == Message::INPUTS_CONFIRMED || message == Message::OUTPUTS_CONFIRMED) {
        auto& names = message == Message::INPUTS_CONFIRMED ? line.inputNames : line.outputNames;
        for (Record& record : recordsOf(body, message)) {
            names[record.id] = std::move(record.name);
        }
    }
}

std::vector<Record> FaultLayer::namedRecords(const Line& line, const Bytes& body, Message message) {
    std::vector<Record> records = recordsOf(body, message);
    const bool isOfOutputs = message == Message::PUBLISH || message == Message::UNREGISTER_OUTPUTS;
    const auto& names = isOfOutputs ? line.outputNames : line.inputNames;
    for (Record& record : records) {
        if (record.name.empty()) {
            const auto found = names.find(record.id);
            record.name = found == names.end() ? std::string() : found->second;
        }
    }
    return records;
}

void FaultLayer::change(Outgoing& outgoing, const FaultSelector::Choice& choice, Message message) {
    Bytes& frame = outgoing.frame;
    const Selected& selected = choice.selected;
    std::visit(
        [&](const auto& action) {
            using Kind = std::decay_t<decltype(action)>;
            if constexpr (std::is_same_v<Kind, Withhold>) {
                Selected others = selected;
                others.flip();
                outgoing.isWithheld = outgoing.isWithheld || !keepRecords(frame, message, others);
            } else if constexpr (std::is_same_v<Kind, Delay>) {
                outgoing.delay += action.time;
            } else if constexpr (std::is_same_v<Kind, Duplicate>) {
                outgoing.copies += action.times;
            } else if constexpr (std::is_same_v<Kind, ChangeIds>) {
                changeIds(frame, message, selected, action.by);
            } else if constexpr (std::is_same_v<Kind, ChangeValue>) {
                changeValues(frame, message, selected, action.to);
            } else if constexpr (std::is_same_v<Kind, ChangeType>) {
                changeTypes(frame, message, selected, action.toInteger);
            } else if constexpr (std::is_same_v<Kind, Reorder>) {
                outgoing.later = action.later;
            } else if constexpr (std::is_same_v<Kind, Split>) {
                outgoing.split = &action;
            } else if constexpr (std::is_same_v<Kind, Truncate>) {
                frame.resize(std::min(frame.size(), action.length));
            } else if constexpr (std::is_same_v<Kind, StateLength>) {
                setFrameLength(frame, action.length);
            } else if constexpr (std::is_same_v<Kind, StateCount>) {
                setRecordCount(frame, message, action.count);
            } else if constexpr (std::is_same_v<Kind, Garbage>) {
                frame = selector.randomBytes(action.size);
            } else if constexpr (std::is_same_v<Kind, StateSimulatorId>) {
                setSimulatorId(frame, action.id);
            }
        },
        *choice.action);
}

void FaultLayer::queue(Line& line, const Outgoing& outgoing) {
    if (outgoing.isWithheld || !line.isAnswering) {
        return;
    }
    for (unsigned i = 0; i < outgoing.copies; ++i) {
        if (outgoing.later != 0) {
            line.held.push_back({outgoing.frame, outgoing.later});
            continue;
        }
        queuePieces(line, outgoing.frame, outgoing);
        // Frames that have waited for this one follow it.
        for (auto held = line.held.begin(); held != line.held.end();) {
            if (--held->later == 0) {
                const Bytes frame = std::move(held->frame);
                held = line.held.erase(held);
                queuePieces(line, frame, Outgoing(Bytes()));
            } else {
                ++held;
            }
        }
    }
}

void FaultLayer::queuePieces(Line& line, const Bytes& frame, const Outgoing& outgoing) {
    line.delayedBytes += frame.size();
    if (line.delayedBytes > delayedBytesLimit && line.outgoing.size() != 0) {
        line.delayedBytes -= frame.size();
        const ClientNumber client = line.client;
        later([this, client] { host.drop(client, CloseMode::GRACEFUL, "too many bytes are delayed"); });
        return;
    }
    Clock::time_point time = std::max(Clock::now() + outgoing.delay, line.outgoing.lastTime());
    std::size_t begin = 0;
    std::vector<std::size_t> ends = outgoing.split != nullptr ? outgoing.split->at : std::vector<std::size_t>();
    ends.push_back(frame.size());
    for (const std::size_t end : ends) {
        if (end <= begin || end > frame.size()) {
            continue;
        }
        if (begin != 0) {
            time += outgoing.split->pause;
        }
        line.outgoing.add(
            Bytes(frame.begin() + static_cast<std::ptrdiff_t>(begin), frame.begin() + static_cast<std::ptrdiff_t>(end)),
            time);
        begin = end;
    }
}

void FaultLayer::leave(Line& line, Bytes bytes) {
    line.delayedBytes -= bytes.size();
    if (line.isAnswering) {
        host.sendNow(line.client, std::move(bytes));
    }
}

void FaultLayer::performOn(Line& line, const Action& action) {
    const ClientNumber client = line.client;
    if (const auto* const drop = std::get_if<Drop>(&action)) {
        // Requests that were read together with this one are not served, and nothing leaves any more.
        line.isReading = false;
        line.isAnswering = false;
        later([this, client, isReset = drop->isReset] {
            host.drop(client, isReset ? CloseMode::RESET : CloseMode::GRACEFUL, "by the scenario");
        });
    } else if (std::holds_alternative<StopReading>(action)) {
        line.isReading = false;
        later([this, client] { host.setReading(client, false); });
    } else if (std::holds_alternative<StopAnswering>(action)) {
        line.isAnswering = false;
    } else if (const auto* const hang = std::get_if<Hang>(&action)) {
        const Clock::time_point end = Clock::now() + hang->time;
        line.outgoing.holdUntil(end);
        line.incoming.holdUntil(end);
        later([this, client] { host.setReading(client, false); });
        line.hangTimer.expires_at(end);
        line.hangTimer.async_wait([this, alive = isAlive, client](const std::error_code& error) {
            if (!error && *alive && lines.count(client) != 0 && lines.at(client)->isReading) {
                host.setReading(client, true);
            }
        });
    } else {
        later([this, action] { host.perform(action); });
    }
}

void FaultLayer::later(std::function<void()> call) {
    asio::post(context, [call = std::move(call), alive = isAlive] {
        if (*alive) {
            call();
        }
    });
}

}  // namespace com_tesk::scenario
