#include "tests/comms/SystemCalls.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <netinet/in.h>
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

/// Stops the recording while a call is recorded.
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

/// Calls the system's own function. While a test records, it first records the line that `describe` returns, and
/// gives the test's answer when there is one.
template <typename Function, typename Describe, typename... Arguments>
auto recorded(Function real, const Describe& describe, Arguments... arguments) {
    if (current == nullptr) {
        return real(arguments...);
    }
    const Pause pause;
    const SystemCalls::Answer* const answer = pause.calls().record(describe(pause.calls()));
    if (answer == nullptr) {
        return real(arguments...);
    }
    errno = answer->error;
    return static_cast<decltype(real(arguments...))>(answer->result);
}

template <typename Function>
Function systemFunction(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

std::string nameOfOption(int level, int option) {
    static const std::map<std::pair<int, int>, const char*> names{
        {{SOL_SOCKET, SO_RCVTIMEO}, "SOL_SOCKET SO_RCVTIMEO"},   {{SOL_SOCKET, SO_SNDTIMEO}, "SOL_SOCKET SO_SNDTIMEO"},
        {{SOL_SOCKET, SO_SNDBUF}, "SOL_SOCKET SO_SNDBUF"},       {{SOL_SOCKET, SO_RCVBUF}, "SOL_SOCKET SO_RCVBUF"},
        {{IPPROTO_TCP, TCP_NODELAY}, "IPPROTO_TCP TCP_NODELAY"},
    };
    const auto found = names.find({level, option});
    return found != names.end() ? found->second
                                : "level " + std::to_string(level) + " option " + std::to_string(option);
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
    const bool isPadded =
        std::count(std::begin(record.sin_zero), std::end(record.sin_zero), 0) == sizeof record.sin_zero;
    const std::string family = "family " + std::to_string(record.sin_family);
    return (record.sin_family == AF_INET ? "AF_INET" : family) + " " + dotted + ":" +
           std::to_string(ntohs(record.sin_port)) + (isPadded ? " padding=zero" : " padding=rubbish");
}

std::string nameOfSocketType(int type) {
    constexpr int kFlags = SOCK_CLOEXEC | SOCK_NONBLOCK;
    const int kind = type & ~kFlags;
    return (kind == SOCK_STREAM ? std::string("SOCK_STREAM") : std::to_string(kind)) +
           ((type & SOCK_CLOEXEC) != 0 ? "|SOCK_CLOEXEC" : "") + ((type & SOCK_NONBLOCK) != 0 ? "|SOCK_NONBLOCK" : "");
}

std::string textOfAction(const struct sigaction* action) {
    if (action == nullptr) {
        return "query";
    }
    return std::string(action->sa_handler == SIG_IGN ? "SIG_IGN" : "other handler") +
           (sigisemptyset(&action->sa_mask) == 1 ? " mask=empty" : " mask=filled") +
           " flags=" + std::to_string(action->sa_flags);
}

/// Returns a function that describes a call which transfers `count` bytes.
auto transferOf(const char* call, int descriptor, std::size_t count) {
    return [=](const SystemCalls& calls) {
        return std::string(call) + " " + calls.nameOf(descriptor) + " " + std::to_string(count);
    };
}

}  // namespace

SystemCalls::SystemCalls() {
    current = this;
}

SystemCalls::~SystemCalls() {
    current = nullptr;
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
    const auto found = std::find_if(answers.begin(), answers.end(), [&line](const Answer& answer) {
        return line.find(answer.part) != std::string::npos;
    });
    return found == answers.end() ? nullptr : &*found;
}

std::string SystemCalls::nameOf(int descriptor) const {
    const auto found = numbers.find(descriptor);
    return found == numbers.end() ? "#?" : "#" + std::to_string(found->second);
}

void SystemCalls::socketCreated(int descriptor) {
    created.push_back(descriptor);
    numbers[descriptor] = created.size();
}

}  // namespace com_tesk::test

// These functions replace the system's, also for the library inside this program.

using namespace com_tesk::test;

#define CSCLIENT_PROGRAM_WIDE extern "C" __attribute__((visibility("default")))

CSCLIENT_PROGRAM_WIDE int sigaction(int signal, const struct sigaction* action, struct sigaction* oldAction) noexcept {
    static const auto real = systemFunction<decltype(&sigaction)>("sigaction");
    const auto describe = [=](const SystemCalls& /*calls*/) {
        return "sigaction " + (signal == SIGPIPE ? std::string("SIGPIPE") : std::to_string(signal)) + " " +
               textOfAction(action) + (oldAction == nullptr ? " old=none" : " old=kept");
    };
    return recorded(real, describe, signal, action, oldAction);
}

