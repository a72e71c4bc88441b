#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "comms/CSCommsInterfaceTCP.h"
#include "message/Export.h"

namespace com_tesk {

class BufferedConnection;

/// The transport for production: whole frames, bounded waits, and far fewer system calls than its base class. Pass
/// one to `CSClient::changeCommsInterface` before `open`.
///
/// Differences from its base class:
///   - A read delivers exactly the requested bytes, or nothing. Bodies arrive as they were sent, however the network
///     has split them.
///   - It reads ahead: a stream of small frames costs a small fraction of a system call each.
///   - A frame is written whole, or the connection ends. Frames of concurrent writers never interleave.
///   - Every wait has a bound, and so has the size of a frame. A peer that is gone is detected.
///   - A write that waits for send buffer space receives the bytes that arrive meanwhile, up to the largest frame. A
///     peer that answers before it reads the next request can therefore continue.
///   - Closing from another thread, or `setInterrupted`, ends a read, a write or a connect in progress at once.
///   - Writing never raises SIGPIPE, and the process's signal settings stay as they are.
///
/// Threads: as the base class. One thread opens and reads; any thread writes, closes or interrupts at any time.
class CSCLIENT_EXPORT CSCommsInterfaceTCPBuffered : public CSCommsInterfaceTCP {
  public:
    /// The bounds on time and memory. Constant after construction. A negative time counts as zero. A time of more
    /// than a century, also `milliseconds::max()`, counts as a century.
    struct Bounds {
        /// Size in bytes of the largest frame that is accepted, its header included. A larger announced length is a
        /// read error before anything is allocated: 16 MiB hold more than a million values.
        std::uint32_t largestFrame = 16U << 20U;

        /// Longest silence of the host in the middle of a frame. Longer silence is a read error. The default allows
        /// several retransmissions of a lost packet, and keeps the interruption short. Time spent in callbacks does
        /// not count as silence.
        std::chrono::milliseconds silenceInFrame{5'000};

        /// Longest time that connecting may take. Hosts accept within milliseconds. The bound is for addresses that
        /// drop packets silently.
        std::chrono::milliseconds connectTimeout{5'000};

        /// Longest time for sending the rest of a frame that does not fit the send buffer. The default is the base
        /// class's time.
        std::chrono::milliseconds writeTimeout{30'000};

        /// Seconds within which a peer whose system is gone is detected, on an idle connection and on one with bytes
        /// in transit. The check runs while a thread reads or a write waits. A slow peer is not given up. At least 4;
        /// 0 leaves it to the system, which takes hours. An idle connection costs a packet and its answer every
        /// quarter of it. Before Linux 6.15, a peer that had stopped reading before it was gone is detected late. It
        /// takes up to about three times the time for which it had not read.
        unsigned int deadPeerSeconds = 9;

        /// Bytes read at once, ahead of the requested ones. 16 KiB hold hundreds of small frames, or one update of a
        /// thousand values. Larger bodies are read directly into the message.
        std::size_t readAhead = 16U << 10U;
    };

    /// Uses the default options and bounds.
    CSCommsInterfaceTCPBuffered();
    /// Uses the default bounds.
    explicit CSCommsInterfaceTCPBuffered(const Options& options);
    /// Copies both. A `readAhead` of less than a frame header counts as the size of one.
    CSCommsInterfaceTCPBuffered(const Options& options, const Bounds& bounds);
    /// As the base class: ends reads and writes in progress and waits for them.
    ~CSCommsInterfaceTCPBuffered() override;

    /// Appends exactly `count` bytes to `message`, or nothing. Blocks for at most one second.
    /// @return one of these. `message` is unchanged unless it is `count`.
    ///   - `count`.
    ///   - -2 with EAGAIN when the bytes are not all there after a second, or when a signal has come between frames.
    ///     Also when interrupted outside the body of a frame. Bytes that have arrived are kept for the next call.
    ///   - 0 at the end of the stream.
    ///   - -1 with EMSGSIZE for more than a frame may hold.
    ///   - -1 with ETIMEDOUT after too long a silence in the middle of a frame, or when the peer is gone.
    ///   - -1 with ECANCELED when interrupted in the middle of a frame's body.
    ///   - -1 with EBADF without a connection.
    ///   - -1 with the system's `errno` on any other error.
    /// @throw std::bad_alloc  `message` is unchanged, and received bytes are not lost.
    int readMessage(unsigned int count, RawMessage& message) override;

    /// Writes all of `message`. Blocks while other threads' frames are being written, and while the socket's send
    /// buffer is full. The bound for each frame is `Bounds::writeTimeout`.
    /// @return the size of `message`; -1 with `errno` when it could not be written whole: EAGAIN after
    ///         `Bounds::writeTimeout`, ETIMEDOUT when the peer is gone. The connection has then ended: other writes
    ///         fail at once, and the reader finds the end of the stream. The connection also ends when the thread is
    ///         cancelled inside the call.
    int writeMessage(const RawMessage& message) override;

    /// As the base class. Frees the memory of a partly received frame.
    int close() override;

    /// As the base class, but blocks for at most `Bounds::connectTimeout`. It fails at once when another thread
    /// closes or interrupts. It does not change the handling of SIGPIPE. It also enables keep-alive. When the system
    /// refuses that, a line reports it and the connection is established nevertheless.
    bool openConnection(unsigned int address, unsigned int port) override;
    using CSCommsInterfaceTCP::openConnection;

    /// Interrupts the transport (true) or ends the interruption (false). While it is interrupted, reads and writes
    /// end at once and connecting fails. A read that is not in the middle of a frame's body then returns -2, because
    /// nothing is wrong with the host.
    void setInterrupted(bool interrupted) override;

  private:
    const std::unique_ptr<BufferedConnection> buffered;
};

}  // namespace com_tesk
