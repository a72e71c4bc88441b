#pragma once

#include <atomic>
#include <vector>

#include "bench/HostProcess.h"
#include "bench/Measure.h"
#include "bench/ReadyClient.h"

namespace com_tesk::bench {

/// Receives updates in bursts and sums their values. What is measured begins behind a burst's first update, which waits
/// until the others have arrived: so it is receiving, and no waiting.
class Receiver : public WaitingCallbacks {
  public:
    explicit Receiver(HostProcess& newHost) : host(newHost) {}

    void inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) override {
        const unsigned int left = updatesLeft.load(std::memory_order_relaxed);
        if (left == 0) {
            return;  // The values that come with the confirmation.
        }
        for (const CSClient::Parameter& parameter : parameters) {
            sum += parameter.value.asFloat;
        }
        if (isFirst) {
            isFirst = false;
            host.waitUntilSent();
            meter = Meter();
        }
        updatesLeft.store(left - 1, std::memory_order_relaxed);
        if (left == 1) {
            const Usage burst = meter.stop();
            tell([this, &burst] {
                usage += burst;
                isOver = true;
            });
        }
    }

    /// Receives so many bursts.
    /// @return what all their updates but the first ones have used.
    Usage receive(unsigned int bursts) {
        usage = {};
        sum = 0;
        for (unsigned int i = 0; i < bursts; ++i) {
            isFirst = true;
            isOver = false;
            updatesLeft = host.updatesPerBurst();
            host.sendUpdates(host.updatesPerBurst());
            waitUntil([this] { return isOver; });
        }
        return usage;
    }

    double sum = 0;

  private:
    HostProcess& host;
    /// Set while the host is silent, then the worker's, as are those that follow.
    std::atomic<unsigned int> updatesLeft{0};
    bool isFirst = true;
    bool isOver = false;
    Meter meter;
    Usage usage;
};

}  // namespace com_tesk::bench
