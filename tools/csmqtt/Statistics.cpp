#include "tools/csmqtt/Statistics.h"

#include <cmath>
#include <nlohmann/json.hpp>

namespace com_tesk::mqtt {

namespace {

const char* nameOf(HostState state) {
    switch (state) {
        case HostState::UNKNOWN:
            return "unknown";
        case HostState::DOWN:
            return "down";
        case HostState::UP:
            break;
    }
    return "up";
}

double rateOf(std::uint64_t before, std::uint64_t now, double seconds) {
    constexpr double kTenths = 10;
    return seconds > 0 ? std::round(static_cast<double>(now - before) / seconds * kTenths) / kTenths : 0;
}

}  // namespace

std::string Statistics::payload(const Snapshot& snapshot, Clock::time_point now) {
    const Counts& counts = snapshot.counts;
    const double seconds = std::chrono::duration<double>(now - previousTime).count();
    nlohmann::ordered_json stats;
    stats["run"] = runId;
    stats["uptime_s"] = std::chrono::duration_cast<std::chrono::seconds>(now - start).count();
    stats["host"] = nameOf(snapshot.host);
    stats["received"] = counts.received;
    stats["received_per_s"] = rateOf(previous.received, counts.received, seconds);
    stats["published"] = counts.published;
    stats["published_per_s"] = rateOf(previous.published, counts.published, seconds);
    stats["conflated"] = counts.conflated;
    stats["dropped"] = counts.dropped;
    stats["accepted"] = counts.accepted;
    stats["accepted_per_s"] = rateOf(previous.accepted, counts.accepted, seconds);
    stats["ignored"] = counts.ignored;
    stats["ignored_retained"] = counts.ignoredRetained;
    stats["ignored_unknown"] = counts.ignoredUnknown;
    stats["ignored_invalid"] = counts.ignoredInvalid;
    stats["ignored_range"] = counts.ignoredRange;
    stats["broker_connects"] = counts.brokerConnects;
    stats["broker_failures"] = counts.brokerFailures;
    stats["host_connects"] = counts.hostConnects;
    stats["in_flight"] = counts.inFlight;
    stats["max_in_flight"] = counts.maxInFlight;
    previous = counts;
    previousTime = now;
    return stats.dump();
}

}  // namespace com_tesk::mqtt
