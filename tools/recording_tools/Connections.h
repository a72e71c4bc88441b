#pragma once

#include <cstdint>
#include <optional>
#include <set>

#include "tools/recording/Entry.h"

namespace com_tesk::recording {

/// Follows which connections stand. A connection stands from the first message of the host until it is lost.
class Connections {
  public:
    /// A time without any connection, after there has been one.
    struct Outage {
        Time begin{};
        Time end{};
        Side side = Side::HOST;      ///< The side that ended the last connection.
        bool isReset = false;        ///< That connection was reset.
        std::uint64_t attempts = 0;  ///< Connections meanwhile that the host did not answer.
        Time lastAttempt{};          ///< When the last of them ended.
    };

    /// Reads the next entry.
    /// @return an outage that has ended with it.
    std::optional<Outage> note(const Entry& entry);

    /// Returns the outage that lasts; nothing when a connection stands, or none has yet.
    const std::optional<Outage>& current() const { return outage; }

    std::uint64_t established() const { return establishedCount; }
    std::uint64_t lostByHost() const { return hostLosses; }
    std::uint64_t lostByClient() const { return clientLosses; }
    std::uint64_t unanswered() const { return unansweredCount; }

  private:
    void establish(std::uint32_t connection);
    void lose(const Entry& entry, const Lost& lost);

    std::set<std::uint32_t> standing;
    std::optional<Outage> outage;
    std::uint64_t establishedCount = 0;
    std::uint64_t hostLosses = 0;
    std::uint64_t clientLosses = 0;
    std::uint64_t unansweredCount = 0;
};

}  // namespace com_tesk::recording
