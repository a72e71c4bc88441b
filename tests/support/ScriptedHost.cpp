#include "tests/support/ScriptedHost.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace com_tesk::test {

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/// Waits until the descriptor has something to read. Returns false when the deadline passes first.
bool waitReadable(int descriptor, Clock::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd waiting{descriptor, POLLIN, 0};
        const int ready = poll(&waiting, 1, left > 0 ? static_cast<int>(left) : 0);
        if (ready > 0) {
            return true;
        }
        if (ready == 0) {
            return false;
        }
        if (errno != EINTR) {
            fail("poll");
        }
    }
}

int listenOn(unsigned int port) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        fail("socket");
    }
    const int yes = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = ScriptedHost::address();
    if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        fail("bind");
    }
    if (listen(descriptor, SOMAXCONN) != 0) {
        fail("listen");
    }
    return descriptor;
}

unsigned int portOf(int descriptor) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        fail("getsockname");
    }
    return ntohs(address.sin_port);
}

}  // namespace

Bytes ScriptedHost::Peer::receive(std::size_t count, std::chrono::milliseconds bound) {
    const auto deadline = Clock::now() + bound;
    Bytes bytes(count);
    std::size_t received = 0;
    while (received < count && waitReadable(descriptor, deadline)) {
        const ssize_t arrived = recv(descriptor, bytes.data() + received, count - received, 0);
        if (arrived <= 0) {
            break;
        }
        received += static_cast<std::size_t>(arrived);
    }
    bytes.resize(received);
    return bytes;
}

std::string ScriptedHost::Peer::receiveFrame(std::chrono::milliseconds bound) {
    constexpr std::size_t kHeader = 32;
    Bytes frame = receive(kHeader, bound);
    if (frame.size() == kHeader) {
        const std::size_t length = static_cast<std::size_t>(frame[0]) << 24U |
                                   static_cast<std::size_t>(frame[1]) << 16U |
                                   static_cast<std::size_t>(frame[2]) << 8U | static_cast<std::size_t>(frame[3]);
        if (length > kHeader) {
            const Bytes body = receive(length - kHeader, bound);
            frame.insert(frame.end(), body.begin(), body.end());
        }
    }
    return hexText(frame);
}

std::string ScriptedHost::Peer::receiveBody(std::chrono::milliseconds bound) {
    constexpr std::size_t kHeaderText = 32 * 3;
    const std::string frame = receiveFrame(bound);
    return frame.size() > kHeaderText ? frame.substr(kHeaderText) : "no body in: " + frame;
}

bool ScriptedHost::Peer::isQuietFor(std::chrono::milliseconds duration) {
    return !waitReadable(descriptor, Clock::now() + duration);
}

bool ScriptedHost::Peer::waitForEnd(std::chrono::milliseconds bound) {
    const auto deadline = Clock::now() + bound;
    char dropped[4096];
    while (waitReadable(descriptor, deadline)) {
        if (recv(descriptor, dropped, sizeof dropped, 0) <= 0) {
            return true;
        }
    }
    return false;
}

void ScriptedHost::Peer::send(const std::string& hexBytes) {
    send(hex(hexBytes));
}

void ScriptedHost::Peer::send(const Bytes& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count = ::send(descriptor, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0) {
            fail("send");
        }
        sent += static_cast<std::size_t>(count);
    }
}

void ScriptedHost::Peer::close() {
    if (descriptor >= 0) {
        ::close(descriptor);
        descriptor = -1;
    }
}

void ScriptedHost::Peer::endSending() {
    shutdown(descriptor, SHUT_WR);
}

void ScriptedHost::Peer::reset() {
    const linger atOnce{1, 0};
    setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    close();
}

void ScriptedHost::Peer::shrinkReceiveBuffer() {
    const int smallest = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &smallest, sizeof smallest);
}

void ScriptedHost::Peer::shrinkSendBuffer() {
    const int small = 16'384;
    setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
}

ScriptedHost::ScriptedHost() : listener(listenOn(0)), portNumber(portOf(listener)) {}

ScriptedHost::~ScriptedHost() {
    stopListening();
}

unsigned int ScriptedHost::address() {
    return htonl(INADDR_LOOPBACK);
}

std::unique_ptr<ScriptedHost::Peer> ScriptedHost::accept(std::chrono::milliseconds bound) {
    if (!waitReadable(listener, Clock::now() + bound)) {
        return nullptr;
    }
    const int descriptor = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (descriptor < 0) {
        fail("accept");
    }
    const int yes = 1;
    setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    return std::make_unique<Peer>(descriptor);
}

void ScriptedHost::stopListening() {
    if (listener >= 0) {
        ::close(listener);
        listener = -1;
    }
}

void ScriptedHost::listenAgain() {
    listener = listenOn(portNumber);
}

unsigned int refusingPort() {
    const int descriptor = listenOn(0);
    const unsigned int port = portOf(descriptor);
    ::close(descriptor);
    return port;
}

}  // namespace com_tesk::test
