#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "client/SimClient.h"
#include "tests/client/CountedSleeps.h"
#include "tests/client/GatedTransport.h"
#include "tests/client/ProbedClient.h"
#include "tests/client/Stopwatch.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/ScriptedHost.h"
#include "tests/support/TransportUnderTest.h"

namespace com_tesk::test {
namespace {

/// A connected client whose worker is held up in a read.
class HeldUpClient {
  public:
    HeldUpClient() {
        client.probed->changeCommsInterface(new GatedTransport(gate));
        client.addCallbackInterface(&callbacks);
        EXPECT_EQ(client.open(kAnyAddress, 1, nullptr), 0);
        EXPECT_TRUE(gate.waitUntilReached());
    }
    ~HeldUpClient() { gate.open(); }

    /// Lets the worker go, and sees it end, while the thread that closes is in that sleep.
    std::function<void(int)> letGoIn(int when) {
        return [this, when](int sleep) {
            if (sleep == when) {
                gate.open();
                EXPECT_TRUE(spinUntilState(client, CSClient::STATE_DISCONNECTED));
            }
        };
    }

    Gate gate;
    RecordingCallbacks callbacks;
    ProbedClient client;
};

TEST(Close, WithoutAConnectionItReturnsZeroAtOnce) {
    ProbedClient client;
    const CountedSleeps sleeps;
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(sleeps.count(), 0);
}

TEST(Close, AWorkerThatEndsWithinASecondIsSeenAfterOneSleep) {
    HeldUpClient held;
    const CountedSleeps sleeps(held.letGoIn(1));
    EXPECT_EQ(held.client.close(), CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(sleeps.count(), 1);
    EXPECT_EQ(held.callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
}

TEST(Close, AWorkerThatEndsInTheSecondSecondIsSeenAfterTwoSleeps) {
    HeldUpClient held;
    const CountedSleeps sleeps(held.letGoIn(2));
    EXPECT_EQ(held.client.close(), CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(sleeps.count(), 2);
}

TEST(Close, AfterTwoSleepsItReturnsTheStateStillReached) {
    HeldUpClient held;
    const CountedSleeps sleeps;
    EXPECT_EQ(held.client.close(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(sleeps.count(), 2);
    held.gate.open();
    EXPECT_TRUE(spinUntilState(held.client, CSClient::STATE_DISCONNECTED));
}

TEST(Close, ItsTwoSecondsAreReal) {
    HeldUpClient held;
    const Stopwatch watch;
    EXPECT_EQ(held.client.close(), CSClient::STATE_DISCONNECTING);
    EXPECT_GE(watch.seconds(), 2.0);
}

TEST(Close, ASecondCloseWaitsForTheSameWorker) {
    HeldUpClient held;
    EXPECT_EQ(held.client.close(), CSClient::STATE_DISCONNECTING);
    const CountedSleeps sleeps;
    EXPECT_EQ(held.client.close(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(sleeps.count(), 2);
    held.gate.open();
    EXPECT_TRUE(spinUntilState(held.client, CSClient::STATE_DISCONNECTED));
    EXPECT_EQ(held.callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
}

TEST(Close, WhileTheOldWorkerIsHeldUpTheClientCannotBeOpened) {
    HeldUpClient held;
    held.client.close();
    EXPECT_EQ(held.client.open(kAnyAddress, 1, nullptr), 2);
}

TEST(Close, AHostThatStallsInTheMiddleOfABodyHoldsTheWorkerUp) {
    ScriptedHost host;
    RecordingCallbacks callbacks;
    SimClient client(1, CSClient::OPTION_SILENT);
    useTransportUnderTest(client);
    client.addCallbackInterface(&callbacks);
    ASSERT_EQ(client.open(ScriptedHost::address(), host.port(), nullptr), 0);
    const std::unique_ptr<ScriptedHost::Peer> peer = host.accept();
    ASSERT_TRUE(peer);
    peer->receiveFrame();
    // A header that announces twelve bytes of body, and the first of them; a header alone, so that it is read by itself.
    peer->send("00 00 00 2C 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF 04");
    // The worker needs to be inside the body, not in front of it, when the close comes. A message that it answers to
    // comes first in the stream, and nothing can be seen of the rest: one receive time-out is enough to get there.
    EXPECT_FALSE(client.waitForConnectionState(CSClient::STATE_DISCONNECTED, 1));
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(client.getServerPort(), 0U);

    peer->send("02 7F FF 00 00 00 0C 00 7F 00 09");
    EXPECT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_TRUE(peer->waitForEnd());
}

TEST(Close, AQuietHostLetsTheWorkerGoInTime) {
    ScriptedHost host;
    SimClient client(1, CSClient::OPTION_SILENT);
    useTransportUnderTest(client);
    ASSERT_EQ(client.open(ScriptedHost::address(), host.port(), nullptr), 0);
    const std::unique_ptr<ScriptedHost::Peer> peer = host.accept();
    ASSERT_TRUE(peer);
    peer->receiveFrame();
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
    EXPECT_TRUE(peer->waitForEnd());
}

TEST(Close, ARetryingClientIsClosedInTime) {
    SimClient client(1, CSClient::OPTION_SILENT | CSClient::OPTION_AUTO_RECONNECT);
    useTransportUnderTest(client);
    ASSERT_EQ(client.open(ScriptedHost::address(), refusingPort(), nullptr), 0);
    EXPECT_FALSE(client.waitForConnectionState(CSClient::STATE_READY, 1));
    EXPECT_EQ(client.getConnectionState(), CSClient::STATE_CONNECTING);
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
}

TEST(Close, AConnectUnderWayHoldsUpNeitherCloseNorQueries) {
    Gate gate;
    RecordingCallbacks callbacks;
    ProbedClient client;
    client.addCallbackInterface(&callbacks);
    client.probed->fakeTransport().onOpen = [&gate] { return gate.pass(); };
    ASSERT_EQ(client.open(kAnyAddress, 1, nullptr), 0);
    ASSERT_TRUE(gate.waitUntilReached());

    const CountedSleeps sleeps;
    EXPECT_EQ(client.getConnectionState(), CSClient::STATE_CONNECTING);
    EXPECT_EQ(client.getServerIPAddress(), "127.0.0.1");
    EXPECT_EQ(client.open(kAnyAddress, 2, nullptr), 2);
    EXPECT_EQ(client.registerOutputParameter({"A", CSClient::TYPE_FLOAT}), 0);
    EXPECT_EQ(sleeps.count(), 0);
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(sleeps.count(), 2);

    gate.open();
    EXPECT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_EQ(callbacks.states(), "0->1 1->3 3->0");
}

TEST(Close, AConnectThatSucceedsAfterTheCloseIsNotUsed) {
    Gate gate;
    ProbedClient client;
    FakeTransport& transport = client.probed->fakeTransport();
    transport.onOpen = [&gate] { return gate.pass(); };
    ASSERT_EQ(client.open(kAnyAddress, 1, nullptr), 0);
    ASSERT_TRUE(gate.waitUntilReached());
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTING);
    gate.open();
    ASSERT_TRUE(client.waitForConnectionState(CSClient::STATE_DISCONNECTED, 5));
    EXPECT_EQ(transport.written(), Lines{});
    EXPECT_GE(transport.closeCount(), 1);
}

}  // namespace
}  // namespace com_tesk::test
