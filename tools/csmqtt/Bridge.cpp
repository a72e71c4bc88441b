#include "tools/csmqtt/Bridge.h"

#include <poll.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "tools/csmqtt/RunId.h"

namespace com_tesk::mqtt {

namespace {

// The loops that feed the watchdog.
constexpr std::size_t kHostLoop = 0;
constexpr std::size_t kBrokerLoop = 1;
constexpr std::size_t kLoops = 2;

constexpr std::chrono::milliseconds kTick{1'000};
constexpr std::chrono::milliseconds kStopLimit{2'000};

const char* statusOf(HostState state) {
    switch (state) {
        case HostState::UNKNOWN:
            return "connecting to the host";
        case HostState::DOWN:
            return "host down";
        case HostState::UP:
            break;
    }
    return "host up";
}

bool isReadable(const pollfd& waiting) {
    return waiting.revents != 0;
}

}  // namespace

Bridge::Bridge(const Config& bridgeConfig, service::Log& serviceLog, const std::optional<Address>& metricsAddress,
               std::string programVersion)
    : config(bridgeConfig),
      log(serviceLog),
      watchdog(notifier, kLoops),
      outbox(Outbox(bridgeConfig)),
      runId(newRunId()),
      statistics(Clock::now(), runId),
      maxTurn(std::min(watchdog.reportInterval().value_or(kTick), kTick)),
      host(bridgeConfig, outbox, serviceLog, [this](HostState state) { noteHost(state); }),
      commands(bridgeConfig, serviceLog, [this](std::size_t index, double value) { host.set(index, value); }),
      broker({bridgeConfig, outbox, commands, serviceLog, [this] { wakeup.wake(); },
              [this] { watchdog.report(kBrokerLoop); }, maxTurn, std::move(programVersion), runId}) {
    if (metricsAddress) {
        metrics = std::make_unique<MetricsServer>(*metricsAddress, [this] { return snapshot(); });
        log.info("metrics: http://" + Address{metricsAddress->host, metrics->port()}.text() + "/metrics");
    }
}

Bridge::Result Bridge::run(int stopDescriptor) {
    // The first ones say that this bridge exists: see BrokerLink::noteStatistics.
    publishStatistics(Clock::now());
    host.start();
    broker.start();
    notifier.ready("starting");
    nextStatistics = Clock::now() + config.statisticsInterval;
    nextTick = Clock::now() + maxTurn;
    pollfd stop{stopDescriptor, POLLIN, 0};
    while (poll(&stop, 1, 0) <= 0 && !broker.state().hasEnded) {
        turn(stopDescriptor);
    }
    notifier.stopping();
    const bool haveMetricsEnded = metrics == nullptr || metrics->stop();
    const std::string conflict = broker.state().conflict;
    // When a name is being looked up, there is no connection, so nothing can be lost.
    const bool hasBrokerEnded = broker.stop(kStopLimit);
    if (!conflict.empty()) {
        log.error(conflict + ": another bridge has the base " + config.base +
                  "; this one ends. Give each bridge a base of its own");
    }
    const Result result = conflict.empty() ? Result::STOPPED : Result::CONFLICT;
    if (!haveMetricsEnded || !hasBrokerEnded) {
        // A thread still runs, and uses objects that the end of main() destroys.
        std::_Exit(static_cast<int>(result));
    }
    host.stop();
    return result;
}

void Bridge::turn(int stopDescriptor) {
    const Clock::time_point next = std::min(nextTick, nextStatistics);
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
    pollfd waiting[] = {{stopDescriptor, POLLIN, 0}, {host.descriptor(), POLLIN, 0}, {wakeup.descriptor(), POLLIN, 0}};
    poll(waiting, std::size(waiting), static_cast<int>(std::max<decltype(wait)>(wait, 0)));
    watchdog.report(kHostLoop);
    if (isReadable(waiting[2])) {
        wakeup.clear();
        noteStatus();
    }
    if (isReadable(waiting[1]) && host.dispatch()) {
        broker.wake();
    }
    const Clock::time_point now = Clock::now();
    if (now >= nextTick) {
        nextTick = now + maxTurn;
        if (host.tick()) {
            broker.wake();
        }
        if (broker.state().isOpening) {
            // A slow name server must not look like a loop that hangs.
            watchdog.report(kBrokerLoop);
        }
    }
    if (now >= nextStatistics) {
        nextStatistics = now + config.statisticsInterval;
        publishStatistics(now);
    }
}

void Bridge::noteHost(HostState state) {
    hostStatus.change([&](HostStatus& now) { now = {state, host.connects()}; });
    noteStatus();
    broker.wake();
}

void Bridge::noteStatus() {
    const std::string status =
        std::string(statusOf(host.state())) + ", " + (broker.state().isUp ? "broker up" : "broker down");
    if (status != lastStatus) {
        notifier.status(status);
        lastStatus = status;
    }
}

void Bridge::publishStatistics(Clock::time_point now) {
    std::string payload = statistics.payload(snapshot(), now);
    outbox.change([&](Outbox& shared) { shared.setNotice(Outbox::Notice::STATISTICS, std::move(payload)); });
    broker.wake();
}

Snapshot Bridge::snapshot() const {
    const BrokerLink::State link = broker.state();
    Snapshot result;
    result.isBrokerUp = link.isUp;
    result.counts = link.counts;
    hostStatus.read([&](const HostStatus& status) {
        result.host = status.state;
        result.counts.hostConnects = status.connects;
    });
    outbox.read([&](const Outbox& shared) {
        result.values = shared.values.snapshot(Clock::now());
        shared.values.addCounts(result.counts);
    });
    result.commands = commands.snapshot();
    commands.addCounts(result.counts);
    return result;
}

}  // namespace com_tesk::mqtt
