#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "comms/CSCommsInterfaceTCP.h"
#include "comms/CSMutex.h"
#include "comms/FrameProgress.h"
#include "comms/PeerWatch.h"
#include "comms/ReadAheadBuffer.h"
#include "comms/ReceiveBacklog.h"
#include "message/Export.h"

namespace com_tesk {

/// The transport for production: whole frames, bounded waits, and far fewer system calls than its base class. Give one
/// to `CSClient::changeCommsInterface` before `open`.
///
/// Where it differs from its base class:
///   - A read delivers exactly what was asked for, or nothing. Bodies arrive as they were sent, however the network has
///     split them.
///   - It reads ahead: a stream of small frames costs a small fraction of a system call each.
///   - A frame is written whole or the connection ends, and frames of concurrent writers never interleave.
///   - Every wait has a bound, and so has the size of a frame. A peer that is gone is noticed.
///   - A write that waits for room takes in what arrives meanwhile, up to the largest frame, so that a peer that answers
///     before it reads on can go on.
///   - Closing from another thread, or `setInterrupted`, ends a read, a write or a connect under way at once.
///   - Writing never raises SIGPIPE, and the process's signal settings stay as they are.
///
/// Threads: as the base class. One thread opens and reads; any thread writes, closes or interrupts at any time.
class CSCLIENT_EXPORT CSCommsInterfaceTCPBuffered : public CSCommsInterfaceTCP {
  public:
    /// Every bound on time and memory. Constant after construction. A negative time counts as zero; a time of more than a
    /// century, `milliseconds::max()` too, counts as a century.
    struct Bounds {
        /// Bytes of the largest frame that is accepted, its header included. What announces more is no host: 16 MiB
        /// hold more than a million values. It is a read error before anything is allocated.
        std::uint32_t largestFrame = 16U << 20U;

