#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <thread>

namespace com_tesk::test {

/// Waits until the condition holds; whether it did before the bound.
template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds bound = std::chrono::seconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return condition();
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

/// The system's number for the calling thread.
pid_t thisTask();

/// Whether a thread of this process sleeps inside a system call.
bool isAsleep(pid_t task);

/// Whether a thread of this process exists.
bool exists(pid_t task);

/// A number of /proc/self/status, such as "Threads" or "VmSize" (which counts kibibytes).
long statusNumber(const std::string& name);

}  // namespace com_tesk::test
