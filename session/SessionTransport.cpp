#include "session/SessionTransport.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "comms/CSUseCount.h"
#include "comms/TcpConnection.h"
#include "message/FrameLayout.h"
#include "message/RawMessage.h"

namespace com_tesk::session {

namespace {

constexpr int kStreamClosed = 0;
constexpr int kReceiveTimeout = -2;
constexpr std::uint32_t kErrorBits = 24;
constexpr std::uint32_t kErrorMask = (1U << kErrorBits) - 1;

Cause causeOfOpening(int error) {
    switch (error) {
        case ECONNREFUSED:
            return Cause::REFUSED;
        case EMFILE:
        case ENFILE:
        case ENOBUFS:
        case ENOMEM:
        case EACCES:
        case EPERM:
        case EINVAL:
            return Cause::FAILED;
        default:
            return Cause::UNREACHABLE;
    }
}

}  // namespace

bool SessionTransport::openConnection(unsigned int address, unsigned int port) {
    CSCommsInterfaceTCP::Options quiet = getOptions();
    quiet.quiet = true;  // The session reports failures itself.
    setOptions(quiet);
    bodyLeft = 0;
    wasAcknowledgedAtClose = true;
    const bool isOpen = CSCommsInterfaceTCPBuffered::openConnection(address, port);
    if (!isOpen) {
        const int error = errno;
        noteFailure(causeOfOpening(error), error);
    }
    return isOpen;
}

int SessionTransport::readMessage(unsigned int count, RawMessage& message) {
    const int result = CSCommsInterfaceTCPBuffered::readMessage(count, message);
    if (result <= 0) {
        if (result != kReceiveTimeout) {
            const int error = errno;
            noteReadFailure(result, error);
            errno = error;
        }
        return result;
    }
    counts.bytesIn.fetch_add(static_cast<unsigned int>(result), std::memory_order_relaxed);
    if (bodyLeft != 0) {
        bodyLeft -= std::min(bodyLeft, static_cast<std::uint32_t>(result));
    } else if (!isHeaderOfHost(message, count)) {
        noteFailure(Cause::NOT_A_HOST, 0);  // The engine refuses the header, too, and ends the connection.
        return result;
    }
    if (bodyLeft == 0) {
        counts.framesIn.fetch_add(1, std::memory_order_relaxed);
        counts.lastReceived.store(Clock::now().time_since_epoch().count(), std::memory_order_relaxed);
    }
    return result;
}

bool SessionTransport::isHeaderOfHost(const RawMessage& message, unsigned int count) {
    if (count != frame::kHeaderLength || message.size() != count ||
        message.getDoubleWord(frame::kHeaderLengthOffset) != frame::kHeaderLength) {
        return false;
    }
    const std::uint32_t length = message.getDoubleWord(frame::kFrameLengthOffset);
    if (length <= frame::kHeaderLength) {
        return false;
    }
    bodyLeft = length - frame::kHeaderLength;
    return true;
}

void SessionTransport::noteReadFailure(int result, int error) {
    if (result == kStreamClosed) {
        noteFailure(Cause::CLOSED, 0);
        return;
    }
    switch (error) {
        case ECANCELED:
        case EBADF:
            noteFailure(Cause::STOPPED_BY_US, 0);
            break;
        case EMSGSIZE:
            noteFailure(Cause::NOT_A_HOST, error);
            break;
        case ETIMEDOUT:
            noteFailure(bodyLeft != 0 ? Cause::SILENT : Cause::GONE, error);
            break;
        case ENOMEM:
        case ENOBUFS:
            noteFailure(Cause::FAILED, error);
            break;
        case EHOSTUNREACH:
        case ENETUNREACH:
        case ENETDOWN:
            noteFailure(Cause::GONE, error);
            break;
        default:
            noteFailure(Cause::RESET, error);
            break;
    }
}

int SessionTransport::writeMessage(const RawMessage& message) {
    counts.framesOut.fetch_add(1, std::memory_order_relaxed);
    progress = Clock::now();
    const std::size_t sent = sendBytes(message.data(), message.size());
    rest.assign(message.begin() + static_cast<std::ptrdiff_t>(sent), message.end());
    return static_cast<int>(message.size());
}

bool SessionTransport::sendRest() {
    if (!rest.empty()) {
        const std::size_t sent = sendBytes(rest.data(), rest.size());
        rest.erase(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(sent));
    }
    return rest.empty();
}

std::size_t SessionTransport::sendBytes(const char* bytes, std::size_t count) {
    const CSUseCount::Use use(connection().writers());
    const int descriptor = connection().descriptor();
    std::size_t done = 0;
    while (done < count) {
        const ssize_t sent = ::send(descriptor, bytes + done, count - done, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent > 0) {
            done += static_cast<std::size_t>(sent);
            counts.bytesOut.fetch_add(static_cast<std::uint64_t>(sent), std::memory_order_relaxed);
            progress = Clock::now();
        } else if (sent < 0 && errno == EAGAIN) {
            return done;
        } else if (sent == 0 || errno != EINTR) {
            // The reader finds the end of the stream, and the engine ends the connection there.
            noteFailure(errno == EBADF ? Cause::STOPPED_BY_US : Cause::RESET, errno);
            shutdown(descriptor, SHUT_RDWR);
            return count;
        }
    }
    return done;
}

void SessionTransport::dropRest() {
    rest.clear();
}

void SessionTransport::endSending() {
    const CSUseCount::Use use(connection().writers());
    shutdown(connection().descriptor(), SHUT_WR);
}

void SessionTransport::wait(int wakeDescriptor, bool isSpaceAwaited, Clock::time_point deadline) {
    pollfd waiting[] = {{wakeDescriptor, POLLIN, 0}, {TcpConnection::kNoSocket, POLLOUT, 0}};
    const Clock::duration left = std::max(deadline - Clock::now(), Clock::duration(0));
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    constexpr std::chrono::seconds kMaxWait{3'600};
    timespec timeout{};
    timeout.tv_sec = static_cast<time_t>(std::min(seconds, kMaxWait).count());
    timeout.tv_nsec = static_cast<long>(std::chrono::nanoseconds(left - seconds).count());
    if (isSpaceAwaited) {
        // Closing waits for the threads that are counted here, and wakes this wait.
        const CSUseCount::Use use(connection().writers());
        waiting[1].fd = connection().descriptor();
        if (waiting[1].fd != TcpConnection::kNoSocket) {
            ppoll(waiting, 2, &timeout, nullptr);
            return;
        }
    }
    ppoll(waiting, 1, &timeout, nullptr);
}

bool SessionTransport::hasUnacknowledged() {
    int bytes = 0;
    return ioctl(connection().descriptor(), SIOCOUTQ, &bytes) == 0 && bytes != 0;
}

bool SessionTransport::isAcknowledged() {
    const CSUseCount::Use use(connection().writers());
    return connection().descriptor() == TcpConnection::kNoSocket ? wasAcknowledgedAtClose.load() : !hasUnacknowledged();
}

int SessionTransport::close() {
    {
        const CSUseCount::Use use(connection().writers());
        if (connection().descriptor() != TcpConnection::kNoSocket) {
            wasAcknowledgedAtClose = !hasUnacknowledged();
        }
    }
    return CSCommsInterfaceTCPBuffered::close();
}

void SessionTransport::noteFailure(Cause cause, int error) {
    std::uint32_t none = 0;
    firstFailure.compare_exchange_strong(
        none, static_cast<std::uint32_t>(cause) << kErrorBits | (static_cast<std::uint32_t>(error) & kErrorMask));
}

void SessionTransport::forgetFailure() {
    firstFailure = 0;
}

SessionTransport::Failure SessionTransport::failure() const {
    const std::uint32_t both = firstFailure;
    return {static_cast<Cause>(both >> kErrorBits), static_cast<int>(both & kErrorMask)};
}

}  // namespace com_tesk::session
