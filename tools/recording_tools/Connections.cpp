#include "tools/recording_tools/Connections.h"

#include <utility>

namespace com_tesk::recording {

void Connections::establish(std::uint32_t connection) {
    if (standing.insert(connection).second) {
        ++establishedCount;
    }
}

void Connections::lose(const Entry& entry, const Lost& lost) {
    if (standing.erase(entry.connection) == 0) {
        ++unansweredCount;
        if (outage) {
            ++outage->attempts;
            outage->lastAttempt = entry.time;
        }
        return;
    }
    ++(lost.side == Side::HOST ? hostLosses : clientLosses);
    if (standing.empty()) {
        const bool isReset = lost.why.find("reset") != std::string::npos;
        outage = Outage{entry.time, entry.time, lost.side, isReset, 0, entry.time};
    }
}

std::optional<Connections::Outage> Connections::note(const Entry& entry) {
    if (const auto* const lost = std::get_if<Lost>(&entry.content)) {
        lose(entry, *lost);
    } else if (const auto* const state = std::get_if<State>(&entry.content)) {
        for (const State::Connection& connection : state->connections) {
            establish(connection.number);
        }
    } else if (std::holds_alternative<Version>(entry.content) || std::holds_alternative<Confirmation>(entry.content) ||
               std::holds_alternative<Update>(entry.content)) {
        establish(entry.connection);
    }
    if (!outage) {
        return std::nullopt;
    }
    outage->end = entry.time;
    return standing.empty() ? std::nullopt : std::exchange(outage, std::nullopt);
}

}  // namespace com_tesk::recording
