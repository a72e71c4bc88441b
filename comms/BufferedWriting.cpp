// The writing side of the buffered transport.

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "comms/AtScopeEnd.h"
#include "comms/BufferedConnection.h"
#include "comms/CSLockGuard.h"
#include "comms/SocketWait.h"
#include "message/FrameLayout.h"
#include "message/RawMessage.h"

namespace com_tesk {

namespace {

using std::chrono::milliseconds;

constexpr int kNoSocket = TcpConnection::kNoSocket;
constexpr int kError = -1;

/// The interval at which a write that waits checks whether the peer is gone.
constexpr milliseconds kPeerCheckInterval{1'000};

/// The interval at which a write that waits tries again to receive, when a reader was inside.
constexpr milliseconds kTakeInInterval{5};

}  // namespace

int BufferedConnection::write(const RawMessage& message) {
    const CSUseCount::Use use(tcp.writers());
    const CSLockGuard oneFrameAtATime(writeMutex);
    const int descriptor = connectedSocket();
    if (descriptor == kNoSocket) {
        return kError;
    }
    bool isWhole = false;
    // Also after a cancellation. The beginning of a frame may have been sent, and no frame can follow it.
    const AtScopeEnd endUnlessWhole([&isWhole, descriptor] {
        if (!isWhole) {
            const int error = errno;
            shutdown(descriptor, SHUT_RDWR);
            errno = error;
        }
    });
    bool hasDeadline = false;
    Clock::time_point deadline;
    std::size_t written = 0;
    while (written < message.size()) {
        const ssize_t sent =
            send(descriptor, message.data() + written, message.size() - written, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent > 0) {
            written += static_cast<std::size_t>(sent);
            continue;
        }
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent == 0 || errno != EAGAIN) {
            return kError;
        }
        if (!hasDeadline) {
            hasDeadline = true;
            deadline = Clock::now() + bounds.writeTimeout;
        }
        if (!waitUntilWritable(descriptor, deadline)) {
            return kError;
        }
    }
    isWhole = true;
    return static_cast<int>(message.size());
}

bool BufferedConnection::waitUntilWritable(int descriptor, Clock::time_point deadline) {
    Clock::time_point peerCheck = Clock::now() + kPeerCheckInterval;
    bool isInputAwaited = true;
    for (;;) {
        const Clock::time_point now = Clock::now();
        const Clock::time_point slice = isInputAwaited ? peerCheck : now + kTakeInInterval;
        const short events = isInputAwaited ? POLLIN | POLLOUT : POLLOUT;
        const short ready = waitUntilReady(descriptor, events, std::min(slice, deadline));
        if (ready < 0) {
            return false;
        }
        if ((ready & ~POLLIN) != 0) {
            return true;  // Also after an error: the next send reports it.
        }
        // The peer may wait for this side to read, while the reader waits for a lock that this thread holds.
        isInputAwaited = ready == 0 || takeIn(descriptor);
        if (now >= deadline) {
            errno = EAGAIN;
            return false;
        }
        if (now >= peerCheck) {
            peerCheck = now + kPeerCheckInterval;
            if (peerWatch.isGone(descriptor)) {
                errno = ETIMEDOUT;
                return false;
            }
        }
    }
}

bool BufferedConnection::takeIn(int descriptor) {
    const std::size_t limit = std::max(bounds.largestFrame, frame::kHeaderLength);
    if (isTakingIn.exchange(true)) {
        return false;
    }
    const AtScopeEnd admitReaders([this] { isTakingIn = false; });
    return !tcp.readers().isInUse() && backlog.takeIn(descriptor, limit);
}

}  // namespace com_tesk
