#include "tests/host/EventLog.h"

#include <algorithm>

#include "tests/host/RawClient.h"

namespace com_tesk::host_test {

std::function<void(const HostEvent&)> EventLog::sink() {
    return [this](const HostEvent& event) {
        const std::lock_guard<std::mutex> lock(mutex);
        events.push_back(describe(event));
        added.notify_all();
    };
}

bool EventLog::waitFor(const std::string& part) {
    std::unique_lock<std::mutex> lock(mutex);
    return added.wait_for(lock, kPatience, [&] { return countLocked(part) > 0; });
}

std::size_t EventLog::count(const std::string& part) {
    const std::lock_guard<std::mutex> lock(mutex);
    return countLocked(part);
}

std::vector<std::string> EventLog::all() {
    const std::lock_guard<std::mutex> lock(mutex);
    return events;
}

std::size_t EventLog::countLocked(const std::string& part) const {
    return static_cast<std::size_t>(std::count_if(
        events.begin(), events.end(), [&](const std::string& event) { return event.find(part) != std::string::npos; }));
}

}  // namespace com_tesk::host_test
