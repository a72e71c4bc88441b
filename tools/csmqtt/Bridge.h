#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "host/Guarded.h"
#include "tools/csmqtt/BrokerLink.h"
#include "tools/csmqtt/Commands.h"
#include "tools/csmqtt/HostLink.h"
#include "tools/csmqtt/MetricsServer.h"
#include "tools/csmqtt/Outbox.h"
#include "tools/csmqtt/Statistics.h"
#include "tools/service/Log.h"
#include "tools/service/Notifier.h"
#include "tools/service/Watchdog.h"

namespace com_tesk::mqtt {

/// The bridge: the host's link on the calling thread, the broker's link on another, and between them the outbox.
class Bridge {
  public:
    /// What `run` returns, as exit codes of the program.
    enum class Result : std::uint8_t {
        STOPPED = 0,   ///< The stop descriptor became readable.
        CONFLICT = 3,  ///< Another bridge has this base.
    };

    /// @param bridgeConfig, serviceLog  outlive this object.
    /// @param metricsAddress            where metrics are served; nothing: nowhere.
    /// @throw std::exception  the system refuses a descriptor, or the metrics' address cannot be used.
    Bridge(const Config& bridgeConfig, service::Log& serviceLog, const std::optional<Address>& metricsAddress,
           std::string programVersion);
    Bridge(const Bridge&) = delete;
    Bridge& operator=(const Bridge&) = delete;
    ~Bridge() = default;

    /// Runs until the descriptor is readable or another bridge has this base. Then it publishes `offline` and ends both
    /// links. It notifies the service manager.
    /// @param stopDescriptor  the caller's, such as that of signals.
    /// When a name is still being looked up two seconds after the stop, or a client of the metrics still does not read,
    /// the process ends here, with the same exit code.
    Result run(int stopDescriptor);

    /// Any thread.
    Snapshot snapshot() const;

  private:
    using Clock = std::chrono::steady_clock;

    /// What other threads read of the host's link.
    struct HostStatus {
        HostState state = HostState::UNKNOWN;
        std::uint64_t connects = 0;
    };

    void noteHost(HostState state);
    void noteStatus();
    void publishStatistics(Clock::time_point now);
    void turn(int stopDescriptor);

    const Config& config;
    service::Log& log;
    const service::Notifier notifier;
    service::Watchdog watchdog;
    host::Guarded<HostStatus> hostStatus;
    SharedOutbox outbox;
    std::string lastStatus;
    const std::string runId;
    Statistics statistics;
    Clock::time_point nextStatistics;
    Clock::time_point nextTick;
    std::chrono::milliseconds maxTurn;
    Wakeup wakeup;
    HostLink host;
    Commands commands;
    BrokerLink broker;
    std::unique_ptr<MetricsServer> metrics;
};

}  // namespace com_tesk::mqtt
