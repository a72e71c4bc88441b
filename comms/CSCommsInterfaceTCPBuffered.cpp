#include "comms/CSCommsInterfaceTCPBuffered.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <limits>

#include "comms/CSLockGuard.h"
#include "message/FrameLayout.h"
#include "message/RawMessage.h"

namespace com_tesk {

namespace {

using std::chrono::milliseconds;

constexpr int kNoSocket = -1;
constexpr int kError = -1;
constexpr int kStreamClosed = 0;
constexpr int kReceiveTimeout = -2;

/// How long one read waits at most: as long as the base class's, which is the socket's receive time-out.
constexpr milliseconds kReceiveWait{1'000};

/// A body in the making is given memory in steps of this, as it arrives, whatever its header has announced.
constexpr std::size_t kGrowth = 64U << 10U;

/// Message sizes are 32-bit numbers on every machine.
constexpr std::size_t kLargestMessage = std::numeric_limits<std::uint32_t>::max();

/// Waits until the socket is ready for `events`, or has failed, or the deadline has passed.
/// @return false for the last, and when the system cannot wait.
bool waitUntilReady(int descriptor, short events, std::chrono::steady_clock::time_point deadline) {
    constexpr std::chrono::steady_clock::duration kAtOnce{0};
    for (;;) {
        const auto left = std::max(deadline - std::chrono::steady_clock::now(), kAtOnce);
        const auto longest = std::min(std::chrono::ceil<milliseconds>(left), milliseconds(60'000));
        pollfd waiting{descriptor, events, 0};
        const int ready = poll(&waiting, 1, static_cast<int>(longest.count()));
        if (ready > 0) {
            return true;
        }
        if (ready < 0 && errno != EINTR) {
            return false;
        }
        if (left == kAtOnce) {
            return false;
        }
    }
}

}  // namespace

CSCommsInterfaceTCPBuffered::CSCommsInterfaceTCPBuffered() : CSCommsInterfaceTCPBuffered(Options()) {}

CSCommsInterfaceTCPBuffered::CSCommsInterfaceTCPBuffered(const Options& initialOptions)
    : CSCommsInterfaceTCPBuffered(initialOptions, Bounds()) {}

CSCommsInterfaceTCPBuffered::CSCommsInterfaceTCPBuffered(const Options& initialOptions, const Bounds& initialBounds)
    : CSCommsInterfaceTCP(initialOptions),
      bounds(initialBounds),
      buffer(std::max<std::size_t>(initialBounds.readAhead, frame::kHeaderLength)) {}

CSCommsInterfaceTCPBuffered::~CSCommsInterfaceTCPBuffered() {
    // Here and not in the base class: what is under way needs this class's members.
    CSCommsInterfaceTCP::close();
    waitUntilUnused();
}

void CSCommsInterfaceTCPBuffered::setInterrupted(bool interrupted) {
    isInterrupted = interrupted;
    if (interrupted) {
        const CSUseCount::Use use(readers);
        shutdown(socketHandle, SHUT_RDWR);  // Without a socket it fails, and nobody minds.
    }
}

// Opening.

bool CSCommsInterfaceTCPBuffered::openConnection(unsigned int address, unsigned int port) {
    close();
    progress.reset();
    buffer.clear();
    std::vector<char>().swap(largeBody);
    largeBodyFilled = 0;
    silence = Clock::duration(0);

    const int descriptor = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (descriptor < 0) {
        report("Unable to create socket");
        return false;
    }
    bool isOpened = false;
    {
        const CSUseCount::Use use(readers);
        connectingHandle = descriptor;
        socketHandle = descriptor;
        if (configureSocket(descriptor)) {
            askIdlePeer(descriptor);
            isOpened = connectWithin(descriptor, address, port);
        }
        connectingHandle = kNoSocket;
    }
    if (!isOpened) {
        close();
    }
    return isOpened;
}

void CSCommsInterfaceTCPBuffered::askIdlePeer(int descriptor) const {
    if (bounds.deadPeerSeconds == 0) {
        return;
    }
    // On an idle connection the system asks after a quarter of the time, and gives up when three questions are not
    // answered. (Its user time-out would notice a peer that is gone with bytes under way, too; but it also gives up one
    // that is merely slow to read. `isPeerGone` tells the two apart.)
    constexpr unsigned int kQuestions = 3;
    const unsigned int interval = std::max(bounds.deadPeerSeconds / (kQuestions + 1), 1U);
    constexpr int kOn = 1;
    if (setsockopt(descriptor, SOL_SOCKET, SO_KEEPALIVE, &kOn, sizeof kOn) != 0 ||
        setsockopt(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, &interval, sizeof interval) != 0 ||
        setsockopt(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, &interval, sizeof interval) != 0 ||
        setsockopt(descriptor, IPPROTO_TCP, TCP_KEEPCNT, &kQuestions, sizeof kQuestions) != 0) {
        // Not fatal: the connection works, and its end is noticed, if late.
        report("Unable to set dead peer timeout options");
    }
}

bool CSCommsInterfaceTCPBuffered::isPeerGone(int descriptor) const {
    if (bounds.deadPeerSeconds == 0) {
        return false;
    }
    tcp_info info{};
    socklen_t length = sizeof info;
    if (getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &length) != 0) {
        return false;
    }
    // A peer that is alive acknowledges what arrives, also when it does not read. One repetition may be a lost packet.
    const bool isRepeating = info.tcpi_retransmits > 1 || info.tcpi_probes > 1;
    return isRepeating && info.tcpi_last_ack_recv / 1'000 >= bounds.deadPeerSeconds - 1;
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
        if (errno != EINPROGRESS || isGivenUp(descriptor) || !waitUntilReady(descriptor, POLLOUT, deadline)) {
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

// Reading.

int CSCommsInterfaceTCPBuffered::connectedSocket() const {
    const int descriptor = socketHandle;
    if (descriptor == kNoSocket || descriptor == connectingHandle) {
        errno = EBADF;
        return kNoSocket;
    }
    return descriptor;
}

int CSCommsInterfaceTCPBuffered::readMessage(unsigned int count, RawMessage& message) {
    const std::size_t largest = std::min(kLargestMessage, message.max_size());
    const bool fitsFrame = count <= frame::kHeaderLength ||
                           count <= bounds.largestFrame - std::min(bounds.largestFrame, frame::kHeaderLength);
    if (!fitsFrame || message.size() > largest || count > largest - message.size()) {
        errno = EMSGSIZE;
        return kError;
    }
    const CSUseCount::Use use(readers);
    Reading reading;
    reading.descriptor = connectedSocket();
    if (reading.descriptor == kNoSocket) {
        return kError;
    }

    const bool isLarge = largeBodyFilled > 0 || count > buffer.capacity();
    switch (isInterrupted ? arrivalAfterInterruption()
            : isLarge     ? gatherLargeBody(reading, count)
                          : gatherAhead(reading, count)) {
        case Arrival::SOME:
            break;
        case Arrival::NOTHING_YET:
            if (isPeerGone(reading.descriptor)) {
                errno = ETIMEDOUT;
                return kError;
            }
            errno = EAGAIN;
            return kReceiveTimeout;
        case Arrival::END:
            return kStreamClosed;
        case Arrival::FAILED:
            return kError;
    }
    if (!isLarge) {
        message.insert(message.end(), buffer.data(), buffer.data() + count);
        buffer.consume(count);
    } else if (message.empty() && largeBody.size() == count) {
        message.swap(largeBody);
        largeBodyFilled = 0;
    } else {
        message.insert(message.end(), largeBody.data(), largeBody.data() + count);
        largeBody.erase(largeBody.begin(), largeBody.begin() + static_cast<std::ptrdiff_t>(count));
        largeBodyFilled -= count;
    }
    progress.delivered(message, count);
    return static_cast<int>(count);
}

CSCommsInterfaceTCPBuffered::Arrival CSCommsInterfaceTCPBuffered::gatherAhead(Reading& reading, std::size_t count) {
    while (buffer.size() < count) {
        std::size_t arrived = 0;
        const Arrival arrival = receive(reading, buffer.room(), buffer.roomSize(), arrived);
        if (arrival != Arrival::SOME) {
            return arrival;
        }
        buffer.filled(arrived);
    }
    return Arrival::SOME;
}

CSCommsInterfaceTCPBuffered::Arrival CSCommsInterfaceTCPBuffered::gatherLargeBody(Reading& reading, std::size_t count) {
    if (largeBodyFilled == 0) {
        largeBody.clear();
        largeBody.reserve(count);
        largeBodyFilled = std::min(buffer.size(), count);
        largeBody.insert(largeBody.end(), buffer.data(), buffer.data() + largeBodyFilled);
        buffer.consume(largeBodyFilled);
    }
    while (largeBodyFilled < count) {
        if (largeBodyFilled == largeBody.size()) {
            largeBody.resize(std::min(count, largeBodyFilled + kGrowth));
        }
        std::size_t arrived = 0;
        const Arrival arrival =
            receive(reading, largeBody.data() + largeBodyFilled, largeBody.size() - largeBodyFilled, arrived);
        if (arrival != Arrival::SOME) {
            return arrival;
        }
        largeBodyFilled += arrived;
    }
    return Arrival::SOME;
}

CSCommsInterfaceTCPBuffered::Arrival CSCommsInterfaceTCPBuffered::receive(Reading& reading, char* target,
                                                                          std::size_t room, std::size_t& arrived) {
    if (!reading.hasDeadline) {
        reading.hasDeadline = true;
        reading.deadline = Clock::now() + kReceiveWait;
    }
    for (;;) {
        // What has arrived in the socket can still be received after a shutdown, and a host may send without end.
        if (isGivenUp(reading.descriptor)) {
            return arrivalAfterInterruption();
        }
        // Between frames one blocking call does; within, the wait counts as silence.
        const bool isBetweenFrames = !isInsideFrame();
        const ssize_t received = recv(reading.descriptor, target, room, isBetweenFrames ? 0 : MSG_DONTWAIT);
        if (received > 0) {
            silence = Clock::duration(0);
            arrived = static_cast<std::size_t>(received);
            return Arrival::SOME;
        }
        if (isGivenUp(reading.descriptor)) {
            return arrivalAfterInterruption();
        }
        if (received == 0) {
            return Arrival::END;
        }
        if (errno != EAGAIN && errno != EINTR) {
            return Arrival::FAILED;
        }
        if (isBetweenFrames) {
            return Arrival::NOTHING_YET;
        }
        const Arrival arrival = waitInFrame(reading);
        if (arrival != Arrival::SOME) {
            return arrival;
        }
    }
}

CSCommsInterfaceTCPBuffered::Arrival CSCommsInterfaceTCPBuffered::waitInFrame(const Reading& reading) {
    const Clock::time_point now = Clock::now();
    if (now >= reading.deadline) {
        return Arrival::NOTHING_YET;
    }
    const Clock::time_point tooSilent = now + (bounds.silenceInFrame - silence);
    const bool isReady = waitUntilReady(reading.descriptor, POLLIN, std::min(reading.deadline, tooSilent));
    silence += Clock::now() - now;
    if (isReady) {
        return Arrival::SOME;
    }
    if (silence >= bounds.silenceInFrame) {
        errno = ETIMEDOUT;
        return Arrival::FAILED;
    }
    return Arrival::NOTHING_YET;
}

CSCommsInterfaceTCPBuffered::Arrival CSCommsInterfaceTCPBuffered::arrivalAfterInterruption() const {
    if (!isInterrupted) {
        errno = EBADF;
        return Arrival::FAILED;
    }
    if (progress.isInsideBody()) {
        errno = ECANCELED;
        return Arrival::FAILED;
    }
    // The reader may ask again at once until it learns why; it must not spin meanwhile.
    constexpr timespec kPause{0, 10'000'000};
    nanosleep(&kPause, nullptr);
    return Arrival::NOTHING_YET;
}

// Writing.

int CSCommsInterfaceTCPBuffered::writeMessage(const RawMessage& message) {
    const CSUseCount::Use use(writers);
    const CSLockGuard oneFrameAtATime(writeMutex);
    const int descriptor = connectedSocket();
    if (descriptor == kNoSocket) {
        return kError;
    }
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
        if (sent < 0 && errno == EAGAIN) {
            if (!hasDeadline) {
                hasDeadline = true;
                deadline = Clock::now() + bounds.writeTimeout;
            }
            if (waitUntilReady(descriptor, POLLOUT, deadline)) {
                continue;
            }
            errno = EAGAIN;
        } else if (sent < 0 && errno == EINTR) {
            continue;
        }
        // What may have left is the beginning of a frame; nothing can follow it.
        const int error = errno;
        shutdown(descriptor, SHUT_RDWR);
        errno = error;
        return kError;
    }
    return static_cast<int>(message.size());
}

}  // namespace com_tesk
