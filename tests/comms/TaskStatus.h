#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>
#include <string>

namespace com_tesk::test {

/// Returns the system's number of the calling thread.
inline pid_t thisTask() {
    return static_cast<pid_t>(syscall(SYS_gettid));
}

inline std::string directoryOf(pid_t task) {
    return "/proc/self/task/" + std::to_string(task);
}

/// True when a thread of this process sleeps inside a system call.
inline bool isAsleep(pid_t task) {
    std::ifstream file(directoryOf(task) + "/stat");
    std::string line;
    std::getline(file, line);
    // The state follows the name in brackets, which may itself hold anything.
    const std::size_t bracket = line.rfind(')');
    return bracket != std::string::npos && line.compare(bracket, 3, ") S") == 0;
}

/// True when a thread of this process exists.
inline bool exists(pid_t task) {
    return access(directoryOf(task).c_str(), F_OK) == 0;
}

/// Returns a number of /proc/self/status, such as "Threads" or "VmSize" (in kibibytes).
inline long statusNumber(const std::string& name) {
    std::ifstream file("/proc/self/status");
    for (std::string line; std::getline(file, line);) {
        if (line.compare(0, name.size() + 1, name + ":") == 0) {
            return std::stol(line.substr(name.size() + 1));
        }
    }
    throw std::runtime_error("no such line in the status: " + name);
}

}  // namespace com_tesk::test
