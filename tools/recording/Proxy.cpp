#include "tools/recording/Proxy.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace com_tesk::recording {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kMaxWait{60'000};
constexpr std::chrono::milliseconds kAcceptPause{100};

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

sockaddr_in resolved(const Proxy::Address& address) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    if (!address.host.empty()) {
        addrinfo hints{};
        hints.ai_family = AF_INET;
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        if (const int error = getaddrinfo(address.host.c_str(), nullptr, &hints, &found); error != 0) {
            throw std::runtime_error(address.host + ": " + gai_strerror(error));
        }
        result = *reinterpret_cast<const sockaddr_in*>(found->ai_addr);
        freeaddrinfo(found);
    }
    result.sin_port = htons(address.port);
    return result;
}

}  // namespace

std::string textOf(const sockaddr_in& address) {
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
    return std::string(text.data()) + ':' + std::to_string(ntohs(address.sin_port));
}

Proxy::Proxy(const Address& listenAt, const Address& hostAt, RecordingFile::Say sayToUser)
    : say(std::move(sayToUser)),
      host(resolved(hostAt)),
      listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    const sockaddr_in own = resolved(listenAt);
    const int yes = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    if (listener < 0 || bind(listener, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0 ||
        listen(listener, SOMAXCONN) != 0) {
        const int error = errno;
        close(listener);
        errno = error;
        fail(textOf(own));
    }
}

Proxy::~Proxy() {
    connections.clear();
    close(listener);
}

std::string Proxy::place() const {
    sockaddr_in own{};
    socklen_t size = sizeof own;
    getsockname(listener, reinterpret_cast<sockaddr*>(&own), &size);
    return textOf(own);
}

void Proxy::run(Recorder& recorder, int stopDescriptor, Clock::time_point end) {
    constexpr std::size_t kFirst = 2;  // The first element of a connection in `waiting`.
    for (;;) {
        waitForEvents(stopDescriptor, end);
        if (waiting[0].revents != 0 || Clock::now() >= end) {
            connections.clear();
            return;
        }
        for (std::size_t i = 0; i < connections.size(); ++i) {
            if (!connections[i]->process(&waiting[kFirst + 2 * i])) {
                connections[i].reset();
            }
        }
        connections.erase(std::remove(connections.begin(), connections.end(), nullptr), connections.end());
        if (waiting[1].revents != 0) {
            accept(recorder);
        }
    }
}

void Proxy::waitForEvents(int stopDescriptor, Clock::time_point end) {
    const Clock::time_point now = Clock::now();
    const bool isPaused = now < acceptAfter;
    waiting.clear();
    waiting.push_back({stopDescriptor, POLLIN, 0});
    waiting.push_back({isPaused ? -1 : listener, POLLIN, 0});
    for (const auto& connection : connections) {
        connection->appendTo(waiting);
    }
    auto wait = std::clamp(std::chrono::ceil<std::chrono::milliseconds>(std::min(end, now + kMaxWait) - now),
                           std::chrono::milliseconds(0), kMaxWait);
    if (isPaused) {
        wait = std::min(wait, kAcceptPause);
    }
    if (poll(waiting.data(), waiting.size(), static_cast<int>(wait.count())) < 0) {
        for (pollfd& each : waiting) {
            each.revents = 0;
        }
    }
}

void Proxy::accept(Recorder& recorder) {
    sockaddr_in client{};
    socklen_t size = sizeof client;
    const int descriptor = accept4(listener, reinterpret_cast<sockaddr*>(&client), &size, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (descriptor < 0) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            if (Clock::now() > acceptAfter + std::chrono::seconds(10)) {
                say("no more clients at the moment: " + std::generic_category().message(errno));
            }
            acceptAfter = Clock::now() + kAcceptPause;
        }
        return;
    }
    ++lastNumber;
    recorder.add(lastNumber, Connected{textOf(client)});
    auto connection = std::make_unique<ProxyConnection>(lastNumber, descriptor, host, recorder);
    const std::array<pollfd, 2> nothing{};
    if (connection->process(nothing.data())) {
        connections.push_back(std::move(connection));
    }
}

}  // namespace com_tesk::recording
