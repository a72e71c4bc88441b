// The reading side of the buffered transport.

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <limits>

#include "comms/BufferedConnection.h"
#include "comms/SocketWait.h"
#include "message/FrameLayout.h"
#include "message/RawMessage.h"

namespace com_tesk {

namespace {

constexpr int kNoSocket = TcpConnection::kNoSocket;
constexpr int kError = -1;
constexpr int kStreamClosed = 0;
constexpr int kReceiveTimeout = -2;

/// How long one read waits at most: as long as the base class's, which is the socket's receive time-out.
constexpr std::chrono::milliseconds kReceiveWait{1'000};

/// A body in the making is given memory in steps of this, as it arrives, whatever its header has announced.
constexpr std::size_t kGrowth = 64U << 10U;

/// Message sizes are 32-bit numbers on every machine.
constexpr std::size_t kLargestMessage = std::numeric_limits<std::uint32_t>::max();

}  // namespace

int BufferedConnection::read(unsigned int count, RawMessage& message) {
    const std::size_t largest = std::min(kLargestMessage, message.max_size());
    const bool fitsFrame = count <= frame::kHeaderLength ||
                           count <= bounds.largestFrame - std::min(bounds.largestFrame, frame::kHeaderLength);
    if (!fitsFrame || message.size() > largest || count > largest - message.size()) {
        errno = EMSGSIZE;
        return kError;
    }
    const CSUseCount::Use use(tcp.readers());
    waitForWriterToTakeIn();
    Reading reading;
    reading.descriptor = connectedSocket();
    if (reading.descriptor == kNoSocket) {
        // The thread that closed leaves this to a reader that is inside.
        releaseReceived();
        return kError;
    }
    if (hasReadingFailed) {
        return kStreamClosed;
    }

    const bool isLarge = largeBodyFilled > 0 || count > buffer.capacity();
    switch (isInterrupted ? arrivalAfterInterruption()
            : isLarge     ? gatherLargeBody(reading, count)
                          : gatherAhead(reading, count)) {
        case Arrival::SOME:
            break;
        case Arrival::NOTHING_YET:
            if (peerWatch.isGone(reading.descriptor)) {
                return failReading(reading.descriptor, ETIMEDOUT);
            }
            errno = EAGAIN;
            return kReceiveTimeout;
        case Arrival::END:
            releaseReceived();
            return kStreamClosed;
        case Arrival::FAILED:
            return failReading(reading.descriptor, errno);
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

int BufferedConnection::failReading(int descriptor, int error) {
    // What has arrived of a frame is dropped, so nothing that follows on this connection can be read.
    hasReadingFailed = true;
    releaseReceived();
    shutdown(descriptor, SHUT_RDWR);
    errno = error;
    return kError;
}

void BufferedConnection::waitForWriterToTakeIn() const {
    constexpr timespec kPollInterval{0, 50'000};
    while (isTakingIn) {
        nanosleep(&kPollInterval, nullptr);
    }
}

BufferedConnection::Arrival BufferedConnection::gatherAhead(Reading& reading, std::size_t count) {
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

BufferedConnection::Arrival BufferedConnection::gatherLargeBody(Reading& reading, std::size_t count) {
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

BufferedConnection::Arrival BufferedConnection::receive(Reading& reading, char* target, std::size_t room,
                                                        std::size_t& arrived) {
    if (!reading.hasDeadline) {
        reading.hasDeadline = true;
        reading.deadline = Clock::now() + kReceiveWait;
    }
    for (;;) {
        // What has arrived in the socket can still be received after a shutdown, and a host may send without end.
        if (isGivenUp(reading.descriptor)) {
            return arrivalAfterInterruption();
        }
        if (!backlog.isEmpty()) {
            silence = Clock::duration(0);
            arrived = backlog.deliver(target, room);
            return Arrival::SOME;
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

BufferedConnection::Arrival BufferedConnection::waitInFrame(const Reading& reading) {
    const Clock::time_point now = Clock::now();
    if (now >= reading.deadline) {
        return Arrival::NOTHING_YET;
    }
    const Clock::time_point tooSilent = now + (bounds.silenceInFrame - silence);
    const bool isReady = waitUntilReady(reading.descriptor, POLLIN, std::min(reading.deadline, tooSilent)) > 0;
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

BufferedConnection::Arrival BufferedConnection::arrivalAfterInterruption() const {
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

}  // namespace com_tesk
