#pragma once

#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "client/SimClient.h"
#include "host/LoopbackHost.h"
#include "tests/support/ClientOf.h"
#include "tests/support/CountedSleeps.h"
#include "tests/support/ParameterKinds.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/ScriptedHost.h"
#include "tests/support/TestEngine.h"
#include "tests/support/TransportUnderTest.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {

using TestClient = ClientOf<TestEngine>;
using Lines = std::vector<std::string>;

/// The address that clients on a fake transport connect to.
constexpr unsigned int kAnyAddress = 0x0100007F;

/// The time in seconds within which an operation that does not block returns on a busy machine.
constexpr double kWithoutBlocking = 0.9;

/// Polls every millisecond. Returns false on a time-out.
inline bool waitForState(const CSClient& client, CSClient::State state) {
    const Stopwatch watch;
    while (client.getConnectionState() != state) {
        if (watch.seconds() > 10.0) {
            return false;
        }
        ::poll(nullptr, 0, 1);  // A sleep would be counted.
    }
    return true;
}

/// Closes without the seconds for which `close` sleeps. The worker must end while it sleeps for the first time.
inline CSClient::State closeWithoutSleeping(CSClient& client) {
    const CountedSleeps sleeps([&](int /*sleep*/) { EXPECT_TRUE(waitForState(client, CSClient::STATE_DISCONNECTED)); });
    const CSClient::State state = client.close();
    EXPECT_LE(sleeps.count(), 1);
    return state;
}

/// A client on a fake transport whose worker stays in a read, or in the attempt to connect, until the gate is open.
template <typename Client = TestClient>
struct ClientWithBlockedWorker {
    enum Blocked { IN_READ, IN_CONNECT };

    explicit ClientWithBlockedWorker(Blocked blocked = IN_READ) : client(std::make_unique<Client>()) {
        client->addCallbackInterface(&callbacks);
        FakeTransport& transport = client->probed->fakeTransport();
        if (blocked == IN_READ) {
            transport.onRead = [this](unsigned int /*count*/) { gate.pass(); };
        } else {
            transport.onOpen = [this] { return gate.pass(); };
        }
        EXPECT_EQ(client->open(kAnyAddress, 1, nullptr), 0);
        EXPECT_TRUE(gate.waitUntilReached());
    }
    ~ClientWithBlockedWorker() { gate.open(); }

    Gate gate;
    RecordingCallbacks callbacks;
    std::unique_ptr<Client> client;
};

/// A client with its callbacks, and a host that the test controls.
struct ScriptedSession {
    using Peer = std::unique_ptr<ScriptedHost::Peer>;

    explicit ScriptedSession(unsigned int options = kSilent, unsigned int id = 1)
        : client(std::make_unique<SimClient>(id, options)) {
        useTransportUnderTest(*client);
        client->addCallbackInterface(&callbacks);
    }

    void open(const CSClient::ConnectionOptions* connectionOptions = nullptr) {
        ASSERT_EQ(client->open(ScriptedHost::address(), host.port(), connectionOptions), 0);
    }

    /// Connects, and takes the version request.
    void connect(const CSClient::ConnectionOptions* connectionOptions = nullptr) {
        ++connections;
        ASSERT_NO_FATAL_FAILURE(open(connectionOptions));
        peer = host.accept();
        ASSERT_TRUE(peer);
        versionRequest = peer->receiveFrame();
        ASSERT_TRUE(callbacks.waitFor("state 2->4", connections));
    }

    int connections = 0;
    std::string versionRequest;
    ScriptedHost host;
    RecordingCallbacks callbacks;
    Peer peer;
    std::unique_ptr<SimClient> client;
};

constexpr std::chrono::seconds kHostBound{10};

/// The events that a host has reported.
class HostEvents {
  public:
    std::function<void(const HostEvent&)> sink() {
        return [this](const HostEvent& event) {
            const std::lock_guard<std::mutex> lock(mutex);
            events.push_back(event);
        };
    }

    std::vector<HostEvent> all() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return events;
    }

    int count(HostEvent::Kind kind, const std::string& name = "") const {
        int found = 0;
        for (const HostEvent& event : all()) {
            found += event.kind == kind && (name.empty() || event.name == name) ? 1 : 0;
        }
        return found;
    }

    bool waitFor(HostEvent::Kind kind, const std::string& name, int times = 1) const {
        return waitUntil([&] { return count(kind, name) >= times; });
    }

  private:
    mutable std::mutex mutex;
    std::vector<HostEvent> events;
};

/// A client with its callbacks, connected to a loopback host.
struct LoopbackSession {
    explicit LoopbackSession(const LoopbackHost& host, unsigned int options = kSilent, unsigned int id = 1)
        : client(id, options) {
        useTransportUnderTest(client);
        client.addCallbackInterface(&callbacks);
        EXPECT_EQ(client.open("127.0.0.1", host.port(), nullptr), 0);
        EXPECT_TRUE(callbacks.waitFor("state 2->4"));
    }

    RecordingCallbacks callbacks;
    SimClient client;
};

/// A test for both kinds of parameters, on a client without a connection. `OtherKind` is the other one.
template <typename TestedKind>
class ForEachKind : public testing::Test {
  protected:
    using Kind = TestedKind;
    using OtherKind = std::conditional_t<std::is_same_v<Kind, Inputs>, Outputs, Inputs>;

    void confirm(unsigned int id, const char* name) { client.probed->receive(Kind::kConfirmation({{id, name}})); }

    TestClient client;
};

}  // namespace com_tesk::test
