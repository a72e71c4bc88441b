#include "tools/service/Watchdog.h"

#include <algorithm>

namespace com_tesk::service {

namespace {

constexpr std::uint32_t kAllBits = 0xFFFFFFFF;

std::uint32_t bitsOf(std::size_t loops) {
    return kAllBits >> (Watchdog::kMaxLoops - std::clamp(loops, std::size_t{1}, Watchdog::kMaxLoops));
}

}  // namespace

Watchdog::Watchdog(const Notifier& manager, std::size_t loops) : notifier(manager), all(bitsOf(loops)) {
    reports.change([this](Reports& now) {
        now.missing = all;
        now.notified = Clock::now();
    });
}

std::optional<std::chrono::milliseconds> Watchdog::reportInterval() const {
    const auto limit = notifier.watchdogInterval();
    if (!limit) {
        return std::nullopt;
    }
    return std::max(std::chrono::duration_cast<std::chrono::milliseconds>(*limit / 4), std::chrono::milliseconds(1));
}

void Watchdog::report(std::size_t loop, Clock::time_point now) {
    const auto limit = notifier.watchdogInterval();
    if (!limit || loop >= kMaxLoops) {
        return;
    }
    const bool isDue = reports.change([&](Reports& current) {
        current.missing &= ~(std::uint32_t{1} << loop);
        if (current.missing != 0 || now - current.notified < *limit / 2) {
            return false;
        }
        current.missing = all;
        current.notified = now;
        return true;
    });
    if (isDue) {
        notifier.alive();
    }
}

}  // namespace com_tesk::service
