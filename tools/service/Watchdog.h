#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "host/Guarded.h"
#include "tools/service/Notifier.h"

namespace com_tesk::service {

/// Feeds the watchdog of the service manager from several loops: the manager is notified only when every loop has
/// reported since the last notification. A loop that hangs thus ends the notifications, and the manager restarts the
/// service. Without a watchdog at the manager every operation does nothing.
///
/// Any thread may call every operation.
class Watchdog {
  public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::size_t kMaxLoops = 32;

    /// @param manager  outlives this object.
    /// @param loops    how many loops report, 1 to kMaxLoops. They are numbered from 0.
    Watchdog(const Notifier& manager, std::size_t loops);

    /// Returns the time within which each loop has to report: a quarter of the manager's limit. Returns nothing without
    /// a watchdog. A loop that waits must not wait longer than this.
    std::optional<std::chrono::milliseconds> reportInterval() const;

    /// Reports that this loop runs. Notifies the manager when all loops have reported, at most once in half of its
    /// limit. Blocks as Notifier::alive() does.
    void report(std::size_t loop, Clock::time_point now = Clock::now());

  private:
    struct Reports {
        std::uint32_t missing = 0;  // A bit for each loop that has not reported since the last notification.
        Clock::time_point notified;
    };

    const Notifier& notifier;
    const std::uint32_t all;
    host::Guarded<Reports> reports;
};

}  // namespace com_tesk::service
