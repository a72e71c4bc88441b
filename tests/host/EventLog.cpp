#include "tests/host/EventLog.h"

#include <algorithm>

#include "tests/support/Waiting.h"

namespace com_tesk::host_test {

std::function<void(const HostEvent&)> EventLog::sink() {
    return [this](const HostEvent& event) {
        const std::lock_guard<std::mutex> lock(mutex);
        events.push_back(describe(event));
    };
}

bool EventLog::waitFor(const std::string& part) {
    return test::waitUntil([&] { return has(part); });
}

std::size_t EventLog::count(const std::string& part) {
    const std::lock_guard<std::mutex> lock(mutex);
    return static_cast<std::size_t>(std::count_if(
        events.begin(), events.end(), [&](const std::string& event) { return event.find(part) != std::string::npos; }));
}

std::vector<std::string> EventLog::all() {
    const std::lock_guard<std::mutex> lock(mutex);
    return events;
}

}  // namespace com_tesk::host_test
