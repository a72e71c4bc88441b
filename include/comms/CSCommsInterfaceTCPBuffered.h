#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "comms/CSCommsInterfaceTCP.h"
#include "message/Export.h"

namespace com_tesk {

class BufferedConnection;

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
    const std::unique_ptr<BufferedConnection> buffered;
};

}  // namespace com_tesk
