#include "comms/CSCommsInterfaceTCP.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <limits>

#include "comms/AtScopeEnd.h"
#include "comms/CancellationDisabled.h"
#include "comms/Diagnostics.h"
#include "message/RawMessage.h"

namespace com_tesk {

namespace {

constexpr int kNoSocket = -1;
constexpr int kError = -1;
constexpr int kReceiveTimeout = -2;

/// Message sizes are 32-bit numbers on every machine.
constexpr std::size_t kLargestMessage = std::numeric_limits<std::uint32_t>::max();

constexpr timeval kReceiveTimeoutValue{1, 0};
constexpr timeval kSendTimeoutValue{30, 0};

template <typename Value>
bool setSocketOption(int descriptor, int level, int name, const Value& value) {
    return setsockopt(descriptor, level, name, &value, sizeof value) == 0;
}

/// Appends `count` bytes. Most reads are for a header or for a message of a value or two: where there is room for more, so
/// few are appended by growing by a constant, which compiles to a few stores, and shrinking again, which is another one.
[[gnu::flatten]] void grow(RawMessage& message, std::size_t count) {
    constexpr std::size_t kFew = 64;
    if (count <= kFew && message.capacity() - message.size() >= kFew) {
        message.resize(message.size() + kFew);
        message.erase(message.end() - static_cast<std::ptrdiff_t>(kFew - count), message.end());
    } else {
        message.resize(message.size() + count);
    }
}

}  // namespace

CSCommsInterface::~CSCommsInterface() = default;

CSCommsInterfaceTCP::CSCommsInterfaceTCP(const Options& initialOptions) : options(initialOptions) {}

CSCommsInterfaceTCP::~CSCommsInterfaceTCP() {
    const int descriptor = socketHandle.exchange(kNoSocket);
    if (descriptor != kNoSocket) {
        closeWhenUnused(descriptor);
    }
}

void CSCommsInterfaceTCP::setOptions(const Options& newOptions) {
    options = newOptions;
}

int CSCommsInterfaceTCP::close() {
    const int descriptor = socketHandle.exchange(kNoSocket);
    if (descriptor == kNoSocket) {
        return kError;
    }
    return closeWhenUnused(descriptor);
}

int CSCommsInterfaceTCP::closeWhenUnused(int descriptor) {
    // A cancellation halfway would leave the descriptor open.
    const CancellationDisabled untilClosed;
    // Wakes reads and writes, and ends the connection for the host also while a forked child holds a copy of the socket.
    shutdown(descriptor, SHUT_RDWR);
    waitForUsers();
    return ::close(descriptor);
}

void CSCommsInterfaceTCP::waitForUsers() {
    readers.waitForUsers();
    writers.waitForUsers();
}

bool CSCommsInterfaceTCP::openConnection(unsigned int address, unsigned int port) {
    close();

    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    if (sigaction(SIGPIPE, &ignore, nullptr) != 0) {
        report("Failed to remove signal on broken pipe.");
    }

    const int descriptor = createSocket();
    if (descriptor == kNoSocket) {
        return false;
    }
    bool isConnected = false;
    {
        // Not before the end, so that no other thread uses a socket that is not connected; but also after a cancellation.
        const AtScopeEnd handOver([this, descriptor] { socketHandle = descriptor; });
        isConnected =
            configureSocket(descriptor) && connectSocket(descriptor, address, port) && !isConnectedToItself(descriptor);
    }
    if (!isConnected) {
        close();
    }
    return isConnected;
}

bool CSCommsInterfaceTCP::openConnection(const char* address, unsigned int port) {
    return openConnection(convertIPAddressToOctet(address), port);
}

void CSCommsInterfaceTCP::setInterrupted(bool /*interrupted*/) {}

int CSCommsInterfaceTCP::createSocket() const {
    // Close-on-exec in the same call: a program that another thread starts in between would keep the connection open.
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    if (descriptor < 0) {
        report("Unable to create socket");
        return kNoSocket;
    }
    return descriptor;
}

bool CSCommsInterfaceTCP::configureSocket(int descriptor) const {
    if (!setSocketOption(descriptor, SOL_SOCKET, SO_RCVTIMEO, kReceiveTimeoutValue)) {
        report("Unable to set socket options");
        return false;
    }
    if (!setSocketOption(descriptor, SOL_SOCKET, SO_SNDTIMEO, kSendTimeoutValue)) {
        report("Unable to set socket timeout options");
        return false;
    }
    // Not fatal: without it small frames leave late, but they leave.
    if (!setSocketOption(descriptor, IPPROTO_TCP, TCP_NODELAY, 1)) {
        report("Unable to disable Nagle algorithm");
    }
    if (options.sendBufferSize != 0 && !setSocketOption(descriptor, SOL_SOCKET, SO_SNDBUF, options.sendBufferSize)) {
        report("Error setting send buffer size");
        return false;
    }
    if (options.receiveBufferSize != 0 &&
        !setSocketOption(descriptor, SOL_SOCKET, SO_RCVBUF, options.receiveBufferSize)) {
        report("Error setting send buffer size");  // Deliberately the same text for both sizes.
        return false;
    }
    return true;
}

bool CSCommsInterfaceTCP::connectSocket(int descriptor, unsigned int address, unsigned int port) {
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(static_cast<std::uint16_t>(port & 0xFFFFU));
    server.sin_addr.s_addr = address;
    return connect(descriptor, reinterpret_cast<const sockaddr*>(&server), sizeof server) == 0;
}

bool CSCommsInterfaceTCP::isConnectedToItself(int descriptor) {
    sockaddr_in own{};
    sockaddr_in peer{};
    socklen_t ownLength = sizeof own;
    socklen_t peerLength = sizeof peer;
    const bool isItself = getsockname(descriptor, reinterpret_cast<sockaddr*>(&own), &ownLength) == 0 &&
                          getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &peerLength) == 0 &&
                          own.sin_port == peer.sin_port && own.sin_addr.s_addr == peer.sin_addr.s_addr;
    if (isItself) {
        // Dissolved with a reset, so that no closed connection keeps the host from the port.
        sockaddr nobody{};
        nobody.sa_family = AF_UNSPEC;
        static_cast<void>(connect(descriptor, &nobody, sizeof nobody));
        errno = ECONNREFUSED;
    }
    return isItself;
}

