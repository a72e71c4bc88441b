#include "tests/comms/SystemCalls.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>

namespace com_tesk::test {

namespace {

thread_local SystemCalls* current = nullptr;

/// Takes the recorder away while a call is being written down, so that what that does is not recorded itself.
class Pause {
  public:
    Pause() : paused(current) { current = nullptr; }
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;
    ~Pause() { current = paused; }

    SystemCalls& calls() const { return *paused; }

  private:
    SystemCalls* paused;
};

/// The system's own function behind the one of this program.
template <typename Function>
Function systemFunction(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

/// Answers in the system's place or calls it.
template <typename Result, typename Call>
Result answered(SystemCalls& calls, const std::string& line, Call call) {
    const SystemCalls::Answer* const answer = calls.record(line);
    if (answer == nullptr) {
        return call();
    }
    errno = answer->error;
    return static_cast<Result>(answer->result);
}

std::string nameOfOption(int level, int option) {
    if (level == SOL_SOCKET) {
        switch (option) {
            case SO_RCVTIMEO:
                return "SOL_SOCKET SO_RCVTIMEO";
            case SO_SNDTIMEO:
                return "SOL_SOCKET SO_SNDTIMEO";
            case SO_SNDBUF:
                return "SOL_SOCKET SO_SNDBUF";
            case SO_RCVBUF:
                return "SOL_SOCKET SO_RCVBUF";
            default:
                break;
        }
    }
    if (level == IPPROTO_TCP && option == TCP_NODELAY) {
        return "IPPROTO_TCP TCP_NODELAY";
    }
    return "level " + std::to_string(level) + " option " + std::to_string(option);
}

std::string textOfValue(const void* value, socklen_t length) {
    timeval duration{};
    unsigned int number = 0;
    if (length == sizeof duration) {
        std::memcpy(&duration, value, sizeof duration);
        return std::to_string(duration.tv_sec) + " s " + std::to_string(duration.tv_usec) + " us";
    }
    if (length == sizeof number) {
        std::memcpy(&number, value, sizeof number);
        return std::to_string(number);
    }
    return std::to_string(length) + " bytes";
}

std::string textOfAddress(const sockaddr* address, socklen_t length) {
    sockaddr_in record{};
    if (length != sizeof record) {
        return std::to_string(length) + " bytes";
    }
    std::memcpy(&record, address, sizeof record);
    char dotted[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &record.sin_addr, dotted, sizeof dotted);
    const bool isPadded = std::all_of(std::begin(record.sin_zero), std::end(record.sin_zero),
                                      [](unsigned char byte) { return byte == 0; });
    return (record.sin_family == AF_INET ? std::string("AF_INET ")
                                         : "family " + std::to_string(record.sin_family) + " ") +
           dotted + ":" + std::to_string(ntohs(record.sin_port)) + (isPadded ? " padding=zero" : " padding=rubbish");
}

std::string nameOfSocketType(int type) {
    constexpr int kFlags = SOCK_CLOEXEC | SOCK_NONBLOCK;
    const int kind = type & ~kFlags;
    return (kind == SOCK_STREAM ? std::string("SOCK_STREAM") : std::to_string(kind)) +
           ((type & SOCK_CLOEXEC) != 0 ? "|SOCK_CLOEXEC" : "") + ((type & SOCK_NONBLOCK) != 0 ? "|SOCK_NONBLOCK" : "");
}

std::string nameOfCommand(int command) {
    switch (command) {
        case F_GETFD:
            return "F_GETFD";
        case F_SETFD:
            return "F_SETFD";
        case F_GETFL:
            return "F_GETFL";
        case F_SETFL:
            return "F_SETFL";
        default:
            return std::to_string(command);
    }
}

std::string textOfAction(const struct sigaction* action) {
    if (action == nullptr) {
        return "query";
    }
    std::string text = action->sa_handler == SIG_IGN ? "SIG_IGN" : "other handler";
    bool isEmpty = true;
    for (int signal = 1; signal < NSIG; ++signal) {
        isEmpty = isEmpty && sigismember(&action->sa_mask, signal) != 1;
    }
    return text + (isEmpty ? " mask=empty" : " mask=filled") + " flags=" + std::to_string(action->sa_flags);
}

}  // namespace

SystemCalls::SystemCalls() {
    current = this;
}

SystemCalls::~SystemCalls() {
    current = nullptr;
}

void SystemCalls::answer(const std::string& part, int result, int error) {
    answers.push_back({part, result, error});
}

void SystemCalls::before(const std::string& part, std::function<void()> action) {
    actions.push_back({part, std::move(action)});
}

std::string SystemCalls::text() const {
    return textOf("");
}

std::string SystemCalls::textOf(const std::string& part) const {
    std::string text;
    for (const std::string& line : recorded) {
        if (line.find(part) != std::string::npos) {
            text += line + '\n';
        }
    }
    return text;
}

const SystemCalls::Answer* SystemCalls::record(const std::string& line) {
    recorded.push_back(line);
    for (const Action& action : actions) {
        if (line.find(action.part) != std::string::npos) {
            action.action();
        }
    }
    for (const Answer& answer : answers) {
        if (line.find(answer.part) != std::string::npos) {
            return &answer;
        }
    }
    return nullptr;
}

std::string SystemCalls::nameOf(int descriptor) const {
    const auto found = numbers.find(descriptor);
    return found == numbers.end() ? "#?" : "#" + std::to_string(found->second);
}

void SystemCalls::socketCreated(int descriptor) {
    created.push_back(descriptor);
    numbers[descriptor] = created.size();
}

void SystemCalls::socketClosed(int descriptor) {
    numbers.erase(descriptor);
}

}  // namespace com_tesk::test

// The program's own socket calls stand in front of the system's, for the library inside it too.

using com_tesk::test::answered;
using com_tesk::test::current;
using com_tesk::test::Pause;
using com_tesk::test::SystemCalls;
using com_tesk::test::systemFunction;

#define CSCLIENT_PROGRAM_WIDE extern "C" __attribute__((visibility("default")))

CSCLIENT_PROGRAM_WIDE int sigaction(int signal, const struct sigaction* action, struct sigaction* oldAction) noexcept {
    static const auto real = systemFunction<decltype(&sigaction)>("sigaction");
    if (current == nullptr) {
        return real(signal, action, oldAction);
    }
    const Pause pause;
    const std::string line = "sigaction " + (signal == SIGPIPE ? std::string("SIGPIPE") : std::to_string(signal)) +
                             " " + com_tesk::test::textOfAction(action) +
                             (oldAction == nullptr ? " old=none" : " old=kept");
    return answered<int>(pause.calls(), line, [&] { return real(signal, action, oldAction); });
}

CSCLIENT_PROGRAM_WIDE int socket(int domain, int type, int protocol) noexcept {
    static const auto real = systemFunction<decltype(&socket)>("socket");
    if (current == nullptr) {
        return real(domain, type, protocol);
    }
    const Pause pause;
    const std::string line = "socket " + (domain == AF_INET ? std::string("AF_INET") : std::to_string(domain)) + " " +
                             com_tesk::test::nameOfSocketType(type) + " " +
                             (protocol == IPPROTO_TCP ? std::string("IPPROTO_TCP") : std::to_string(protocol));
    const int descriptor = answered<int>(pause.calls(), line, [&] { return real(domain, type, protocol); });
    if (descriptor >= 0) {
        pause.calls().socketCreated(descriptor);
    }
    return descriptor;
}

/// Its third argument is an int or a pointer; both arrive in a long.
CSCLIENT_PROGRAM_WIDE int fcntl(int descriptor, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    static const auto real = systemFunction<decltype(&fcntl)>("fcntl");
    if (current == nullptr) {
        return real(descriptor, command, argument);
    }
    const Pause pause;
    const std::string line = "fcntl " + pause.calls().nameOf(descriptor) + " " + com_tesk::test::nameOfCommand(command);
    return answered<int>(pause.calls(), line, [&] { return real(descriptor, command, argument); });
}

CSCLIENT_PROGRAM_WIDE int setsockopt(int descriptor, int level, int option, const void* value,
                                     socklen_t length) noexcept {
    static const auto real = systemFunction<decltype(&setsockopt)>("setsockopt");
    if (current == nullptr) {
        return real(descriptor, level, option, value, length);
    }
    const Pause pause;
    const std::string line = "setsockopt " + pause.calls().nameOf(descriptor) + " " +
                             com_tesk::test::nameOfOption(level, option) + " " +
                             com_tesk::test::textOfValue(value, length);
    return answered<int>(pause.calls(), line, [&] { return real(descriptor, level, option, value, length); });
}

CSCLIENT_PROGRAM_WIDE int getsockopt(int descriptor, int level, int option, void* value, socklen_t* length) noexcept {
    static const auto real = systemFunction<decltype(&getsockopt)>("getsockopt");
    if (current == nullptr || level != IPPROTO_TCP || option != TCP_INFO || current->pretendedTcpInfo() == nullptr) {
        return real(descriptor, level, option, value, length);
    }
    std::memcpy(value, current->pretendedTcpInfo(), *length);
    return 0;
}

CSCLIENT_PROGRAM_WIDE int connect(int descriptor, const sockaddr* address, socklen_t length) {
    static const auto real = systemFunction<decltype(&connect)>("connect");
    if (current == nullptr) {
        return real(descriptor, address, length);
    }
    const Pause pause;
    const std::string line =
        "connect " + pause.calls().nameOf(descriptor) + " " + com_tesk::test::textOfAddress(address, length);
    return answered<int>(pause.calls(), line, [&] { return real(descriptor, address, length); });
}

CSCLIENT_PROGRAM_WIDE ssize_t read(int descriptor, void* buffer, size_t count) {
    static const auto real = systemFunction<decltype(&read)>("read");
    if (current == nullptr) {
        return real(descriptor, buffer, count);
    }
    const Pause pause;
    const std::string line = "read " + pause.calls().nameOf(descriptor) + " " + std::to_string(count);
    return answered<ssize_t>(pause.calls(), line, [&] { return real(descriptor, buffer, count); });
}

CSCLIENT_PROGRAM_WIDE ssize_t write(int descriptor, const void* buffer, size_t count) {
    static const auto real = systemFunction<decltype(&write)>("write");
    if (current == nullptr) {
        return real(descriptor, buffer, count);
    }
    const Pause pause;
    const std::string line = "write " + pause.calls().nameOf(descriptor) + " " + std::to_string(count);
    return answered<ssize_t>(pause.calls(), line, [&] { return real(descriptor, buffer, count); });
}

CSCLIENT_PROGRAM_WIDE ssize_t recv(int descriptor, void* buffer, size_t count, int flags) {
    static const auto real = systemFunction<decltype(&recv)>("recv");
    if (current == nullptr) {
        return real(descriptor, buffer, count, flags);
    }
    const Pause pause;
    const std::string line = "recv " + pause.calls().nameOf(descriptor) + " " + std::to_string(count);
    return answered<ssize_t>(pause.calls(), line, [&] { return real(descriptor, buffer, count, flags); });
}

CSCLIENT_PROGRAM_WIDE ssize_t send(int descriptor, const void* buffer, size_t count, int flags) {
    static const auto real = systemFunction<decltype(&send)>("send");
    if (current == nullptr) {
        return real(descriptor, buffer, count, flags);
    }
    const Pause pause;
    const std::string line = "send " + pause.calls().nameOf(descriptor) + " " + std::to_string(count);
    return answered<ssize_t>(pause.calls(), line, [&] { return real(descriptor, buffer, count, flags); });
}

CSCLIENT_PROGRAM_WIDE int shutdown(int descriptor, int how) noexcept {
    static const auto real = systemFunction<decltype(&shutdown)>("shutdown");
    if (current == nullptr) {
        return real(descriptor, how);
    }
    const Pause pause;
    const std::string line = "shutdown " + pause.calls().nameOf(descriptor) + " " +
                             (how == SHUT_RDWR ? std::string("SHUT_RDWR") : std::to_string(how));
    return answered<int>(pause.calls(), line, [&] { return real(descriptor, how); });
}

CSCLIENT_PROGRAM_WIDE int close(int descriptor) {
    static const auto real = systemFunction<decltype(&close)>("close");
    if (current == nullptr) {
        return real(descriptor);
    }
    const Pause pause;
    const std::string name = pause.calls().nameOf(descriptor);
    const SystemCalls::Answer* const answer = pause.calls().record("close " + name);
    pause.calls().socketClosed(descriptor);
    const int result = real(descriptor);
    if (answer != nullptr) {
        errno = answer->error;
        return answer->result;
    }
    return result;
}
