#include "tools/replay/Plan.h"

#include <algorithm>
#include <stdexcept>

#include "tools/Durations.h"

namespace com_tesk::replay {

namespace {

using namespace recording;

constexpr Time kBurst{1'000'000};       ///< Registrations within this time of the first belong together.
constexpr Time kSimultaneous{100'000};  ///< Connections that are lost within this time are lost together.

/// Follows the entries of a recording, and notes what the replay needs.
class Planner {
  public:
    Planner(const Options& replayOptions, const Selection& replaySelection)
        : options(replayOptions), selection(replaySelection) {}

    /// @return false when no further entry matters.
    bool take(const Entry& entry) {
        if (phase == Phase::BEFORE && options.start && entry.time > *options.start && isRegistered()) {
            begin(*options.start);
        }
        if (phase == Phase::BURST && entry.time > firstRegistration + kBurst) {
            phase = Phase::PLAYED;
        }
        if (phase == Phase::PLAYED && options.duration && entry.time > plan.begin + *options.duration) {
            plan.end = plan.begin + *options.duration;
            return false;
        }
        now = entry.time;
        number = entry.connection;
        ++count;
        std::visit([this](const auto& content) { note(content); }, entry.content);
        plan.end = now;
        return true;
    }

    Plan finish() {
        if (phase == Phase::BEFORE && options.start && isRegistered() && *options.start <= now) {
            begin(*options.start);
        }
        if (phase == Phase::BEFORE) {
            if (options.start && *options.start > now) {
                throw std::runtime_error("the recording ends after " + tools::textOf(now));
            }
            throw std::runtime_error("the recording has no registration" +
                                     std::string(options.start ? " after the start" : ""));
        }
        if (plan.registered.empty()) {
            throw std::runtime_error("the recording has none of the names of --only when it begins");
        }
        return std::move(plan);
    }

  private:
    enum class Phase { BEFORE, BURST, PLAYED };

    struct Connection {
        Time connected{};
        bool isAnswered = false;
        std::map<Plan::Registered, bool> registered;
    };

    bool isRegistered() const {
        return std::any_of(connections.begin(), connections.end(),
                           [](const auto& entry) { return !entry.second.registered.empty(); });
    }

    /// The state is known, and the replay begins here.
    void begin(Time time) {
        phase = Phase::PLAYED;
        plan.begin = time;
        plan.entriesBefore = count;
        for (const auto& [connection, known] : connections) {
            plan.registered.insert(known.registered.begin(), known.registered.end());
        }
    }

    Connection& connection() {
        const auto [found, isNew] = connections.try_emplace(number);
        if (isNew) {
            found->second.connected = now;
        }
        return found->second;
    }

    void noteAnswer() {
        Connection& answered = connection();
        if (!answered.isAnswered && isAway) {
            if (lastRefused) {
                plan.losses.back().back = (*lastRefused + answered.connected) / 2;
            }
            isAway = false;
        }
        answered.isAnswered = true;
    }

    void noteMessage() { plan.lastMessage = now; }

    void setValues(const std::vector<NamedValue>& values) {
        for (auto& [name, value] : selection.of(values)) {
            plan.values.insert_or_assign(name, value);
        }
    }

    void note(const Header& /*header*/) { plan.hasSeveralFiles = plan.hasSeveralFiles || count > 1; }

    void note(const State& state) {
        if (phase != Phase::BEFORE) {
            return;
        }
        if (!state.versionText.empty()) {
            plan.versionText = state.versionText;
            plan.protocolVersion = state.protocolVersion;
            isVersionKnown = true;
        }
        setValues(state.values);
        connections.clear();
        for (const State::Connection& known : state.connections) {
            Connection& standing = connections[known.number];
            standing.connected = now;
            standing.isAnswered = true;
            addAll(standing, Direction::INPUTS, known.inputs);
            addAll(standing, Direction::OUTPUTS, known.outputs);
            for (const Parameter& input : known.inputs) {
                if (const auto name = selection.nameOf(input.name)) {
                    plan.values.insert_or_assign(*name, input.value);
                }
            }
            for (const Parameter& output : known.outputs) {
                notePublished(output.name, state.values);
            }
        }
        if (!options.start && isRegistered()) {
            begin(now);  // The recording begins with a client that is already there.
        }
    }

    void notePublished(const std::string& output, const std::vector<NamedValue>& values) {
        const auto name = selection.nameOf(output);
        const auto found = std::find_if(values.begin(), values.end(),
                                        [&output](const NamedValue& value) { return value.name == output; });
        if (name && found != values.end()) {
            plan.published.insert_or_assign(*name, found->value);
        }
    }

    void addAll(Connection& connection, Direction direction, const std::vector<Parameter>& parameters) const {
        for (const Parameter& parameter : parameters) {
            if (auto name = selection.nameOf(parameter.name)) {
                connection.registered.insert_or_assign({direction, std::move(*name)}, parameter.isInteger);
            }
        }
    }

    void note(const Connected& /*connected*/) {
        connections[number] = {};
        connections[number].connected = now;
    }

    void note(const Lost& lost) {
        const bool wasAnswered = connection().isAnswered;
        connections.erase(number);
        if (phase == Phase::BURST) {
            phase = Phase::PLAYED;
        }
        if (phase != Phase::PLAYED || lost.side != Side::HOST) {
            return;
        }
        if (!wasAnswered) {
            lastRefused = now;
            if (isAway) {
                plan.losses.back().back = now;
            }
        } else if (plan.losses.empty() || now - plan.losses.back().at > kSimultaneous) {
            plan.losses.push_back({now, lost.why.find("reset") != std::string::npos, now});
            isAway = true;
            lastRefused.reset();
        }
    }

    void note(const VersionRequest& request) { requestedId = request.simulatorId; }

    void note(const Version& version) {
        noteAnswer();
        if (!isVersionKnown || phase == Phase::BEFORE) {
            plan.versionText = version.text;
            plan.protocolVersion = version.protocolVersion;
            if (requestedId && *requestedId != version.simulatorId) {
                plan.assignedId = version.simulatorId;
            }
            isVersionKnown = true;
        }
    }

    void note(const Registration& registration) {
        noteMessage();
        noteRegistered(registration.direction, registration.parameters);
    }

    void noteRegistered(Direction direction, const std::vector<Parameter>& parameters) {
        addAll(connection(), direction, parameters);
        const bool isBeforeStart = options.start && now <= *options.start;
        if (phase == Phase::PLAYED || isBeforeStart || !isRegistered()) {
            return;
        }
        if (phase == Phase::BEFORE) {
            firstRegistration = now;
        }
        setValues(sinceRegistration);
        sinceRegistration.clear();
        begin(now);
        phase = Phase::BURST;
    }

    void note(const Confirmation& confirmation) {
        noteAnswer();
        if (phase == Phase::BEFORE) {
            noteRegistered(confirmation.direction, confirmation.parameters);  // Its request may not be recorded.
        }
        if (confirmation.direction != Direction::INPUTS) {
            return;
        }
        for (const Parameter& input : confirmation.parameters) {
            const auto name = selection.nameOf(input.name);
            if (name && phase == Phase::PLAYED) {
                plan.values.emplace(*name, input.value);
            } else if (name) {
                plan.values.insert_or_assign(*name, input.value);
            }
        }
    }

    void note(const Unregistration& unregistration) {
        for (const std::string& recorded : unregistration.names) {
            if (const auto name = selection.nameOf(recorded)) {
                connection().registered.erase({unregistration.direction, *name});
            }
        }
    }

    void note(const Publication& publication) {
        noteMessage();
        if (phase == Phase::BURST) {
            phase = Phase::PLAYED;
        } else if (phase == Phase::BEFORE) {
            for (auto& [name, value] : selection.of(publication.values)) {
                plan.published.insert_or_assign(name, value);
            }
        }
    }

    void note(const Update& update) {
        noteMessage();
        noteAnswer();
        if (phase == Phase::BEFORE) {
            setValues(update.values);
        } else if (phase == Phase::BURST) {
            sinceRegistration.insert(sinceRegistration.end(), update.values.begin(), update.values.end());
        }
    }

    void note(const Unreadable& /*unreadable*/) {}
    void note(const Raw& /*raw*/) {}
    void note(const End& /*end*/) {}

    const Options& options;
    const Selection& selection;
    Plan plan;
    Phase phase = Phase::BEFORE;
    Time now{};
    std::uint32_t number = 0;
    std::size_t count = 0;
    Time firstRegistration{};
    std::map<std::uint32_t, Connection> connections;
    std::vector<NamedValue> sinceRegistration;
    std::optional<std::uint16_t> requestedId;
    bool isVersionKnown = false;
    bool isAway = false;  ///< The last loss is without a new connection.
    std::optional<Time> lastRefused;
};

}  // namespace

Plan planOf(recording::Recording& recording, const Options& options, const Selection& selection) {
    Planner planner(options, selection);
    recording.rewind();
    for (auto entry = recording.next(); entry && planner.take(*entry); entry = recording.next()) {
    }
    return planner.finish();
}

}  // namespace com_tesk::replay
