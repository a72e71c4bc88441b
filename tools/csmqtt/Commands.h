#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/Guarded.h"
#include "tools/csmqtt/Config.h"
#include "tools/csmqtt/Payload.h"
#include "tools/csmqtt/ReceivedMessage.h"
#include "tools/csmqtt/Snapshot.h"
#include "tools/service/Log.h"

namespace com_tesk::mqtt {

/// Messages to `BASE/set/NAME`: checks them, passes the numbers on, and counts the others. A line says why one was
/// ignored, at most once a minute for each name.
///
/// One thread handles messages; any thread may read the counts.
class Commands {
  public:
    /// Sets the value at this index of `Config::fromMqtt` at the host.
    using Setter = std::function<void(std::size_t index, double value)>;

    /// @param bridgeConfig, serviceLog  outlive this object.
    Commands(const Config& bridgeConfig, service::Log& serviceLog, Setter valueSetter);

    /// The filter to subscribe to.
    std::string filter() const { return prefix + '+'; }

    /// Handles a message. Returns false when its topic is not one of a command.
    bool handle(const ReceivedMessage& message);

    std::vector<CommandSnapshot> snapshot() const;
    void addCounts(Counts& counts) const;

  private:
    struct State {
        std::vector<CommandSnapshot> commands;
        Counts counts;
    };

    void ignore(std::uint64_t Counts::*reason, std::size_t index, const std::string& key, const std::string& text);

    const Config& config;
    service::Log& log;
    const Setter set;
    const std::string prefix;
    std::unordered_map<std::string, std::size_t> indexOf;  // Constant after construction.
    host::Guarded<State> state;
};

}  // namespace com_tesk::mqtt
