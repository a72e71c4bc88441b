#pragma once

#include <chrono>
#include <thread>

#include "client/CSClient.h"

namespace com_tesk::test {

/// Measures real time, for lower bounds: a busy machine makes everything late.
class Stopwatch {
  public:
    double seconds() const { return std::chrono::duration<double>(Clock::now() - start).count(); }

  private:
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
};

/// Watches the state without the whole seconds of the client's own waits.
inline bool spinUntilState(const CSClient& client, CSClient::State state) {
    const Stopwatch watch;
    while (client.getConnectionState() != state) {
        if (watch.seconds() > 10.0) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

}  // namespace com_tesk::test
