#pragma once

#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "host/HostEvent.h"

namespace com_tesk::host_test {

/// Collects a host's events as text. Must outlive the host. Any thread.
class EventLog {
  public:
    /// Returns the function for HostOptions::eventSink.
    std::function<void(const HostEvent&)> sink();

    /// Waits until an event contains this text. Returns false when the bound passes first.
    bool waitFor(const std::string& part);

    bool has(const std::string& part) { return count(part) > 0; }
    std::size_t count(const std::string& part);
    std::vector<std::string> all();

  private:
    std::mutex mutex;
    std::vector<std::string> events;  // guarded by mutex
};

}  // namespace com_tesk::host_test
