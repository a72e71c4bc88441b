#pragma once

#include <chrono>
#include <string>
#include <utility>

#include "tools/csmqtt/Snapshot.h"

namespace com_tesk::mqtt {

/// The payloads of `BASE/$stats`. No threads and no clock.
class Statistics {
  public:
    using Clock = std::chrono::steady_clock;

    /// @param ownRunId  tells other bridges with this base that this one exists.
    Statistics(Clock::time_point startTime, std::string ownRunId)
        : start(startTime), runId(std::move(ownRunId)), previousTime(startTime) {}

    /// Returns a JSON object with the counts, and with the rates since the previous call.
    std::string payload(const Snapshot& snapshot, Clock::time_point now);

  private:
    const Clock::time_point start;
    const std::string runId;
    Clock::time_point previousTime;
    Counts previous;
};

}  // namespace com_tesk::mqtt
