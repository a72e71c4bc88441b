#include "comms/TcpConnection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "comms/CancellationDisabled.h"
#include "comms/Diagnostics.h"

namespace com_tesk {

namespace {

constexpr timeval kReceiveTimeoutValue{1, 0};
constexpr timeval kSendTimeoutValue{30, 0};

template <typename Value>
bool setSocketOption(int descriptor, int level, int name, const Value& value) {
    return setsockopt(descriptor, level, name, &value, sizeof value) == 0;
}

}  // namespace

TcpConnection::~TcpConnection() {
    close();
}

bool TcpConnection::isOpen() const {
    if (socketHandle == kNoSocket) {
        errno = EBADF;
        return false;
    }
    return true;
}

int TcpConnection::close() {
    const int closed = socketHandle.exchange(kNoSocket);
    if (closed == kNoSocket) {
        return -1;
    }
    // A cancellation halfway would leave the descriptor open.
    const CancellationDisabled untilClosed;
    // Wakes reads and writes. Also ends the connection for the host while a forked child holds a copy of the socket.
    shutdown(closed, SHUT_RDWR);
    waitForUsers();
    return ::close(closed);
}

void TcpConnection::waitForUsers() {
    readingThreads.waitForUsers();
    writingThreads.waitForUsers();
}

int TcpConnection::createSocket() const {
    // Close-on-exec in the same call. Otherwise a program that another thread starts in between would keep the
    // connection open.
    const int created = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    if (created < 0) {
        report("Unable to create socket");
        return kNoSocket;
    }
    return created;
}

bool TcpConnection::configureSocket(int newDescriptor) const {
    if (!setSocketOption(newDescriptor, SOL_SOCKET, SO_RCVTIMEO, kReceiveTimeoutValue)) {
        report("Unable to set socket options");
        return false;
    }
    if (!setSocketOption(newDescriptor, SOL_SOCKET, SO_SNDTIMEO, kSendTimeoutValue)) {
        report("Unable to set socket timeout options");
        return false;
    }
    // Not fatal: without the option small frames leave late, but they leave.
    if (!setSocketOption(newDescriptor, IPPROTO_TCP, TCP_NODELAY, 1)) {
        report("Unable to disable Nagle algorithm");
    }
    if (options.sendBufferSize != 0 && !setSocketOption(newDescriptor, SOL_SOCKET, SO_SNDBUF, options.sendBufferSize)) {
        report("Error setting send buffer size");
        return false;
    }
    if (options.receiveBufferSize != 0 &&
        !setSocketOption(newDescriptor, SOL_SOCKET, SO_RCVBUF, options.receiveBufferSize)) {
        report("Error setting send buffer size");  // Intended: the same text for both. Programs match it.
        return false;
    }
    return true;
}

bool TcpConnection::connectSocket(int newDescriptor, unsigned int address, unsigned int port) {
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(static_cast<std::uint16_t>(port & 0xFFFFU));
    server.sin_addr.s_addr = address;
    return connect(newDescriptor, reinterpret_cast<const sockaddr*>(&server), sizeof server) == 0;
}

bool TcpConnection::isConnectedToItself(int connectedDescriptor) {
    sockaddr_in own{};
    sockaddr_in peer{};
    socklen_t ownLength = sizeof own;
    socklen_t peerLength = sizeof peer;
    const bool isItself = getsockname(connectedDescriptor, reinterpret_cast<sockaddr*>(&own), &ownLength) == 0 &&
                          getpeername(connectedDescriptor, reinterpret_cast<sockaddr*>(&peer), &peerLength) == 0 &&
                          own.sin_port == peer.sin_port && own.sin_addr.s_addr == peer.sin_addr.s_addr;
    if (isItself) {
        // Ends with a reset, so that no closed connection blocks the port for the host.
        sockaddr unspecified{};
        unspecified.sa_family = AF_UNSPEC;
        static_cast<void>(connect(connectedDescriptor, &unspecified, sizeof unspecified));
        errno = ECONNREFUSED;
    }
    return isItself;
}

void TcpConnection::report(std::string_view line) const {
    if (!options.quiet) {
        diagnostics::error({line});
    }
}

}  // namespace com_tesk
