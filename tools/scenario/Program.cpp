#include "tools/scenario/Program.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <system_error>
#include <thread>

namespace com_tesk::scenario {

namespace {

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> environmentWith(const std::string& host) {
    constexpr char kVariable[] = "CSX_HOST=";
    std::vector<std::string> variables{kVariable + host};
    for (char** variable = environ; *variable != nullptr; ++variable) {
        if (std::strncmp(*variable, kVariable, sizeof kVariable - 1) != 0) {
            variables.emplace_back(*variable);
        }
    }
    return variables;
}

std::string endOf(int status) {
    if (WIFSIGNALED(status)) {
        return "signal " + std::to_string(WTERMSIG(status));
    }
    return "exit code " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

Program::Program(const std::vector<std::string>& commandLine, const std::string& host) {
    std::vector<std::string> words = commandLine;
    std::vector<std::string> variables = environmentWith(host);
    sigset_t none;
    sigset_t defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    for (const int number : {SIGINT, SIGTERM, SIGCHLD, SIGPIPE}) {
        sigaddset(&defaults, number);
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    const int error = posix_spawnp(&process, words.front().c_str(), nullptr, &attributes, pointersTo(words).data(),
                                   pointersTo(variables).data());
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), "cannot start " + words.front());
    }
}

Program::~Program() {
    kill(-process, SIGTERM);
    constexpr std::chrono::milliseconds kInterval(10);
    const auto limit = std::chrono::steady_clock::now() + kPatience;
    while (!ended() && std::chrono::steady_clock::now() < limit) {
        std::this_thread::sleep_for(kInterval);
    }
    if (!end) {
        kill(-process, SIGKILL);
        waitpid(process, nullptr, 0);
    }
}

std::optional<std::string> Program::ended() {
    int status = 0;
    if (!end && waitpid(process, &status, WNOHANG) == process) {
        end = endOf(status);
    }
    return end;
}

}  // namespace com_tesk::scenario
