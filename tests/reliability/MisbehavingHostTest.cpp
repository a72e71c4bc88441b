#include <algorithm>
#include <atomic>
#include <iterator>
#include <random>
#include <string>
#include <thread>

#include "host/Replies.h"
#include "tests/reliability/ClientUnderTest.h"
#include "tests/reliability/Stress.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/Seed.h"
#include "tests/support/TestSize.h"

namespace com_tesk::test {
namespace {

class MisbehavingHost : public testing::TestWithParam<TransportKind> {
  protected:
    /// The host sends so many bytes of a version response and then nothing.
    static void stallAfter(std::size_t bytes) {
        SCOPED_TRACE(std::to_string(bytes) + " bytes");
        const host::Bytes reply = host::encodeVersionReply(7, "stalling host", 1);
        std::atomic<bool> isStalled{false};
        ConnectionHost host([&](HostConnection& connection, int /*number*/) {
            connection.send(reply.data(), bytes);
            isStalled = true;
            connection.hold();
        });
        const ClientUnderTest client(GetParam());
        ASSERT_EQ(client.open(host.port()), 0);
        ASSERT_TRUE(waitUntil([&isStalled] { return isStalled.load(); }));
        ASSERT_TRUE(client.callbacks.waitFor("state 2->4"));
        // The standard transport takes a part of a header for an error. The end of the connection empties the tables, so
        // it must not come between registering and publishing.
        ASSERT_TRUE(GetParam().isBuffered || bytes >= 32 || client.waitForState(CSClient::STATE_DISCONNECTED));
        client.expectAllQueriesAtOnce();
        client.expectPublishingAtOnce();
        const CSClient::State state = client.close();
        EXPECT_TRUE(state == CSClient::STATE_DISCONNECTED ||
                    (state == CSClient::STATE_DISCONNECTING && !GetParam().isBuffered))
            << state;
        client.expectAllQueriesAtOnce();
        // The worker of a standard client may wait for the rest of the frame until the host closes the connection.
        host.stop();
        ASSERT_TRUE(client.waitForState(CSClient::STATE_DISCONNECTED));
        EXPECT_EQ(client.callbacks.states(), kStatesOfOneConnection);
        EXPECT_TRUE(client.isEmpty());
    }
};

TEST_P(MisbehavingHost, StallingInAFrameDelaysOnlyTheEndOfTheConnection) {
    // Within each word of the header, at its end, and within each part of the body of a version response.
    const std::size_t stalls[] = {1, 3, 4, 7, 8, 11, 12, 15, 16, 31, 32, 33, 43, 44, 48, 100, 180, 183};
    sideBySide(std::size(stalls), std::size(stalls), [&](std::size_t index) { stallAfter(stalls[index]); });
}

TEST_P(MisbehavingHost, SendingUpdatesFasterThanCallbacksRunFillsNoMemory) {
    ConnectionHost host([&](HostConnection& connection, int /*number*/) {
        connection.send(host::encodeVersionReply(7, "fast host", 1));
        connection.send(host::encodeInputsReply(7, {{1, 12000, 12000, HostValue::real(0), "IN"}}));
        const host::Bytes update = host::encodeUpdate(7, {{1, HostValue::real(1.5F)}});
        while (connection.send(update) && connection.isHostRunning()) {
            connection.drop(0);
        }
    });
    std::atomic<int> updates{0};
    HookedCallbacks slow;
    slow.onUpdate = [&updates](const auto&) {
        ++updates;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    };
    ClientUnderTest client(GetParam());
    client->addCallbackInterface(&slow);
    client->registerInputParameter({"IN", CSClient::TYPE_FLOAT, 1});
    ASSERT_EQ(client.open(host.port()), 0);
    ASSERT_TRUE(waitUntil([&updates] { return updates > 20; }));
    client->removeCallbackInterface(&client.callbacks);  // It keeps every line.
    const ResourceUsage before = ResourceUsage::now();
    const int updatesBefore = updates;
    for (int i = 0; i < 20; ++i) {
        client.expectAllQueriesAtOnce();
        client.expectPublishingAtOnce("OUT" + std::to_string(i));
        std::this_thread::sleep_for(std::chrono::milliseconds(sized(50, 1500)));
    }
    EXPECT_EQ(ResourceUsage::now().growthSince(before), "");
    EXPECT_GT(updates, updatesBefore);
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
    EXPECT_TRUE(client.isEmpty());
}

TEST_P(MisbehavingHost, AssigningNewIdsWithoutEndBlocksNothing) {
    // The lines about new ids are printed in silent mode too.
    const CapturedStreams streams;
    ConnectionHost host([](HostConnection& connection, int /*number*/) {
        std::uint16_t id = 0;
        while (connection.send(host::encodeVersionReply(id, "host of many ids", 1)) && connection.drop(0)) {
            id = static_cast<std::uint16_t>((id + 1) % 40000);
        }
    });
    ClientUnderTest client(GetParam(), kAutoReconnect);
    client->registerInputParameters({{"IN", CSClient::TYPE_FLOAT, 1}, {"IN2", CSClient::TYPE_INT, 2}});
    client->registerOutputParameters({{"KEPT", CSClient::TYPE_FLOAT}});
    ASSERT_EQ(client.open(host.port()), 0);
    ASSERT_TRUE(streams.waitForOut("Simulator ID is now 100 "));
    for (int i = 0; i < 20; ++i) {
        client.expectAllQueriesAtOnce();
        client.expectPublishingAtOnce();
    }
    // No input exists while the inputs are registered again.
    EXPECT_TRUE(waitUntil([&client] { return client->getNumberOfUnregisteredInputParameters() == 2; }));
    EXPECT_EQ(client->getNumberOfUnregisteredOutputParameters(), 1);
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
    EXPECT_TRUE(client.isEmpty());
    EXPECT_EQ(client.callbacks.states(), kStatesOfOneConnection);
}

/// Sends random bytes until the client ends the connection.
ConnectionHost::Function sendGarbage() {
    return [seed = newSeed()](HostConnection& connection, int number) {
        std::mt19937_64 random(seed + static_cast<unsigned int>(number));
        host::Bytes bytes(512);
        do {
            std::generate(bytes.begin(), bytes.end(), [&random] { return static_cast<std::uint8_t>(random()); });
        } while (connection.send(bytes) && connection.drop(0));
    };
}

TEST_P(MisbehavingHost, SendingGarbageIsConnectedToAgain) {
    const ConnectionHost host(sendGarbage());
    const ClientUnderTest client(GetParam(), kAutoReconnect);
    ASSERT_EQ(client.open(host.port()), 0);
    ASSERT_TRUE(client.callbacks.waitFor("state 5->1"));
    const ResourceUsage before = ResourceUsage::now();
    ASSERT_TRUE(client.callbacks.waitFor("state 5->1", 3));
    client.expectAllQueriesAtOnce();
    EXPECT_EQ(client->registerOutputParameter({"OUT", CSClient::TYPE_FLOAT}), 0);
    EXPECT_EQ(ResourceUsage::settled(before).growthSince(before), "");
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
    EXPECT_TRUE(client.isEmpty());
}

TEST_P(MisbehavingHost, SendingGarbageEndsAClientWithoutReconnect) {
    const ConnectionHost host(sendGarbage());
    const ClientUnderTest client(GetParam());
    ASSERT_EQ(client.open(host.port()), 0);
    ASSERT_TRUE(client.callbacks.waitFor("state 3->0"));
    EXPECT_EQ(client.callbacks.states(), kStatesOfOneConnection);
}

TEST_P(MisbehavingHost, SendingNothingLeavesParametersUnconfirmed) {
    ConnectionHost host([](HostConnection& connection, int /*number*/) { connection.drop(-1); });
    ClientUnderTest client(GetParam(), kAutoReconnect);
    ASSERT_EQ(client.open(host.port()), 0);
    ASSERT_TRUE(client.callbacks.waitFor("state 2->4"));
    EXPECT_EQ(client->registerInputParameter({"IN", CSClient::TYPE_FLOAT, 1}), 0);
    EXPECT_EQ(client->registerOutputParameter({"KEPT", CSClient::TYPE_FLOAT}), 0);
    EXPECT_EQ(client->publishParameter(floatParameter("KEPT", 2.5F)), 0);
    client.expectPublishingAtOnce();
    EXPECT_FALSE(client->waitForInputsToBeRegistered(1));
    client.expectAllQueriesAtOnce();
    EXPECT_EQ(client->getServerVersion(), "UNKNOWN");
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
    EXPECT_TRUE(client.isEmpty());
}

TEST_P(MisbehavingHost, ResettingEachConnectionIsConnectedToOnceASecond) {
    ConnectionHost host([](HostConnection& connection, int /*number*/) { connection.resetAtEnd(); });
    ClientUnderTest client(GetParam(), kAutoReconnect);
    client->registerInputParameter({"IN", CSClient::TYPE_FLOAT, 1});
    client->registerOutputParameter({"KEPT", CSClient::TYPE_FLOAT});
    ASSERT_EQ(client.open(host.port()), 0);
    ASSERT_TRUE(waitUntil([&host] { return host.connections() >= 2; }));
    ResourceUsage before = ResourceUsage::now();
    // Between attempts the client keeps a socket that was reset after connecting, but none that was reset before.
    ++before.descriptors;
    const int connections = host.connections();
    const double seconds = secondsOf(
        [&] { ASSERT_TRUE(waitUntil([&host, connections] { return host.connections() >= connections + 3; })); });
    EXPECT_GT(seconds, 1.9) << "at least two pauses are between three attempts";
    client.expectAllQueriesAtOnce();
    EXPECT_EQ(ResourceUsage::settled(before).growthSince(before), "");
    EXPECT_EQ(client->getNumberOfUnregisteredInputParameters(), 1);
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
    EXPECT_TRUE(client.isEmpty());
}

INSTANTIATE_TEST_SUITE_P(Client, MisbehavingHost, testing::Values(kStandard, kBuffered), nameOf<TransportKind>);

}  // namespace
}  // namespace com_tesk::test