        /// How long the host may be silent in the middle of a frame before that is a read error. Long enough for a lost
        /// packet to be sent again several times, short enough to be back soon. Time that the reader spends elsewhere
        /// does not count.
        std::chrono::milliseconds silenceInFrame{5'000};

        /// How long connecting may take. Hosts accept within milliseconds; this is for addresses that swallow packets.
        std::chrono::milliseconds connectTimeout{5'000};

        /// How long the rest of a frame that does not fit the send buffer may take to leave. The base class's time.
        std::chrono::milliseconds writeTimeout{30'000};

        /// Seconds within which a peer that has gone without a word is noticed, on an idle connection as well as on one
        /// with bytes under way, while a thread reads or a write waits; one that is merely slow is not given up. At
        /// least 4; 0 leaves it to the system, which takes hours. An idle connection costs a packet and its answer
        /// every quarter of it. Before Linux 6.15, a peer that had stopped reading before it was gone is noticed late:
        /// in up to about three times the time for which it had not read.
        unsigned int deadPeerSeconds = 9;

        /// Bytes read at once, ahead of what is asked for. 16 KiB hold hundreds of small frames, or one update of a
        /// thousand values; larger bodies go past it, straight into the message.
        std::size_t readAhead = 16U << 10U;
    };

    /// With the default options and bounds.
    CSCommsInterfaceTCPBuffered();
    /// With the default bounds.
    explicit CSCommsInterfaceTCPBuffered(const Options& options);
    /// Copies both. A read-ahead of less than a frame header counts as one of that size.
    CSCommsInterfaceTCPBuffered(const Options& options, const Bounds& bounds);
    /// As the base class: ends reads and writes under way and waits for them.
    ~CSCommsInterfaceTCPBuffered() override;

    /// Appends exactly `count` bytes to `message`, or nothing. Blocks for at most one second.
    /// @return `count`; -2 with EAGAIN when a second has passed, or a signal has come between frames, and the bytes are
    ///         not all there: what has arrived is kept for the next call; 0 at the end of the stream; -1 with `errno`
    ///         on an error: EMSGSIZE for more than a frame may hold, ETIMEDOUT after too long a silence in the middle
    ///         of a frame or when the peer is gone, ECANCELED when interrupted there, EBADF without a connection.
    ///         `message` is unchanged unless the result is `count`.
    /// @throw std::bad_alloc  `message` is unchanged, and nothing that has arrived is lost.
    int readMessage(unsigned int count, RawMessage& message) override;

    /// Writes all of `message`. Blocks while other threads' frames are being written, and while the socket's send
    /// buffer is full: for each frame at most `Bounds::writeTimeout`.
    /// @return the size of `message`; -1 with `errno` when it could not be written whole: EAGAIN after
    ///         `Bounds::writeTimeout`, ETIMEDOUT when the peer is gone. The connection has then ended: other writes fail
    ///         at once, and the reader finds the end of the stream. It has also ended when the thread was cancelled inside.
    int writeMessage(const RawMessage& message) override;

    /// As the base class. Gives back what a frame that was received in part has needed.
    int close() override;

    /// As the base class, but blocks for at most `Bounds::connectTimeout`, fails at once when another thread closes or
    /// interrupts, and leaves SIGPIPE alone. It also has the system ask an idle peer whether it is there; when that is
    /// refused, a line says so and the connection is made nevertheless.
    bool openConnection(unsigned int address, unsigned int port) override;
    using CSCommsInterfaceTCP::openConnection;

    /// While interrupted, reads and writes end at once and connecting fails. A read that is not in the middle of a
    /// frame's body then gives -2 as if nothing had arrived: nothing is wrong with the host.
    void setInterrupted(bool interrupted) override;

  private:
    using Clock = std::chrono::steady_clock;

    enum class Arrival { SOME, NOTHING_YET, END, FAILED };

    /// One `readMessage`: until when it may wait, known as soon as it receives.
    struct Reading {
        int descriptor = -1;
        bool hasDeadline = false;
        Clock::time_point deadline;
    };

    /// The connected socket, or -1 with EBADF. For threads counted in `readers` or `writers`.
    CSCLIENT_INTERNAL int connectedSocket() const;

    CSCLIENT_INTERNAL bool connectWithin(int descriptor, unsigned int address, unsigned int port) const;

    /// Whether another thread has closed or interrupted meanwhile.
    bool isGivenUp(int descriptor) const { return isInterrupted || socketHandle != descriptor; }

    /// Brings together `count` bytes in the buffer, or in `largeBody`.
    CSCLIENT_INTERNAL Arrival gatherAhead(Reading& reading, std::size_t count);
    CSCLIENT_INTERNAL Arrival gatherLargeBody(Reading& reading, std::size_t count);

    /// Receives up to `room` bytes, as soon as there are any.
    CSCLIENT_INTERNAL Arrival receive(Reading& reading, char* target, std::size_t room, std::size_t& arrived);
    /// Ends a connection from which nothing more can be read.
    /// @return -1, with `error` in `errno`.
    CSCLIENT_INTERNAL int failReading(int descriptor, int error);

    /// Prepares for a new connection.
    CSCLIENT_INTERNAL void beginReading();

    /// Drops what has been received of a large body, and what writes have taken in, and gives back the memory.
    CSCLIENT_INTERNAL void releaseReceived();

    /// Waits until a writer has finished taking in. For a thread counted in `readers`.
    CSCLIENT_INTERNAL void waitForWriterToTakeIn() const;

    /// Takes in what has arrived, for a write that waits, unless the reader is inside.
    /// @return whether anything was taken in.
    CSCLIENT_INTERNAL bool takeIn(int descriptor);

    /// Waits until more can be written, and takes in what arrives meanwhile.
    /// @return false when the deadline has passed (EAGAIN), the peer is gone (ETIMEDOUT) or the system cannot wait.
    CSCLIENT_INTERNAL bool waitForRoom(int descriptor, Clock::time_point deadline);

    /// Waits for bytes in the middle of a frame.
    CSCLIENT_INTERNAL Arrival waitInFrame(const Reading& reading);
    CSCLIENT_INTERNAL Arrival arrivalAfterInterruption() const;

    bool isInsideFrame() const { return progress.isInsideBody() || buffer.size() > 0 || largeBodyFilled > 0; }

    // Constant after construction.

    const Bounds bounds;
    const PeerWatch peerWatch;

    // Any thread.

    /// The socket while it is being connected, otherwise -1: `socketHandle` holds it already, so that other threads can
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
