#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "client/SimClient.h"
#include "host/LoopbackHost.h"
#include "tests/client/ProbedClient.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/TransportUnderTest.h"

namespace com_tesk::test {

constexpr std::chrono::seconds kPatience{10};

/// What a host has reported.
class HostDiary {
  public:
    std::function<void(const HostEvent&)> sink() {
        return [this](const HostEvent& event) {
            const std::lock_guard<std::mutex> lock(mutex);
            events.push_back(event);
            changed.notify_all();
        };
    }

    /// Waits for an event of that kind about that name, the `count`-th of them.
    bool waitFor(HostEvent::Kind kind, const std::string& name = "", int count = 1) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, kPatience, [&] { return countOf(kind, name) >= count; });
    }

    int count(HostEvent::Kind kind, const std::string& name = "") {
        const std::lock_guard<std::mutex> lock(mutex);
        return countOf(kind, name);
    }

    /// The ids of all events of that kind.
    std::vector<std::uint32_t> ids(HostEvent::Kind kind) {
        const std::lock_guard<std::mutex> lock(mutex);
        std::vector<std::uint32_t> found;
        for (const HostEvent& event : events) {
            if (event.kind == kind) {
                found.push_back(event.id);
            }
        }
        return found;
    }

  private:
    int countOf(HostEvent::Kind kind, const std::string& name) const {
        int found = 0;
        for (const HostEvent& event : events) {
            if (event.kind == kind && (name.empty() || event.name == name)) {
                ++found;
            }
        }
        return found;
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<HostEvent> events;
};

/// A client with its callbacks, connected to a host of this process.
class Participant {
  public:
    explicit Participant(const LoopbackHost& host, unsigned int id = 1, unsigned int options = CSClient::OPTION_SILENT)
        : client(id, options) {
        useTransportUnderTest(client);
        client.addCallbackInterface(&heard);
        open(host);
    }

    void open(const LoopbackHost& host) {
        EXPECT_EQ(client.open("127.0.0.1", host.port(), nullptr), 0);
        EXPECT_TRUE(heard.waitFor("state 2->4"));
        EXPECT_TRUE(client.waitForConnectionState(CSClient::STATE_READY, 0));
    }

    /// Outlives the client, which calls it.
    RecordingCallbacks heard;
    SimClient client;
};

}  // namespace com_tesk::test
