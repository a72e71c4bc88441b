#pragma once

namespace com_tesk {

/// Distinguishes a peer that is gone (cable cut, system down) from one that is alive but slow to read.
///
/// The peer's kernel acknowledges everything that reaches it: data, keep-alive probes, and the window probes that ask a
/// peer with a full receive buffer whether it can take more. It does so even when the peer's application does not read.
/// So a peer is gone when the system has repeated its packets and nothing was acknowledged for long.
///
/// There are three situations:
///   - Idle connection: the system sends keep-alive probes (`enableKeepAlive`) and ends the connection itself.
///   - Data under way: the system retransmits it, and `isGone` evaluates the result.
///   - Receive window closed: the system sends window probes, and `isGone` evaluates the result. By default the interval
///     doubles from probe to probe, up to two minutes. When a window was closed for 15 s before the cable was cut, the
///     second unanswered probe leaves 36 s after the cut. `limitProbeInterval` bounds the interval.
///
/// TCP_USER_TIMEOUT would bound it on older systems, but it also ends connections to live peers. The system applies it to
/// a closed window although the peer answers each probe. Raising it in time does not help: its clock may count from a
/// probe of an earlier closed window, because a window that opens by less than the next segment does not reset it.
///
/// Threads: any, several at once, without locks. The caller owns the descriptor and keeps it open during a call. An object
/// holds only a number. No operation allocates, throws or blocks.
class PeerWatch {
  public:
    /// @param seconds  time within which a peer that is gone is noticed. Values below 4 are noticed within 4 seconds; 0
    ///                 disables all three operations.
    explicit constexpr PeerWatch(unsigned int seconds) : deadPeerSeconds(seconds) {}

    /// Enables keep-alive: the system probes an idle peer each quarter of the time (at most 32767 s), and ends the
    /// connection when three probes are unanswered. Call it once per TCP socket, before or after connecting.
    /// @return false when the system refuses an option. The connection works without it, but the end of an idle peer
    ///         is then noticed only by the next write.
    bool enableKeepAlive(int descriptor) const noexcept;

    /// Limits the interval between retransmissions, and between window probes, to a quarter of the time (at least 1 s,
    /// at most 2 min). Call it once per socket, after connecting: before, the limit would also shorten the time for
    /// which the system tries to connect.
    ///
    /// Needs Linux 6.15. On older systems it has no effect, and a peer whose window was closed before it was gone is
    /// noticed late: in up to about three times the time for which the window had been closed.
    ///
    /// With shorter intervals the system itself gives up sooner a peer that acknowledges nothing, since it counts
    /// repetitions (15 by default). With 9 s that is after half a minute instead of a quarter of an hour.
    /// @return whether the limit is in force. False is not an error.
    bool limitProbeInterval(int descriptor) const noexcept;

    /// Whether the peer has left at least two retransmissions or window probes unanswered, and has acknowledged
    /// nothing for the time less one second. (One second is the interval of the checks. A single repetition may be due
    /// to a lost packet.)
    ///
    /// Costs one system call. Each thread that waits on the connection calls it about once a second.
    /// @return false also when the system cannot tell, as for a descriptor that is no TCP socket.
    bool isGone(int descriptor) const noexcept;

  private:
    const unsigned int deadPeerSeconds;
};

}  // namespace com_tesk
