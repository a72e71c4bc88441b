#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "session/Link.h"
#include "session/Times.h"

namespace com_tesk::session {

/// The transport of a session. Writing never blocks: what the socket does not take is kept, and `sendRest` sends it.
/// It remembers why a connection failed, and counts frames and bytes.
///
/// Threads. One thread at a time writes: the callers hold the lock of `FrameSender`. The engine's worker opens, reads
/// and closes.
class SessionTransport : public CSCommsInterfaceTCPBuffered {
  public:
    /// Why a connection or an attempt has failed: the first reason.
    struct Failure {
        Cause cause = Cause::NONE;
        int error = 0;
    };

    /// What has been read and written, on all connections.
    struct Traffic {
        std::atomic<std::uint64_t> framesIn{0};
        std::atomic<std::uint64_t> framesOut{0};
        std::atomic<std::uint64_t> bytesIn{0};
        std::atomic<std::uint64_t> bytesOut{0};
        std::atomic<Clock::rep> lastReceived{0};  ///< The clock's ticks; 0 before the first frame.
    };

    explicit SessionTransport(const Bounds& bounds) : CSCommsInterfaceTCPBuffered(Options(), bounds) {}

    /// @name The engine's operations
    /// @{
    bool openConnection(unsigned int address, unsigned int port) override;
    using CSCommsInterfaceTCPBuffered::openConnection;
    int readMessage(unsigned int count, RawMessage& message) override;

    /// Takes the whole frame and sends what the socket takes. A failure ends the connection: the reader finds that.
    /// There must be no rest.
    /// @return the size of the frame, always, so that the engine does not close on the writing thread.
    int writeMessage(const RawMessage& message) override;
    int close() override;
    /// @}

    /// @name Writing
    /// @{

    /// True when a part of a frame has not been sent.
    bool hasRest() const { return !rest.empty(); }
    /// Sends as much of the rest as the socket takes.
    /// @return true when nothing is left.
    bool sendRest();
    /// Drops the rest, for a new connection.
    void dropRest();
    /// Returns when the socket last took bytes, or the rest began.
    Clock::time_point lastProgress() const { return progress; }

    /// Tells the host that nothing more will be sent.
    void endSending();
    /// @}

    /// Waits until `wakeDescriptor` is readable, the deadline has passed or, when `isSpaceAwaited`, the socket takes
    /// more bytes. Any thread.
    void wait(int wakeDescriptor, bool isSpaceAwaited, Clock::time_point deadline);

    /// True when the peer's system has acknowledged everything that was sent, or had done so when the connection was
    /// closed. Any thread.
    bool isAcknowledged();

    /// Stores the reason of a failure, unless there is one. Any thread.
    void noteFailure(Cause cause, int error);
    Failure failure() const;
    /// Before an attempt to connect.
    void forgetFailure();
    const Traffic& traffic() const { return counts; }

  private:
    /// Sends what the socket takes.
    /// @return the number of bytes sent; `count` after a failure, which ends the connection.
    std::size_t sendBytes(const char* bytes, std::size_t count);
    void noteReadFailure(int result, int error);
    /// Checks the header at the end of the message.
    bool isHeaderOfHost(const RawMessage& message, unsigned int count);
    bool hasUnacknowledged();

    // Any thread.

    Traffic counts;
    /// Cause and error in one word.
    std::atomic<std::uint32_t> firstFailure{0};
    std::atomic<bool> wasAcknowledgedAtClose{true};

    // The writing thread.

    std::vector<char> rest;
    Clock::time_point progress;

    // The reading thread.

    /// Bytes of the current frame's body that have not been read; 0 before a header.
    std::uint32_t bodyLeft = 0;
};

}  // namespace com_tesk::session
