#include "comms/CSCommsInterfaceTCP.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <limits>

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

int CSCommsInterfaceTCP::closeWhenUnused(int descriptor) const {
    if (readers.isInUse() || writers.isInUse()) {
        // Wakes them.
        shutdown(descriptor, SHUT_RDWR);
        waitUntilUnused();
    }
    return ::close(descriptor);
}

void CSCommsInterfaceTCP::waitUntilUnused() const {
    readers.waitUntilUnused();
    writers.waitUntilUnused();
}

bool CSCommsInterfaceTCP::openConnection(unsigned int address, unsigned int port) {
    close();

    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    if (sigaction(SIGPIPE, &ignore, nullptr) != 0) {
        report("Failed to remove signal on broken pipe.");
    }

    const int descriptor = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (descriptor < 0) {
        report("Unable to create socket");
        return false;
    }
    if (configureSocket(descriptor) && connectSocket(descriptor, address, port)) {
        socketHandle = descriptor;
        return true;
    }
    socketHandle = descriptor;
    close();
    return false;
}

bool CSCommsInterfaceTCP::openConnection(const char* address, unsigned int port) {
    return openConnection(convertIPAddressToOctet(address), port);
}

void CSCommsInterfaceTCP::setInterrupted(bool /*interrupted*/) {}

bool CSCommsInterfaceTCP::configureSocket(int descriptor) const {
    // Programs that the application starts must not keep the connection open behind its back.
    fcntl(descriptor, F_SETFD, FD_CLOEXEC);

    if (!setSocketOption(descriptor, SOL_SOCKET, SO_RCVTIMEO, kReceiveTimeoutValue)) {
        report("Unable to set socket options");
        return false;
    }
    if (!setSocketOption(descriptor, SOL_SOCKET, SO_SNDTIMEO, kSendTimeoutValue)) {
        report("Unable to set socket timeout options");
        return false;
    }
    // Deliberately not fatal: without it small frames leave late, but they leave.
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
