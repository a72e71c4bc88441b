#include "bench/Processes.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <ctime>

#include "bench/Measure.h"

namespace com_tesk::bench {

namespace {

sockaddr_in loopback(unsigned int port) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(static_cast<std::uint16_t>(port));
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return name;
}

unsigned int freePort() {
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in name = loopback(0);
    socklen_t length = sizeof name;
    check(bind(descriptor, reinterpret_cast<sockaddr*>(&name), sizeof name) == 0 &&
              getsockname(descriptor, reinterpret_cast<sockaddr*>(&name), &length) == 0,
          "free port");
    ::close(descriptor);
    return ntohs(name.sin_port);
}

bool accepts(unsigned int port) {
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    const sockaddr_in name = loopback(port);
    const bool isAccepted = connect(descriptor, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
    ::close(descriptor);
    return isAccepted;
}

std::vector<std::string> withPort(std::vector<std::string> arguments, unsigned int port) {
    for (std::string& argument : arguments) {
        if (argument == "PORT") {
            argument = std::to_string(port);
        }
    }
    return arguments;
}

}  // namespace

bool isInstalled(const std::string& program) {
    return std::system(("command -v " + program + " >/dev/null").c_str()) == 0;
}

void runSilently(std::vector<std::string> arguments) {
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    execvp(pointers.front(), pointers.data());
}

Child::Child(const std::function<void()>& run) : processId(fork()) {
    check(processId >= 0, "fork");
    if (processId == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        run();
        _exit(1);
    }
}

Child::~Child() {
    kill(processId, SIGKILL);
    waitpid(processId, nullptr, 0);
}

Server::Server(const std::vector<std::string>& arguments)
    : ownPort(freePort()), process([&] { runSilently(withPort(arguments, ownPort)); }) {
    for (unsigned int i = 0; !accepts(ownPort); ++i) {
        check(i < 500, "the server does not start");
        constexpr timespec kPause{0, 10'000'000};
        nanosleep(&kPause, nullptr);
    }
}

}  // namespace com_tesk::bench
