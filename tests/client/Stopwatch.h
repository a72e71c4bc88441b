#pragma once

#include <chrono>
#include <thread>

#include "client/CSClient.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {

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
