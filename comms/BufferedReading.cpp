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

/// The longest wait of one read. The base class's is the same: the socket's receive time-out.
constexpr std::chrono::milliseconds kReceiveWait{1'000};

/// The memory of a large body grows in steps of this as bytes arrive, whatever length its header announces.
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
        // The closing thread leaves this to a reader in progress.
        releaseReceived();
        return kError;
    }
    if (hasReadingFailed) {
        return kStreamClosed;
    }

    const bool isLarge = largeBodyFilled > 0 || count > buffer.capacity();
    switch (isInterrupted ? statusAfterInterruption()
            : isLarge     ? fillLargeBody(reading, count)
                          : fillBuffer(reading, count)) {
        case ReceiveStatus::SOME:
            break;
        case ReceiveStatus::NOTHING_YET:
            if (peerWatch.isGone(reading.descriptor)) {
                return failReading(reading.descriptor, ETIMEDOUT);
            }
            errno = EAGAIN;
            return kReceiveTimeout;
        case ReceiveStatus::END:
            releaseReceived();
            return kStreamClosed;
        case ReceiveStatus::FAILED:
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
    // The received part of a frame is dropped, so no later frame on this connection can be read.
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

BufferedConnection::ReceiveStatus BufferedConnection::fillBuffer(Reading& reading, std::size_t count) {
    while (buffer.size() < count) {
        std::size_t arrived = 0;
        const ReceiveStatus status = receive(reading, buffer.freeSpace(), buffer.freeSize(), arrived);
        if (status != ReceiveStatus::SOME) {
            return status;
        }
        buffer.filled(arrived);
    }
    return ReceiveStatus::SOME;
}

BufferedConnection::ReceiveStatus BufferedConnection::fillLargeBody(Reading& reading, std::size_t count) {
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
        const ReceiveStatus status =
            receive(reading, largeBody.data() + largeBodyFilled, largeBody.size() - largeBodyFilled, arrived);
        if (status != ReceiveStatus::SOME) {
            return status;
        }
        largeBodyFilled += arrived;
    }
    return ReceiveStatus::SOME;
}

BufferedConnection::ReceiveStatus BufferedConnection::receive(Reading& reading, char* target, std::size_t size,
                                                              std::size_t& arrived) {
    if (!reading.hasDeadline) {
        reading.hasDeadline = true;
        reading.deadline = Clock::now() + kReceiveWait;
    }
    for (;;) {
        // Bytes in the socket can still be received after a shutdown, and a host may send without end. So test here.
        if (isGivenUp(reading.descriptor)) {
            return statusAfterInterruption();
        }
        if (!backlog.isEmpty()) {
            silence = Clock::duration(0);
            arrived = backlog.deliver(target, size);
            return ReceiveStatus::SOME;
        }
        // Between frames, one blocking call is enough. Inside a frame, the wait counts as silence.
        const bool isBetweenFrames = !isInsideFrame();
        const ssize_t received = recv(reading.descriptor, target, size, isBetweenFrames ? 0 : MSG_DONTWAIT);
        if (received > 0) {
            silence = Clock::duration(0);
            arrived = static_cast<std::size_t>(received);
            return ReceiveStatus::SOME;
        }
        if (isGivenUp(reading.descriptor)) {
            return statusAfterInterruption();
        }
        if (received == 0) {
            return ReceiveStatus::END;
        }
        if (errno != EAGAIN && errno != EINTR) {
            return ReceiveStatus::FAILED;
        }
        if (isBetweenFrames) {
            return ReceiveStatus::NOTHING_YET;
        }
        const ReceiveStatus status = waitInFrame(reading);
        if (status != ReceiveStatus::SOME) {
            return status;
        }
    }
}

BufferedConnection::ReceiveStatus BufferedConnection::waitInFrame(const Reading& reading) {
    const Clock::time_point now = Clock::now();
    if (now >= reading.deadline) {
        return ReceiveStatus::NOTHING_YET;
    }
    const Clock::time_point tooSilent = now + (bounds.silenceInFrame - silence);
    const bool isReady = waitUntilReady(reading.descriptor, POLLIN, std::min(reading.deadline, tooSilent)) > 0;
    silence += Clock::now() - now;
    if (isReady) {
        return ReceiveStatus::SOME;
    }
    if (silence >= bounds.silenceInFrame) {
        errno = ETIMEDOUT;
        return ReceiveStatus::FAILED;
    }
    return ReceiveStatus::NOTHING_YET;
}

BufferedConnection::ReceiveStatus BufferedConnection::statusAfterInterruption() const {
    if (!isInterrupted) {
        errno = EBADF;
        return ReceiveStatus::FAILED;
    }
    if (progress.isInsideBody()) {
        errno = ECANCELED;
        return ReceiveStatus::FAILED;
    }
    // Pause: the caller may read again at once until it is notified of the reason, and must not spin meanwhile.
    constexpr timespec kPause{0, 10'000'000};
    nanosleep(&kPause, nullptr);
    return ReceiveStatus::NOTHING_YET;
}

}  // namespace com_tesk
