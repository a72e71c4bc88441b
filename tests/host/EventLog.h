#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "host/HostEvent.h"

namespace com_tesk::host_test {

/// Collects a host's events as text, for tests to look at and to wait for. Must outlive the host.
class EventLog {
  public:
    /// What goes into HostOptions::eventSink.
    std::function<void(const HostEvent&)> sink();

    /// Waits until an event has this text in it. @return false when patience ends first.
    bool waitFor(const std::string& part);

    bool has(const std::string& part) { return count(part) > 0; }
    std::size_t count(const std::string& part);
    std::vector<std::string> all();

  private:
    std::size_t countLocked(const std::string& part) const;

    std::mutex mutex;
    std::condition_variable added;
    std::vector<std::string> events;  // guarded by mutex
};

}  // namespace com_tesk::host_test
