#pragma once

namespace com_tesk {

/// Distinguishes a peer that is gone (cable cut, system down) from one that is alive but slow to read.
///
/// The peer's kernel acknowledges everything that reaches it: data, keep-alive probes, and window probes. A window
/// probe asks a peer with a full receive buffer whether it can receive more. The kernel does so even when the peer's
/// application does not read. So a peer is gone when the system has repeated its packets and nothing was acknowledged
/// for long.
///
/// There are three situations:
///   - Idle connection: the system sends keep-alive probes (`enableKeepAlive`) and ends the connection itself.
///   - Data in transit: the system retransmits it, and `isGone` evaluates the result.
///   - Receive window closed: the system sends window probes, and `isGone` evaluates the result. By default the
///     interval doubles from probe to probe, up to two minutes. When a window was closed for 15 s before the cable
///     was cut, the second unanswered probe leaves 36 s after the cut. `limitProbeInterval` bounds the interval.
///
/// TCP_USER_TIMEOUT would bound the interval on older systems, but it also ends connections to live peers. The system
/// applies it to a closed window although the peer answers each probe. Raising it in time does not help. Its clock
/// may count from a probe of an earlier closed window. A window that opens by less than the next segment does not
/// reset that clock.
///
/// Threads: any, several at once, without locks. The caller owns the descriptor and keeps it open during a call. An
/// object holds only a number. No operation allocates, throws or blocks.
class PeerWatch {
  public:
    /// @param seconds  time within which a peer that is gone is detected. Values below 4 are detected within 4
    ///                 seconds; 0 disables all three operations.
    explicit constexpr PeerWatch(unsigned int seconds) : deadPeerSeconds(seconds) {}

    /// Enables keep-alive. The system probes an idle peer each quarter of the time (at most 32767 s), and ends the
    /// connection when three probes are unanswered. Call it once per TCP socket, before or after connecting.
    /// @return false when the system refuses an option. The connection works without it, but the end of an idle peer
    ///         is then detected only by the next write.
    bool enableKeepAlive(int descriptor) const noexcept;

    /// Limits the interval between retransmissions, and between window probes, to a quarter of the time (at least 1 s,
    /// at most 2 min). Call it once per socket, after connecting: before, the limit would also shorten the time for
    /// which the system tries to connect.
    ///
    /// Needs Linux 6.15. On older systems it has no effect. A peer whose window was closed before it was gone is then
    /// detected late. It takes up to about three times the time for which the window had been closed.
    ///
    /// With shorter intervals the system itself gives up a silent peer sooner, because it counts repetitions (15 by
    /// default). With 9 s it gives up after half a minute instead of a quarter of an hour.
    /// @return true when the limit is in force. False is not an error.
    bool limitProbeInterval(int descriptor) const noexcept;

    /// True when two conditions hold. The peer has left at least two retransmissions or window probes unanswered: a
    /// single repetition may be due to a lost packet. And it has acknowledged nothing for the time less one second,
    /// which is the interval of the checks.
    ///
    /// Costs one system call. Each thread that waits on the connection calls it about once a second.
    /// @return false also when the system cannot tell, as for a descriptor that is no TCP socket.
    bool isGone(int descriptor) const noexcept;

  private:
    const unsigned int deadPeerSeconds;
};

}  // namespace com_tesk
