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

/// The socket operations of the buffered transport: whole frames in and out, each wait with a bound. One thread opens
/// and reads; any thread writes, interrupts or closes. The operations are those of `CSCommsInterfaceTCPBuffered`.
///
/// comms/BufferedConnection.cpp opens and closes. BufferedReading.cpp reads. BufferedWriting.cpp writes.
class BufferedConnection {
  public:
    /// @param connection  outlives this object.
    BufferedConnection(TcpConnection& connection, const CSCommsInterfaceTCPBuffered::Bounds& initialBounds);
    BufferedConnection(const BufferedConnection&) = delete;
    BufferedConnection& operator=(const BufferedConnection&) = delete;
    /// Ends operations in progress and waits for them.
    ~BufferedConnection();

    void setInterrupted(bool interrupted);

    /// Connects a new socket. No socket may be open before. After a failure there may be a socket to close.
    bool open(unsigned int address, unsigned int port);

    int close();
    int read(unsigned int count, RawMessage& message);
    int write(const RawMessage& message);

    /// Prepares for a new connection.
    void beginReading();

  private:
    using Clock = std::chrono::steady_clock;

    enum class ReceiveStatus { SOME, NOTHING_YET, END, FAILED };

    /// One `readMessage` call. Its deadline is set when it first receives.
    struct Reading {
        int descriptor = -1;
        bool hasDeadline = false;
        Clock::time_point deadline;
    };

    friend class PartAccess;

    /// Returns the connected socket, or -1 with EBADF. For threads counted in `readers` or `writers`.
    int connectedSocket() const;

    bool connectWithin(int descriptor, unsigned int address, unsigned int port) const;

    /// True when another thread has closed or interrupted the connection.
    bool isGivenUp(int descriptor) const { return isInterrupted || tcp.descriptor() != descriptor; }

    /// Receives until there are `count` bytes in the buffer, or in `largeBody`.
    ReceiveStatus fillBuffer(Reading& reading, std::size_t count);
    ReceiveStatus fillLargeBody(Reading& reading, std::size_t count);

    /// Waits for bytes and receives up to `size` of them.
    ReceiveStatus receive(Reading& reading, char* target, std::size_t size, std::size_t& arrived);
    /// Ends a connection from which nothing more can be read.
    /// @return -1, with `error` in `errno`.
    int failReading(int descriptor, int error);

    /// Drops the received part of a large body and the bytes that writes have received, and frees the memory.
    void releaseReceived();

    /// Waits until no other thread uses the reader's members. For a thread counted in `readers`.
    void waitForWriterToTakeIn() const;

    /// Receives bytes into the backlog, for a write that waits, unless a reader is inside.
    /// @return true when any bytes were received.
    bool takeIn(int descriptor);

    /// Waits until more can be written, and receives the bytes that arrive meanwhile.
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

    /// The socket while it is being connected, otherwise -1. `tcp` holds the socket already, so that other threads
    /// can end the connect. Nothing may be written to it yet.
    std::atomic<int> connectingHandle{-1};
    std::atomic<bool> isInterrupted{false};
    /// Held while one frame is written.
    CSMutex writeMutex;
    /// Set by a thread, other than the reader, that uses the reader's members: the backlog and the large body. That
    /// thread sets the flag, then checks `readers`. A reader increments its count, then checks the flag.
    std::atomic<bool> isTakingIn{false};

    // Opening and reading thread only, except as `isTakingIn` says.

    /// True when a read has failed on this connection: all later ones find the end of the stream.
    bool hasReadingFailed = false;
    FrameProgress progress;
    ReadAheadBuffer buffer;
    /// The received part of a body that is larger than the buffer: its first `largeBodyFilled` bytes.
    std::vector<char> largeBody;
    std::size_t largeBodyFilled = 0;
    ReceiveBacklog backlog;
    /// Time that the reader has waited in the middle of a frame since the last byte arrived.
    Clock::duration silence{0};
};

}  // namespace com_tesk