bool CSCommsInterfaceTCP::isOpen() const {
    if (socketHandle == kNoSocket) {
        errno = EBADF;
        return false;
    }
    return true;
}

int CSCommsInterfaceTCP::readMessage(unsigned int count, RawMessage& message) {
    const std::size_t largest = std::min(kLargestMessage, message.max_size());
    const std::size_t oldSize = message.size();
    if (oldSize > largest || count > largest - oldSize) {
        errno = EMSGSIZE;
        return kError;
    }
    grow(message, count);

    ssize_t received = kError;
    if (isOpen()) {
        const CSUseCount::Use use(readers);
        received = read(socketHandle, message.data() + oldSize, count);
    }
    if (received < 0) {
        return errno == EAGAIN ? kReceiveTimeout : kError;
    }
    if (static_cast<std::size_t>(received) < count) {
        // Deliberately `count`, not the old size plus what arrived: the readers of bodies that arrive in pieces
        // rely on it.
        message.resize(count);
    }
    return static_cast<int>(received);
}

int CSCommsInterfaceTCP::writeMessage(const RawMessage& message) {
    if (!isOpen()) {
        return kError;
    }
    const CSUseCount::Use use(writers);
    return static_cast<int>(write(socketHandle, message.data(), message.size()));
}

std::uint32_t CSCommsInterfaceTCP::convertIPAddressToOctet(const char* address) {
    return inet_addr(address);
}

std::string CSCommsInterfaceTCP::convertIPOctetToAddress(unsigned int octet) {
    std::string text = std::to_string(octet & 0xFFU);
    for (unsigned int shift = 8; shift <= 24; shift += 8) {
        text += '.';
        text += std::to_string(octet >> shift & 0xFFU);
    }
    return text;
}

void CSCommsInterfaceTCP::report(std::string_view line) const {
    if (!options.quiet) {
        diagnostics::error({line});
    }
}

}  // namespace com_tesk
