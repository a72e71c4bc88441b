#include "comms/BufferedConnection.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "comms/AtScopeEnd.h"
#include "comms/CancellationDisabled.h"
#include "comms/SocketWait.h"
#include "message/FrameLayout.h"

namespace com_tesk {

namespace {

using std::chrono::milliseconds;

constexpr int kNoSocket = TcpConnection::kNoSocket;

/// Returns a bound that can be added to any time of the clock. A century counts as no bound.
milliseconds saturated(milliseconds bound) {
    constexpr milliseconds kCentury = std::chrono::hours(24 * 365 * 100);
    return std::clamp(bound, milliseconds(0), kCentury);
}

CSCommsInterfaceTCPBuffered::Bounds saturated(CSCommsInterfaceTCPBuffered::Bounds bounds) {
    bounds.silenceInFrame = saturated(bounds.silenceInFrame);
    bounds.connectTimeout = saturated(bounds.connectTimeout);
    bounds.writeTimeout = saturated(bounds.writeTimeout);
    return bounds;
}

}  // namespace

BufferedConnection::BufferedConnection(TcpConnection& connection,
                                       const CSCommsInterfaceTCPBuffered::Bounds& initialBounds)
    : tcp(connection),
      bounds(saturated(initialBounds)),
      peerWatch(initialBounds.deadPeerSeconds),
      buffer(std::max<std::size_t>(initialBounds.readAhead, frame::kHeaderLength)) {}

BufferedConnection::~BufferedConnection() {
    const CancellationDisabled untilDestroyed;
    // Operations in progress need this object's members.
    tcp.close();
    tcp.waitForUsers();
}

void BufferedConnection::setInterrupted(bool interrupted) {
    isInterrupted = interrupted;
    if (interrupted) {
        const CSUseCount::Use use(tcp.readers());
        shutdown(tcp.descriptor(), SHUT_RDWR);  // Harmless without a socket.
    }
}

int BufferedConnection::connectedSocket() const {
    const int descriptor = tcp.descriptor();
    if (descriptor == kNoSocket || descriptor == connectingHandle) {
        errno = EBADF;
        return kNoSocket;
    }
    return descriptor;
}

bool BufferedConnection::open(unsigned int address, unsigned int port) {
    const int descriptor = tcp.createSocket();
    if (descriptor == kNoSocket) {
        return false;
    }
    const CSUseCount::Use use(tcp.readers());
    connectingHandle = descriptor;
    // Runs also after a cancellation.
    const AtScopeEnd isNoLongerConnecting([this] { connectingHandle = kNoSocket; });
    tcp.adopt(descriptor);
    if (!tcp.configureSocket(descriptor)) {
        return false;
    }
    if (!peerWatch.enableKeepAlive(descriptor)) {
        // Not fatal: the connection works, but its end is detected late.
        tcp.report("Unable to set dead peer timeout options");
    }
    if (!connectWithin(descriptor, address, port) || TcpConnection::isConnectedToItself(descriptor)) {
        return false;
    }
    // On a system without this limit some dead peers are detected late: see PeerWatch.h.
    static_cast<void>(peerWatch.limitProbeInterval(descriptor));
    return true;
}

int BufferedConnection::close() {
    const int result = tcp.close();
    // A reader in progress frees the memory itself when it finds that the connection has ended.
    if (!isTakingIn.exchange(true)) {
        const AtScopeEnd admitReaders([this] { isTakingIn = false; });
        if (!tcp.readers().isInUse()) {
            releaseReceived();
        }
    }
    return result;
}

void BufferedConnection::beginReading() {
    // Register as a reader, so that a close on another thread does not use the members below.
    const CSUseCount::Use use(tcp.readers());
    waitForWriterToTakeIn();
    progress.reset();
    buffer.clear();
    releaseReceived();
    hasReadingFailed = false;
    silence = Clock::duration(0);
}

void BufferedConnection::releaseReceived() {
    std::vector<char>().swap(largeBody);
    largeBodyFilled = 0;
    backlog.release();
}

bool BufferedConnection::connectWithin(int descriptor, unsigned int address, unsigned int port) const {
    const auto deadline = Clock::now() + bounds.connectTimeout;
    const int flags = fcntl(descriptor, F_GETFL);
    if (flags < 0 || fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) != 0) {
        return false;
    }
    if (isGivenUp(descriptor)) {
        return false;
    }
    if (!TcpConnection::connectSocket(descriptor, address, port)) {
        // A shutdown wakes this wait. A shutdown before the connect began had no effect, so test for it first.
        if (errno != EINPROGRESS || isGivenUp(descriptor)) {
            return false;
        }
        const short ready = waitUntilReady(descriptor, POLLOUT, deadline);
        if (ready == 0) {
            errno = ETIMEDOUT;
        }
        if (ready <= 0) {
            return false;
        }
        int error = 0;
        socklen_t length = sizeof error;
        if (getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &length) != 0) {
            return false;
        }
        if (error != 0) {
            errno = error;
            return false;
        }
    }
    return !isGivenUp(descriptor) && fcntl(descriptor, F_SETFL, flags) == 0;
}

}  // namespace com_tesk
