#include "comms/PeerWatch.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>

namespace com_tesk {

namespace {

/// Number of probes of an idle peer: one each quarter of the time. The first quarter passes before the first probe.
constexpr unsigned int kKeepAliveProbes = 3;
constexpr unsigned int kQuarters = kKeepAliveProbes + 1;

/// The largest keep-alive times that the system accepts, in seconds.
constexpr unsigned int kMaxKeepAliveSeconds = 32'767;

/// TCP_RTO_MAX_MS of Linux 6.15, which the C library's headers do not name yet, and the values that it accepts.
constexpr int kRetransmissionIntervalLimit = 44;
constexpr unsigned int kMinIntervalMilliseconds = 1'000;
constexpr unsigned int kMaxIntervalMilliseconds = 120'000;

constexpr unsigned int kMillisecondsPerSecond = 1'000;

bool setOption(int descriptor, int level, int name, unsigned int value) noexcept {
    return setsockopt(descriptor, level, name, &value, sizeof value) == 0;
}

}  // namespace

bool PeerWatch::enableKeepAlive(int descriptor) const noexcept {
    if (deadPeerSeconds == 0) {
        return true;
    }
    const unsigned int interval = std::clamp(deadPeerSeconds / kQuarters, 1U, kMaxKeepAliveSeconds);
    return setOption(descriptor, SOL_SOCKET, SO_KEEPALIVE, 1) &&
           setOption(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, interval) &&
           setOption(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, interval) &&
           setOption(descriptor, IPPROTO_TCP, TCP_KEEPCNT, kKeepAliveProbes);
}

bool PeerWatch::limitProbeInterval(int descriptor) const noexcept {
    if (deadPeerSeconds == 0) {
        return false;
    }
    // A quarter, so that a live peer is given up only after it has missed three probes in a row. The seconds are
    // limited first so that the product fits.
    // that the product fits.
    constexpr unsigned int kMaxSeconds = kMaxIntervalMilliseconds / kMillisecondsPerSecond * kQuarters;
    const unsigned int quarter = std::min(deadPeerSeconds, kMaxSeconds) * kMillisecondsPerSecond / kQuarters;
    return setOption(descriptor, IPPROTO_TCP, kRetransmissionIntervalLimit,
                     std::max(quarter, kMinIntervalMilliseconds));
}

bool PeerWatch::isGone(int descriptor) const noexcept {
    if (deadPeerSeconds == 0) {
        return false;
    }
    tcp_info info{};
    socklen_t length = sizeof info;
    if (getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &length) != 0) {
        return false;
    }
    // The time alone is not enough, because an idle peer also acknowledges nothing.
    const bool isRepeating = info.tcpi_retransmits > 1 || info.tcpi_probes > 1;
    return isRepeating && info.tcpi_last_ack_recv / kMillisecondsPerSecond >= deadPeerSeconds - 1;
}

}  // namespace com_tesk
