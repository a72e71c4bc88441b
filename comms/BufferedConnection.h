#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "comms/CSMutex.h"
#include "comms/FrameProgress.h"
#include "comms/PeerWatch.h"
#include "comms/ReadAheadBuffer.h"
#include "comms/ReceiveBacklog.h"
#include "comms/TcpConnection.h"

namespace com_tesk {

class RawMessage;

/// What the buffered transport does with its socket: whole frames in and out, each wait with a bound. One thread opens and
/// reads; any thread writes, interrupts or closes. The operations are those of `CSCommsInterfaceTCPBuffered`.
///
/// comms/BufferedConnection.cpp opens and closes, BufferedReading.cpp reads, BufferedWriting.cpp writes.
class BufferedConnection {
  public:
    /// @param connection  outlives this object.
    BufferedConnection(TcpConnection& connection, const CSCommsInterfaceTCPBuffered::Bounds& initialBounds);
    BufferedConnection(const BufferedConnection&) = delete;
    BufferedConnection& operator=(const BufferedConnection&) = delete;
    /// Ends what is under way, and waits for it.
    ~BufferedConnection();

    void setInterrupted(bool interrupted);

    /// Connects a new socket. Nothing is open before; after a failure there may be a socket to close.
    bool open(unsigned int address, unsigned int port);

    int close();
    int read(unsigned int count, RawMessage& message);
    int write(const RawMessage& message);

    /// Prepares for a new connection.
    void beginReading();

  private:
    using Clock = std::chrono::steady_clock;

    enum class ReceiveStatus { SOME, NOTHING_YET, END, FAILED };

    /// One `readMessage`: until when it may wait, known as soon as it receives.
    struct Reading {
        int descriptor = -1;
        bool hasDeadline = false;
        Clock::time_point deadline;
    };

    friend class PartAccess;

    /// The connected socket, or -1 with EBADF. For threads counted in `readers` or `writers`.
    int connectedSocket() const;

    bool connectWithin(int descriptor, unsigned int address, unsigned int port) const;

    /// Whether another thread has closed or interrupted meanwhile.
    bool isGivenUp(int descriptor) const { return isInterrupted || tcp.descriptor() != descriptor; }

    /// Brings together `count` bytes in the buffer, or in `largeBody`.
    ReceiveStatus fillBuffer(Reading& reading, std::size_t count);
    ReceiveStatus fillLargeBody(Reading& reading, std::size_t count);

    /// Receives up to `room` bytes, as soon as there are any.
    ReceiveStatus receive(Reading& reading, char* target, std::size_t size, std::size_t& arrived);
    /// Ends a connection from which nothing more can be read.
    /// @return -1, with `error` in `errno`.
    int failReading(int descriptor, int error);

    /// Drops what has been received of a large body, and what writes have taken in, and gives back the memory.
    void releaseReceived();

    /// Waits until a writer has finished taking in. For a thread counted in `readers`.
    void waitForWriterToTakeIn() const;

    /// Takes in what has arrived, for a write that waits, unless the reader is inside.
    /// @return whether anything was taken in.
    bool takeIn(int descriptor);

    /// Waits until more can be written, and takes in what arrives meanwhile.
    /// @return false when the deadline has passed (EAGAIN), the peer is gone (ETIMEDOUT) or the system cannot wait.
    bool waitUntilWritable(int descriptor, Clock::time_point deadline);

    /// Waits for bytes in the middle of a frame.
    ReceiveStatus waitInFrame(const Reading& reading);
    ReceiveStatus statusAfterInterruption() const;

    bool isInsideFrame() const { return progress.isInsideBody() || buffer.size() > 0 || largeBodyFilled > 0; }

    TcpConnection& tcp;

    // Constant after construction.

    const CSCommsInterfaceTCPBuffered::Bounds bounds;
    const PeerWatch peerWatch;

    // Any thread.

    /// The socket while it is being connected, otherwise -1: `tcp` holds it already, so that other threads can
    /// end the connect, but nothing may be written to it yet.
    std::atomic<int> connectingHandle{-1};
    std::atomic<bool> isInterrupted{false};
    /// Held while one frame is written.
    CSMutex writeMutex;
    /// Set by a thread, other than the reader, that uses what the reader owns: the backlog and the large body. It sets the
    /// flag first and checks `readers` second; a reader counts itself first and checks the flag second.
    std::atomic<bool> isTakingIn{false};

    // Opening and reading thread only, but for `isTakingIn`.

    /// Whether a read has failed on this connection: all later ones find the end of the stream.
    bool hasReadingFailed = false;
    FrameProgress progress;
    ReadAheadBuffer buffer;
    /// What has arrived of a body that is larger than the buffer: its first `largeBodyFilled` bytes.
    std::vector<char> largeBody;
    std::size_t largeBodyFilled = 0;
    ReceiveBacklog backlog;
    /// How long the reader has waited in the middle of a frame since the last byte came.
    Clock::duration silence{0};
};

}  // namespace com_tesk
