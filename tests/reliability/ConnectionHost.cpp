#include "tests/reliability/ConnectionHost.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

namespace com_tesk::test {

namespace {

void throwOn(bool failed, const char* what) {
    if (failed) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

int boundSocket() {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    throwOn(descriptor < 0, "socket");
    // A host that listens on a reserved port shares it, and both have to allow that.
    const int yes = 1;
    throwOn(setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) != 0, "setsockopt");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr(kHostAddress);
    throwOn(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0, "bind");
    return descriptor;
}

unsigned int portOf(int socket) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    throwOn(getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0, "getsockname");
    return ntohs(address.sin_port);
}

}  // namespace

ReservedPort::ReservedPort() : descriptor(boundSocket()) {}

ReservedPort::~ReservedPort() {
    close(descriptor);
}

unsigned int ReservedPort::number() const {
    return portOf(descriptor);
}

bool ConnectionHost::Connection::waitFor(short events, int milliseconds) const {
    pollfd waiting[] = {{host.stopSignal, POLLIN, 0}, {socket, events, 0}};
    return poll(waiting, 2, milliseconds) > 0 && isHostRunning();
}

bool ConnectionHost::Connection::send(const std::uint8_t* bytes, std::size_t count) const {
    while (count > 0 && waitFor(POLLOUT, -1)) {
        const ssize_t sent = ::send(socket, bytes, count, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno != EAGAIN) {
            return false;
        }
        bytes += sent > 0 ? sent : 0;
        count -= sent > 0 ? static_cast<std::size_t>(sent) : 0;
    }
    return count == 0;
}

std::size_t ConnectionHost::Connection::receive(std::uint8_t* buffer, std::size_t size) const {
    const ssize_t count = waitFor(POLLIN, -1) ? recv(socket, buffer, size, 0) : 0;
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

bool ConnectionHost::Connection::drop(int milliseconds) const {
    char dropped[4096];
    while (waitFor(POLLIN, milliseconds)) {
        if (recv(socket, dropped, sizeof dropped, 0) <= 0) {
            return false;
        }
    }
    return isHostRunning();
}

void ConnectionHost::Connection::hold() const {
    while (isHostRunning()) {
        pollfd waiting{host.stopSignal, POLLIN, 0};
        poll(&waiting, 1, -1);
    }
}

void ConnectionHost::Connection::endSending() const {
    shutdown(socket, SHUT_WR);
}

void ConnectionHost::Connection::shrinkSendBuffer() const {
    const int small = 16'384;
    setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
}

ConnectionHost::ConnectionHost(Function forEach, int receiveBuffer)
    : function(std::move(forEach)),
      listener(boundSocket()),
      stopSignal(eventfd(0, EFD_CLOEXEC)),
      portNumber(portOf(listener)) {
    if (receiveBuffer != 0) {
        // Connections inherit it only when it is set before they are made.
        setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    }
    throwOn(listen(listener, SOMAXCONN) != 0, "listen");
    thread = std::thread([this] { run(); });
}

void ConnectionHost::stop() {
    if (!thread.joinable()) {
        return;
    }
    isStopping = true;
    eventfd_write(stopSignal, 1);
    thread.join();
    while (runningFunctions > 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    close(listener);
    close(stopSignal);
}

void ConnectionHost::run() {
    while (!isStopping) {
        pollfd waiting[] = {{stopSignal, POLLIN, 0}, {listener, POLLIN, 0}};
        poll(waiting, 2, -1);
        const int socket = isStopping ? -1 : accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) {
            continue;
        }
        ++runningFunctions;
        std::thread([this, socket, number = ++connectionCount] {
            Connection connection(*this, socket);
            function(connection, number);
            if (connection.hasReset) {
                const linger atOnce{1, 0};
                setsockopt(socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
            }
            close(socket);
            --runningFunctions;
        }).detach();
    }
}

}  // namespace com_tesk::test
