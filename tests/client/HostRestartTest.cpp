#include <algorithm>
#include <future>
#include <map>

#include "tests/client/ClientFixtures.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

/// A host that can stop and start again on its port.
class HostRestart : public testing::Test {
  protected:
    HostRestart() { startHost(); }

    void startHost() {
        HostOptions options;
        options.port = port;
        host = std::make_unique<LoopbackHost>(options);
        port = host->port();
    }

    /// Returns when the client has noticed it.
    void stopHost(const LoopbackSession& session) {
        host.reset();
        ASSERT_TRUE(session.callbacks.waitFor("state 5->1"));
    }

    std::uint16_t port = 0;
    std::unique_ptr<LoopbackHost> host;
};

TEST_F(HostRestart, RestoresRegistrationsAndValuesAlsoThoseMadeMeanwhile) {
    LoopbackSession session(*host, kSilent | kReconnect);
    session.client.registerOutputParameters({output("ALT"), output("GEAR", CSClient::TYPE_INT), output("QUIET")});
    session.client.registerInputParameter(input("SPEED"));
    ASSERT_TRUE(session.callbacks.waitFor("outputs confirmed ALT GEAR QUIET"));
    ASSERT_TRUE(session.callbacks.waitFor("inputs confirmed SPEED"));
    session.client.publishParameters({floatParameter("ALT", 12.5F), intParameter("GEAR", -3)});
    ASSERT_TRUE(host->waitForValue("GEAR", HostValue::integer(-3), kHostBound));
    ASSERT_NO_FATAL_FAILURE(stopHost(session));
    EXPECT_EQ(session.client.publishParameter(floatParameter("ALT", 99.0F)), 0);
    EXPECT_EQ(session.client.registerOutputParameter(output("NEW")), 0);
    startHost();
    EXPECT_TRUE(host->waitForValue("ALT", HostValue::real(99.0F), kHostBound));
    EXPECT_TRUE(host->waitForValue("GEAR", HostValue::integer(-3), kHostBound));
    EXPECT_FALSE(host->value("QUIET").has_value()) << "it was never published";
    EXPECT_TRUE(session.callbacks.waitFor("outputs confirmed ALT GEAR NEW QUIET"));
    EXPECT_TRUE(session.callbacks.waitFor("inputs confirmed SPEED", 2));
    host->setValue("SPEED", HostValue::real(7.5F));
    EXPECT_TRUE(session.callbacks.waitFor("updated SPEED=float:7.5"));
    EXPECT_EQ(session.callbacks.states(), "0->1 1->2 2->4 4->5 5->1 1->2 2->4");
}

TEST_F(HostRestart, ReconnectingPrintsEachStep) {
    const CapturedStreams streams;
    {
        LoopbackSession session(*host, kReconnect);
        ASSERT_TRUE(streams.waitForOut("Found protocol version: 1\n"));
        session.client.registerOutputParameter(output("ALT"));
        session.client.registerInputParameter(input("SPEED"));
        ASSERT_TRUE(session.client.waitForInputsToBeRegistered(5));
        host->dropClients(LoopbackHost::DropMode::GRACEFUL);
        ASSERT_TRUE(streams.waitForOut("Registering output parameters with server...\nFound server version: "));
        ASSERT_TRUE(session.client.waitForInputsToBeRegistered(5));
    }
    const std::string found =
        "Found server version: csclient loopback host\nFound simulator id: 1\nFound protocol version: 1\n";
    EXPECT_EQ(streams.out(), found + "Attempting to reconnect...\n" +
                                 "Re-registering input/output parameters (1/1)...\n" +
                                 "Registering input parameters with server...\n" +
                                 "Registering output parameters with server...\n" + found);
    EXPECT_EQ(streams.err(), "Connection closed by server.\n");
}

