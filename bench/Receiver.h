#pragma once

#include <atomic>
#include <vector>

#include "bench/HostProcess.h"
#include "bench/Measure.h"
#include "bench/ReadyClient.h"

namespace com_tesk::bench {

/// Receives updates in bursts and sums their values. The measurement starts after the first update of a burst, when the
/// other updates have arrived. It therefore measures receiving without waiting.
class Receiver : public WaitingCallbacks {
  public:
    explicit Receiver(HostProcess& newHost) : host(newHost) {}

    void inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) override {
        const unsigned int left = updatesLeft.load(std::memory_order_relaxed);
        if (left == 0) {
            return;  // These are the values that come with the confirmation.
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
            apply([this, &burst] {
                usage += burst;
                isOver = true;
            });
        }
    }

    /// Receives `bursts` bursts.
    /// @return the usage of all updates except the first of each burst.
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
    /// Set while the host is silent; then used by the worker only. The same applies to the members below.
    std::atomic<unsigned int> updatesLeft{0};
    bool isFirst = true;
    bool isOver = false;
    Meter meter;
    Usage usage;
};

}  // namespace com_tesk::bench
