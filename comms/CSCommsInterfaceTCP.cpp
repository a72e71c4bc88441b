#include "comms/CSCommsInterfaceTCP.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <limits>

#include "comms/AtScopeEnd.h"
#include "comms/TcpConnection.h"
#include "message/RawMessage.h"

namespace com_tesk {

namespace {

constexpr int kError = -1;
constexpr int kReceiveTimeout = -2;

/// Message sizes are 32-bit numbers on every machine.
constexpr std::size_t kLargestMessage = std::numeric_limits<std::uint32_t>::max();

}  // namespace

CSCommsInterface::~CSCommsInterface() = default;

CSCommsInterfaceTCP::CSCommsInterfaceTCP(const Options& initialOptions)
    : tcp(std::make_unique<TcpConnection>(initialOptions)) {}

CSCommsInterfaceTCP::~CSCommsInterfaceTCP() = default;

void CSCommsInterfaceTCP::setOptions(const Options& newOptions) {
    tcp->setOptions(newOptions);
}

const CSCommsInterfaceTCP::Options& CSCommsInterfaceTCP::getOptions() const {
    return tcp->getOptions();
}

int CSCommsInterfaceTCP::close() {
    return tcp->close();
}

bool CSCommsInterfaceTCP::openConnection(unsigned int address, unsigned int port) {
    close();

    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    if (sigaction(SIGPIPE, &ignore, nullptr) != 0) {
        tcp->report("Failed to remove signal on broken pipe.");
    }

    const int descriptor = tcp->createSocket();
    if (descriptor == TcpConnection::kNoSocket) {
        return false;
    }
    bool isConnected = false;
    {
        // Adopt at the end, so that no other thread uses a socket that is not connected. Runs also after a
        // cancellation.
        const AtScopeEnd handOver([this, descriptor] { tcp->adopt(descriptor); });
        isConnected = tcp->configureSocket(descriptor) && TcpConnection::connectSocket(descriptor, address, port) &&
                      !TcpConnection::isConnectedToItself(descriptor);
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

int CSCommsInterfaceTCP::readMessage(unsigned int count, RawMessage& message) {
    const std::size_t largest = std::min(kLargestMessage, message.max_size());
    const std::size_t oldSize = message.size();
    if (oldSize > largest || count > largest - oldSize) {
        errno = EMSGSIZE;
        return kError;
    }
    message.resize(message.size() + count);

    ssize_t received = kError;
    if (tcp->isOpen()) {
        const CSUseCount::Use use(tcp->readers());
        received = read(tcp->descriptor(), message.data() + oldSize, count);
    }
    if (received < 0) {
        return errno == EAGAIN ? kReceiveTimeout : kError;
    }
    if (static_cast<std::size_t>(received) < count) {
        // Intended: to `count`, not to the old size plus `received`. Readers of bodies that arrive in pieces rely on
        // it.
        message.resize(count);
    }
    return static_cast<int>(received);
}

int CSCommsInterfaceTCP::writeMessage(const RawMessage& message) {
    if (!tcp->isOpen()) {
        return kError;
    }
    const CSUseCount::Use use(tcp->writers());
    return static_cast<int>(write(tcp->descriptor(), message.data(), message.size()));
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

}  // namespace com_tesk