TEST_F(HostRestart, WithoutReconnectALossErasesEverything) {
    LoopbackSession pilot(*host);
    pilot.client.registerOutputParameter(output("ALT"));
    ASSERT_TRUE(pilot.callbacks.waitFor("outputs confirmed ALT"));
    host.reset();
    ASSERT_TRUE(pilot.callbacks.waitFor("state 3->0"));
    EXPECT_TRUE(pilot.client.waitForConnectionState(CSClient::STATE_DISCONNECTED, 2));
    EXPECT_EQ(pilot.callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
    EXPECT_EQ(pilot.client.getNumberOfRegisteredOutputParameters(), 0);
    EXPECT_EQ(pilot.client.getNumberOfUnregisteredOutputParameters(), 0);
    EXPECT_EQ(pilot.client.getServerPort(), 0U);
}

TEST_F(HostRestart, ClientOpenedBeforeTheHostStartsFindsIt) {
    host.reset();
    RecordingCallbacks callbacks;
    SimClient client(1, kSilent | kReconnect);
    useTransportUnderTest(client);
    client.addCallbackInterface(&callbacks);
    ASSERT_EQ(client.open("127.0.0.1", port, nullptr), 0);
    EXPECT_FALSE(client.waitForConnectionState(CSClient::STATE_READY, 1));
    startHost();
    EXPECT_TRUE(client.waitForConnectionState(CSClient::STATE_READY, 5));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4");
}

/// Registers inputs and outputs from several threads while the host ends the connection repeatedly.
void registerDuringReconnections() {
    constexpr std::chrono::seconds kStressBound{30};
    constexpr int kConnections = 3;
    constexpr int kThreads = 4;
    constexpr int kNames = 6;

    HostEvents events;
    HostOptions options;
    options.eventSink = events.sink();
    LoopbackHost host(options);
    RecordingCallbacks callbacks;
    // Gives the threads that wait for a state change a chance to run during the rest of it.
    callbacks.onLine = [](const std::string& line) {
        for (int i = 0; line.compare(0, 6, "state ") == 0 && i < 10; ++i) {
            std::this_thread::yield();
        }
    };
    SimClient client(1, kSilent | kReconnect);
    useTransportUnderTest(client);
    client.addCallbackInterface(&callbacks);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&client, &callbacks, kStressBound, thread] {
            for (int connection = 1; connection <= kConnections; ++connection) {
                EXPECT_TRUE(callbacks.waitFor("state 1->2", connection, kStressBound));
                for (int i = 0; i < kNames; ++i) {
                    const std::string name = std::to_string((connection * kThreads + thread) * kNames + i);
                    // 0, or 2 when the connection has ended before the write.
                    EXPECT_NE(client.registerInputParameter(input("in." + name)), 3);
                    EXPECT_NE(client.registerOutputParameter(output("out." + name, CSClient::TYPE_INT)), 3);
                }
            }
        });
    }
    EXPECT_EQ(client.open("127.0.0.1", host.port(), nullptr), 0);
    for (int connection = 1; connection < kConnections; ++connection) {
        EXPECT_TRUE(callbacks.waitFor("state 2->4", connection, kStressBound));
        EXPECT_TRUE(host.waitForClients(1, kStressBound));
        host.dropClients(LoopbackHost::DropMode::RESET);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    // How often each name was requested on each connection.
    std::map<std::uint64_t, std::map<std::string, int>> counts;
    const auto areAllConfirmed = [&] {
        counts.clear();
        for (const HostEvent& event : events.all()) {
            if (event.kind == HostEvent::Kind::INPUT_CONFIRMED || event.kind == HostEvent::Kind::OUTPUT_CONFIRMED) {
                ++counts[event.client][event.name];
            }
        }
        if (counts.empty() || counts.rbegin()->second.size() != 2 * kConnections * kThreads * kNames) {
            return false;
        }
        const auto& names = counts.rbegin()->second;
        return std::all_of(names.begin(), names.end(), [&](const auto& nameAndCount) {
            const std::string& name = nameAndCount.first;
            return client.isInputParameterRegistered(name) || client.isOutputParameterRegistered(name);
        });
    };
    EXPECT_TRUE(waitUntil(areAllConfirmed, kStressBound)) << "requested and confirmed on the last connection";
    for (const auto& [connection, names] : counts) {
        for (const auto& [name, count] : names) {
            EXPECT_EQ(count, 1) << name;
        }
    }
}

TEST(ConcurrentRegistration, RequestsEachNameOnceOnEachConnection) {
    std::vector<std::future<void>> runs;
    for (int i = 0; i < 10; ++i) {
        runs.push_back(std::async(std::launch::async, [] {
            registerDuringReconnections();
            registerDuringReconnections();
        }));
    }
    for (std::future<void>& run : runs) {
        run.get();
    }
}

}  // namespace
}  // namespace com_tesk::test
