#pragma once

#include <chrono>
#include <string>

#include "tools/csmqtt/Snapshot.h"

namespace com_tesk::mqtt {

/// The payloads of `BASE/$stats`. No threads and no clock.
class Statistics {
  public:
    using Clock = std::chrono::steady_clock;

    explicit Statistics(Clock::time_point startTime) : start(startTime), previousTime(startTime) {}

    /// Returns a JSON object with the counts, and with the rates since the previous call.
    std::string payload(const Snapshot& snapshot, Clock::time_point now);

  private:
    const Clock::time_point start;
    Clock::time_point previousTime;
    Counts previous;
};

}  // namespace com_tesk::mqtt
