#include "tools/recording/ProxyConnection.h"

#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <system_error>

namespace com_tesk::recording {

namespace {

constexpr std::size_t kBufferSize = std::size_t{128} * 1024;

Side otherThan(Side side) {
    return side == Side::CLIENT ? Side::HOST : Side::CLIENT;
}

/// The system sends a reset when the socket is closed.
void closeWithReset(int& descriptor) {
    const linger atOnce{1, 0};
    setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    close(descriptor);
    descriptor = -1;
}

void sendAtOnce(int descriptor) {
    const int yes = 1;
    setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
}

int errorOf(int descriptor) {
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size);
    return error;
}

bool isTemporary(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

}  // namespace

ProxyConnection::ProxyConnection(std::uint32_t ownNumber, int clientSocket, const sockaddr_in& hostAddress,
                                 Recorder& ownRecorder)
    : number(ownNumber),
      recorder(ownRecorder),
      client(clientSocket),
      host(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    fromClient.buffer.resize(kBufferSize);
    fromHost.buffer.resize(kBufferSize);
    sendAtOnce(client);
    if (host >= 0) {
        sendAtOnce(host);
    }
    // A failure, also of a missing socket, is found when the result is read.
    if (host < 0 || (connect(host, reinterpret_cast<const sockaddr*>(&hostAddress), sizeof hostAddress) != 0 &&
                     errno != EINPROGRESS && !isTemporary(errno))) {
        reset(Side::HOST, errno);
    }
}

ProxyConnection::~ProxyConnection() {
    for (const int descriptor : {client, host}) {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
}

short ProxyConnection::eventsOf(Side side) const {
    const Flow& in = side == Side::CLIENT ? fromClient : fromHost;
    const Flow& out = side == Side::CLIENT ? fromHost : fromClient;
    if (side == Side::HOST && isConnecting) {
        return POLLOUT;
    }
    const bool canRead = !in.hasEnded && in.end < in.buffer.size();
    const bool mustWrite = out.begin < out.end;
    return static_cast<short>((canRead ? POLLIN : 0) | (mustWrite ? POLLOUT : 0));
}

void ProxyConnection::appendTo(std::vector<pollfd>& waiting) const {
    for (const Side side : {Side::CLIENT, Side::HOST}) {
        // Without events, the system still reports resets. It also reports a hang-up all the time when both directions
        // have ended.
        const short events = eventsOf(side);
        const bool isDone = events == 0 && (side == Side::CLIENT ? fromHost : fromClient).isEndSent;
        const int descriptor = side == Side::CLIENT ? client : host;
        waiting.push_back({isDone ? -1 : descriptor, events, 0});
    }
}

bool ProxyConnection::process(const pollfd* events) {
    const bool isOpen = !lost && passOn(events);
    if (!isOpen) {
        recorder.add(number, lost.value_or(Lost{firstEnd.value_or(Side::HOST), "closed"}));
    }
    return isOpen;
}

bool ProxyConnection::passOn(const pollfd* events) {
    if (isConnecting && events[1].revents != 0 && !finishConnecting()) {
        return false;
    }
    for (const Side side : {Side::HOST, Side::CLIENT}) {
        const short happened = events[side == Side::CLIENT ? 0 : 1].revents;
        const bool isReadable = (eventsOf(side) & POLLIN) != 0;
        if ((happened & POLLERR) != 0 && !isReadable) {
            return reset(side, errorOf(socketOf(side)));
        }
        if (isReadable && (happened & (POLLIN | POLLHUP | POLLERR)) != 0 && !receive(side)) {
            return false;
        }
        if ((happened & POLLOUT) != 0 && !send(otherThan(side))) {
            return false;
        }
    }
    return !fromClient.isEndSent || !fromHost.isEndSent;
}

bool ProxyConnection::finishConnecting() {
    if (const int error = errorOf(host); error != 0) {
        return reset(Side::HOST, error);
    }
    isConnecting = false;
    return send(Side::CLIENT);
}

bool ProxyConnection::receive(Side source) {
    Flow& flow = flowFrom(source);
    char* const target = flow.buffer.data() + flow.end;
    const ssize_t count = recv(socketOf(source), target, flow.buffer.size() - flow.end, 0);
    if (count < 0) {
        return isTemporary(errno) || reset(source, errno);
    }
    if (count == 0) {
        firstEnd = firstEnd.value_or(source);
        flow.hasEnded = true;
        return send(source);
    }
    const std::string_view arrived(target, static_cast<std::size_t>(count));
    flow.end += arrived.size();
    // The bytes stay in the buffer until the next call, so they can be recorded after they were passed on.
    const bool isOpen = send(source);
    recorder.addBytes(number, source, arrived);
    return isOpen;
}

bool ProxyConnection::send(Side source) {
    Flow& flow = flowFrom(source);
    const Side target = otherThan(source);
    if (target == Side::HOST && isConnecting) {
        return true;
    }
    while (flow.begin < flow.end) {
        const ssize_t count =
            ::send(socketOf(target), flow.buffer.data() + flow.begin, flow.end - flow.begin, MSG_NOSIGNAL);
        if (count < 0) {
            return isTemporary(errno) || reset(target, errno);
        }
        flow.begin += static_cast<std::size_t>(count);
    }
    flow.begin = 0;
    flow.end = 0;
    if (flow.hasEnded && !flow.isEndSent) {
        flow.isEndSent = true;
        shutdown(socketOf(target), SHUT_WR);
    }
    return true;
}

bool ProxyConnection::reset(Side side, int error) {
    lost = Lost{side, std::generic_category().message(error == 0 ? ECONNRESET : error)};
    // The bytes that arrived before the reset are passed on.
    const Side other = otherThan(side);
    Flow& flow = flowFrom(side);
    if (flow.begin < flow.end && !isConnecting) {
        ::send(socketOf(other), flow.buffer.data() + flow.begin, flow.end - flow.begin, MSG_NOSIGNAL);
    }
    for (const Side each : {Side::CLIENT, Side::HOST}) {
        if (socketOf(each) >= 0) {
            closeWithReset(socketOf(each));
        }
    }
    return false;
}

}  // namespace com_tesk::recording
