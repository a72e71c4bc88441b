#include "tests/comms/TaskStatus.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

namespace com_tesk::test {

namespace {

std::string folderOf(pid_t task) {
    return "/proc/self/task/" + std::to_string(task);
}

}  // namespace

pid_t thisTask() {
    return static_cast<pid_t>(syscall(SYS_gettid));
}

bool isAsleep(pid_t task) {
    std::ifstream file(folderOf(task) + "/stat");
    std::string line;
    std::getline(file, line);
    // The state follows the name in brackets, which may itself hold anything.
    const std::size_t bracket = line.rfind(')');
    return bracket != std::string::npos && line.compare(bracket, 3, ") S") == 0;
}

bool exists(pid_t task) {
    return access(folderOf(task).c_str(), F_OK) == 0;
}

long statusNumber(const std::string& name) {
    std::ifstream file("/proc/self/status");
    for (std::string line; std::getline(file, line);) {
        if (line.compare(0, name.size() + 1, name + ":") == 0) {
            return std::stol(line.substr(name.size() + 1));
        }
    }
    throw std::runtime_error("no such line in the status: " + name);
}

}  // namespace com_tesk::test
