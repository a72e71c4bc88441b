#include "comms/CSCommsInterfaceTCPBuffered.h"

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

constexpr int kNoSocket = -1;

/// A bound that can be added to any time of the clock. A century counts as no bound.
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

CSCommsInterfaceTCPBuffered::CSCommsInterfaceTCPBuffered() : CSCommsInterfaceTCPBuffered(Options()) {}

CSCommsInterfaceTCPBuffered::CSCommsInterfaceTCPBuffered(const Options& initialOptions)
    : CSCommsInterfaceTCPBuffered(initialOptions, Bounds()) {}

CSCommsInterfaceTCPBuffered::CSCommsInterfaceTCPBuffered(const Options& initialOptions, const Bounds& initialBounds)
    : CSCommsInterfaceTCP(initialOptions),
      bounds(saturated(initialBounds)),
      peerWatch(initialBounds.deadPeerSeconds),
      buffer(std::max<std::size_t>(initialBounds.readAhead, frame::kHeaderLength)) {}

CSCommsInterfaceTCPBuffered::~CSCommsInterfaceTCPBuffered() {
    const CancellationDisabled untilDestroyed;
    // Here and not in the base class: what is under way needs this class's members.
    CSCommsInterfaceTCP::close();
    waitForUsers();
}

void CSCommsInterfaceTCPBuffered::setInterrupted(bool interrupted) {
    isInterrupted = interrupted;
    if (interrupted) {
        const CSUseCount::Use use(readers);
        shutdown(socketHandle, SHUT_RDWR);  // Harmless without a socket.
    }
}

int CSCommsInterfaceTCPBuffered::connectedSocket() const {
    const int descriptor = socketHandle;
    if (descriptor == kNoSocket || descriptor == connectingHandle) {
        errno = EBADF;
        return kNoSocket;
    }
    return descriptor;
}

bool CSCommsInterfaceTCPBuffered::openConnection(unsigned int address, unsigned int port) {
    close();
    beginReading();

    const int descriptor = createSocket();
    if (descriptor == kNoSocket) {
        return false;
    }
    bool isOpened = false;
    {
        const CSUseCount::Use use(readers);
        connectingHandle = descriptor;
        socketHandle = descriptor;
        if (configureSocket(descriptor)) {
            if (!peerWatch.enableKeepAlive(descriptor)) {
                // Not fatal: the connection works, and its end is noticed, if late.
                report("Unable to set dead peer timeout options");
            }
            isOpened = connectWithin(descriptor, address, port) && !isConnectedToItself(descriptor);
            // A system that does not know the limit notices some dead peers late, as described there.
            static_cast<void>(isOpened && peerWatch.limitProbeInterval(descriptor));
        }
        connectingHandle = kNoSocket;
    }
    if (!isOpened) {
        close();
    }
    return isOpened;
}

int CSCommsInterfaceTCPBuffered::close() {
    const int result = CSCommsInterfaceTCP::close();
    // A reader that is inside releases by itself, when it finds that the connection has ended.
    if (!isTakingIn.exchange(true)) {
        const AtScopeEnd letReadersIn([this] { isTakingIn = false; });
        if (!readers.isInUse()) {
            releaseReceived();
        }
    }
    return result;
}

void CSCommsInterfaceTCPBuffered::beginReading() {
    // Counted as a reader, so that a close on another thread leaves these to this one.
    const CSUseCount::Use use(readers);
    waitForWriterToTakeIn();
    progress.reset();
    buffer.clear();
    releaseReceived();
    hasReadingFailed = false;
    silence = Clock::duration(0);
}

void CSCommsInterfaceTCPBuffered::releaseReceived() {
    std::vector<char>().swap(largeBody);
    largeBodyFilled = 0;
    backlog.release();
}

bool CSCommsInterfaceTCPBuffered::connectWithin(int descriptor, unsigned int address, unsigned int port) const {
    const auto deadline = Clock::now() + bounds.connectTimeout;
    const int flags = fcntl(descriptor, F_GETFL);
    if (flags < 0 || fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) != 0) {
        return false;
    }
    if (isGivenUp(descriptor)) {
        return false;
    }
    if (!connectSocket(descriptor, address, port)) {
        // A shutdown wakes this wait, but not one that came before there was anything to shut down.
        if (errno != EINPROGRESS || isGivenUp(descriptor) || waitUntilReady(descriptor, POLLOUT, deadline) <= 0) {
            return false;
        }
        int error = 0;
        socklen_t length = sizeof error;
        if (getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &length) != 0 || error != 0) {
            return false;
        }
    }
    return !isGivenUp(descriptor) && fcntl(descriptor, F_SETFL, flags) == 0;
}

}  // namespace com_tesk