CSCLIENT_PROGRAM_WIDE int socket(int domain, int type, int protocol) noexcept {
    static const auto real = systemFunction<decltype(&socket)>("socket");
    const auto describe = [=](const SystemCalls& /*calls*/) {
        return "socket " + (domain == AF_INET ? std::string("AF_INET") : std::to_string(domain)) + " " +
               nameOfSocketType(type) + " " +
               (protocol == IPPROTO_TCP ? std::string("IPPROTO_TCP") : std::to_string(protocol));
    };
    const int descriptor = recorded(real, describe, domain, type, protocol);
    if (current != nullptr && descriptor >= 0) {
        current->socketCreated(descriptor);
    }
    return descriptor;
}

CSCLIENT_PROGRAM_WIDE int setsockopt(int descriptor, int level, int option, const void* value,
                                     socklen_t length) noexcept {
    static const auto real = systemFunction<decltype(&setsockopt)>("setsockopt");
    const auto describe = [=](const SystemCalls& calls) {
        return "setsockopt " + calls.nameOf(descriptor) + " " + nameOfOption(level, option) + " " +
               textOfValue(value, length);
    };
    return recorded(real, describe, descriptor, level, option, value, length);
}

CSCLIENT_PROGRAM_WIDE int getsockopt(int descriptor, int level, int option, void* value, socklen_t* length) noexcept {
    static const auto real = systemFunction<decltype(&getsockopt)>("getsockopt");
    if (current == nullptr || level != IPPROTO_TCP || option != TCP_INFO || !current->pretendedTcpInfo()) {
        return real(descriptor, level, option, value, length);
    }
    std::memcpy(value, &*current->pretendedTcpInfo(), *length);
    return 0;
}

CSCLIENT_PROGRAM_WIDE int connect(int descriptor, const sockaddr* address, socklen_t length) {
    static const auto real = systemFunction<decltype(&connect)>("connect");
    const auto describe = [=](const SystemCalls& calls) {
        return "connect " + calls.nameOf(descriptor) + " " + textOfAddress(address, length);
    };
    return recorded(real, describe, descriptor, address, length);
}

CSCLIENT_PROGRAM_WIDE ssize_t read(int descriptor, void* buffer, size_t count) {
    static const auto real = systemFunction<decltype(&read)>("read");
    return recorded(real, transferOf("read", descriptor, count), descriptor, buffer, count);
}

CSCLIENT_PROGRAM_WIDE ssize_t write(int descriptor, const void* buffer, size_t count) {
    static const auto real = systemFunction<decltype(&write)>("write");
    return recorded(real, transferOf("write", descriptor, count), descriptor, buffer, count);
}

CSCLIENT_PROGRAM_WIDE ssize_t recv(int descriptor, void* buffer, size_t count, int flags) {
    static const auto real = systemFunction<decltype(&recv)>("recv");
    return recorded(real, transferOf("recv", descriptor, count), descriptor, buffer, count, flags);
}

CSCLIENT_PROGRAM_WIDE ssize_t send(int descriptor, const void* buffer, size_t count, int flags) {
    static const auto real = systemFunction<decltype(&send)>("send");
    return recorded(real, transferOf("send", descriptor, count), descriptor, buffer, count, flags);
}

CSCLIENT_PROGRAM_WIDE int fcntl(int descriptor, int command, ...) {
    static const auto real = systemFunction<decltype(&fcntl)>("fcntl");
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    const auto describe = [=](const SystemCalls& calls) {
        return "fcntl " + calls.nameOf(descriptor) + " " + (command == F_SETFD ? "F_SETFD" : std::to_string(command));
    };
    return recorded(real, describe, descriptor, command, argument);
}

CSCLIENT_PROGRAM_WIDE int shutdown(int descriptor, int how) noexcept {
    static const auto real = systemFunction<decltype(&shutdown)>("shutdown");
    const auto describe = [=](const SystemCalls& calls) {
        return "shutdown " + calls.nameOf(descriptor) + " " +
               (how == SHUT_RDWR ? std::string("SHUT_RDWR") : std::to_string(how));
    };
    return recorded(real, describe, descriptor, how);
}

CSCLIENT_PROGRAM_WIDE int close(int descriptor) {
    static const auto real = systemFunction<decltype(&close)>("close");
    if (current == nullptr) {
        return real(descriptor);
    }
    const Pause pause;
    const SystemCalls::Answer* const answer = pause.calls().record("close " + pause.calls().nameOf(descriptor));
    pause.calls().socketClosed(descriptor);
    const int result = real(descriptor);
    if (answer != nullptr) {
        errno = answer->error;
        return answer->result;
    }
    return result;
}
