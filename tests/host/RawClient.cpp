#include "tests/host/RawClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace com_tesk::host_test {

namespace {

using Clock = std::chrono::steady_clock;

/// Whether something can be read before the deadline; the end of the stream counts.
bool readable(int socket, Clock::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd entry{socket, POLLIN, 0};
        const int ready = ::poll(&entry, 1, left > 0 ? static_cast<int>(left) : 0);
        if (ready >= 0 || errno != EINTR) {
            return ready > 0;
        }
    }
}

}  // namespace

RawClient::RawClient(std::uint16_t port, const std::string& address, int receiveBuffer)
    : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (receiveBuffer > 0) {
        ::setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    }
    sockaddr_in host{};
    host.sin_family = AF_INET;
    host.sin_port = htons(port);
    ::inet_pton(AF_INET, address.c_str(), &host.sin_addr);
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&host), sizeof host) != 0) {
        const std::error_code error(errno, std::system_category());
        ::close(socket);
        throw std::system_error(error, "connect");
    }
}

RawClient::~RawClient() {
    close();
}

bool RawClient::send(const Bytes& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count = ::send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        sent += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return true;
}

Bytes RawClient::receive(std::size_t count) {
    const auto deadline = Clock::now() + kPatience;
    Bytes bytes(count);
    std::size_t received = 0;
    while (received < count && readable(socket, deadline)) {
        const ssize_t got = ::recv(socket, bytes.data() + received, count - received, 0);
        if (got <= 0) {
            break;
        }
        received += static_cast<std::size_t>(got);
    }
    bytes.resize(received);
    return bytes;
}

Bytes RawClient::receiveFrame() {
    Bytes header = receive(32);
    if (header.size() < 32) {
        return header;
    }
    const std::size_t length = std::size_t{header[0]} << 24 | std::size_t{header[1]} << 16 |
                               std::size_t{header[2]} << 8 | std::size_t{header[3]};
    return joined({header, receive(length - 32)});
}

Bytes RawClient::ask(const Bytes& request) {
    send(request);
    return receiveFrame();
}

RawClient::End RawClient::waitForEnd(std::chrono::milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    Bytes waste(65536);
    while (readable(socket, deadline)) {
        const ssize_t got = ::recv(socket, waste.data(), waste.size(), 0);
        if (got == 0) {
            return End::CLOSED;
        }
        if (got < 0 && errno != EINTR) {
            return End::RESET;
        }
    }
    return End::STILL_OPEN;
}

void RawClient::close() {
    if (socket >= 0) {
        ::close(socket);
        socket = -1;
    }
}

void RawClient::reset() {
    const linger now{1, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    close();
}

}  // namespace com_tesk::host_test
