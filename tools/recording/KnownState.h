#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/recording/Entry.h"

namespace com_tesk::recording {

/// Collects what entries say, for state lines.
class KnownState {
  public:
    /// Reads the next entry. A state replaces everything.
    void note(const Entry& entry);

    /// Returns what is known after the entries so far.
    State state() const;

  private:
    struct Connection {
        std::uint16_t simulatorId = 0;
        std::unordered_map<std::string, Parameter> inputs;
        std::unordered_map<std::string, Parameter> outputs;
    };

    void take(const std::vector<NamedValue>& entries);
    void takeInputs(std::uint32_t connection, const std::vector<NamedValue>& entries);
    void take(const State& state);

    std::map<std::uint32_t, Connection> connections;
    std::unordered_map<std::string, HostValue> values;
    std::string versionText;
    std::uint32_t protocolVersion = 0;
};

}  // namespace com_tesk::recording
