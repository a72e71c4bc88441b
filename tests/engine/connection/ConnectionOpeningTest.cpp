#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/ScriptedHost.h"
#include "tests/support/TransportUnderTest.h"

namespace com_tesk::test {
namespace {

/// Remembers the thread of each state change.
class ThreadCallbacks : public RecordingCallbacks {
  public:
    void connectionStateChanged(CSClient::State oldState, CSClient::State newState) override {
        threadOf[newState] = std::this_thread::get_id();
        RecordingCallbacks::connectionStateChanged(oldState, newState);
    }

    std::thread::id threadOf[6];
};

TEST(OpeningAConnection, PassesConnectingConnectedAndReadyAndRequestsTheVersionOnce) {
    const CapturedStreams captured;
    RecordingCallbacks callbacks;
    ScriptedHost host;
    SimulatorProtocol engine(1, 0);
    useTransportUnderTest(engine);
    EndOnExit end(engine);
    engine.addCallbackInterface(&callbacks);
    ASSERT_EQ(engine.openConnection(ScriptedHost::address(), host.port(), nullptr), 0);
    const std::unique_ptr<ScriptedHost::Peer> peer = host.accept();
    ASSERT_TRUE(peer);
    EXPECT_EQ(peer->receiveFrame(), versionRequestFrame());
    EXPECT_TRUE(peer->isQuietFor(std::chrono::milliseconds(200)));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4");
    EXPECT_EQ(engine.getState(), CSClient::STATE_READY);
    EXPECT_EQ(engine.getServerIPAddress(), "127.0.0.1");
    EXPECT_EQ(engine.getServerPort(), host.port());
    EXPECT_EQ(captured.out() + captured.err(), "");
}

TEST(OpeningAConnection, IsAnnouncedOnTheOpenersThreadAndProgressOnTheWorkers) {
    ThreadCallbacks callbacks;
    ConnectionEngine engine(kSilent);
    EndOnExit end(engine);
    engine.addCallbackInterface(&callbacks);
    ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
    ASSERT_TRUE(callbacks.waitFor("state 2->4"));
    EXPECT_EQ(callbacks.threadOf[CSClient::STATE_CONNECTING], std::this_thread::get_id());
    EXPECT_NE(callbacks.threadOf[CSClient::STATE_CONNECTED], std::this_thread::get_id());
    EXPECT_EQ(callbacks.threadOf[CSClient::STATE_READY], callbacks.threadOf[CSClient::STATE_CONNECTED]);
    // Otherwise the worker may carry out the close.
    ASSERT_TRUE(engine.waitForStateChange());
    engine.forceCloseConnection();
    ASSERT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_EQ(callbacks.threadOf[CSClient::STATE_DISCONNECTING], std::this_thread::get_id());
    EXPECT_EQ(callbacks.threadOf[CSClient::STATE_DISCONNECTED], callbacks.threadOf[CSClient::STATE_CONNECTED]);
}

TEST(OpeningAConnection, ASecondTimeIsRefusedAndLeavesTheFirstUndisturbed) {
    RecordingCallbacks callbacks;
    ScriptedHost host;
    SimulatorProtocol engine(1, kSilent);
    useTransportUnderTest(engine);
    EndOnExit end(engine);
    engine.addCallbackInterface(&callbacks);
    ASSERT_EQ(engine.openConnection(ScriptedHost::address(), host.port(), nullptr), 0);
    const std::unique_ptr<ScriptedHost::Peer> peer = host.accept();
    ASSERT_TRUE(peer);
    ASSERT_TRUE(callbacks.waitFor("state 2->4"));
    CSClient::ConnectionOptions others;
    others.sendBufferSize = 5000;
    EXPECT_EQ(engine.openConnection(0x02000002, 1, &others), 2);
    EXPECT_EQ(engine.getServerIPAddress(), "127.0.0.1");
    EXPECT_EQ(engine.getServerPort(), host.port());
    EXPECT_EQ(peer->receiveFrame(), versionRequestFrame());
    EXPECT_TRUE(peer->isQuietFor(std::chrono::milliseconds(100)));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4");
}

class OpeningInAnotherState : public testing::TestWithParam<CSClient::State> {};

TEST_P(OpeningInAnotherState, IsRefusedAndChangesNothing) {
    RecordingCallbacks callbacks;
    ConnectionEngine engine(kSilent);
    engine.addCallbackInterface(&callbacks);
    engine.pretendAddress(0x0100007F, 4711);
    engine.pretendState(GetParam());
    EXPECT_EQ(engine.openConnection(0x0200007F, 4712, nullptr), 2);
    EXPECT_EQ(engine.getState(), GetParam());
    EXPECT_EQ(engine.getServerIPAddress(), "127.0.0.1");
    EXPECT_EQ(engine.getServerPort(), 4711U);
    EXPECT_EQ(callbacks.states(), "");
    EXPECT_TRUE(engine.probe().openings().empty());
}

INSTANTIATE_TEST_SUITE_P(State, OpeningInAnotherState,
                         testing::Values(CSClient::STATE_CONNECTING, CSClient::STATE_CONNECTED,
                                         CSClient::STATE_DISCONNECTING, CSClient::STATE_READY,
                                         CSClient::STATE_RECONNECTING),
                         testing::PrintToStringParamName());

TEST(OpeningAConnection, RefusedWithoutReconnectEndsDisconnectedWithEmptyTables) {
    const CapturedStreams captured;
    RecordingCallbacks callbacks;
    SimulatorProtocol engine(1, 0);
    useTransportUnderTest(engine);
    EndOnExit end(engine);
    engine.addCallbackInterface(&callbacks);
    const CSClient::OutputDef output{"A", CSClient::TYPE_INT};
    EXPECT_EQ(engine.registerOutputParameters(&output, 1), 0);
    ASSERT_EQ(engine.openConnection(ScriptedHost::address(), refusingPort(), nullptr), 0);
    ASSERT_TRUE(waitForState(engine, CSClient::STATE_DISCONNECTED));
    EXPECT_EQ(callbacks.states(), "0->1 1->3 3->0");
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 0U);
    EXPECT_EQ(engine.getServerIPAddress(), "0.0.0.0");
    EXPECT_EQ(engine.getServerPort(), 0U);
    EXPECT_EQ(captured.out() + captured.err(), "");
}

TEST(OpeningAConnection, RefusedWithReconnectIsTriedAboutOnceASecondWithoutFurtherNotifications) {
    const CapturedStreams captured;
    RecordingCallbacks callbacks;
    ConnectionEngine engine(kReconnect);
    EndOnExit end(engine);
    engine.addCallbackInterface(&callbacks);
    engine.probe().onOpen = [] { return false; };
    ASSERT_EQ(engine.openConnection(0x0100007F, 4711, nullptr), 0);
    ASSERT_TRUE(waitUntil([&engine] { return engine.probe().openings().size() >= 4; }));
    const std::vector<ProbeTransport::Opening> openings = engine.probe().openings();
    for (std::size_t i = 1; i < 4; ++i) {
        const double pause = std::chrono::duration<double>(openings[i].time - openings[i - 1].time).count();
        EXPECT_TRUE(isOneSecond(pause)) << pause;
        EXPECT_EQ(openings[i].address, 0x0100007FU);
        EXPECT_EQ(openings[i].port, 4711U);
    }
    EXPECT_EQ(callbacks.states(), "0->1");
    EXPECT_EQ(engine.getState(), CSClient::STATE_CONNECTING);
    EXPECT_EQ(captured.out() + captured.err(), "");
}

TEST(OpeningAConnection, RefusingHostIsReachedOnceItListens) {
    RecordingCallbacks callbacks;
    ScriptedHost host;
    host.stopListening();
    SimulatorProtocol engine(1, kReconnect | kSilent);
    useTransportUnderTest(engine);
    EndOnExit end(engine);
    engine.addCallbackInterface(&callbacks);
    ASSERT_EQ(engine.openConnection(ScriptedHost::address(), host.port(), nullptr), 0);
    // Long enough for a refused attempt, whatever the machine is doing: a listening host would have been reached.
    EXPECT_FALSE(callbacks.waitFor("state 1->2", 1, std::chrono::milliseconds(1200)));
    host.listenAgain();
    const std::unique_ptr<ScriptedHost::Peer> peer = host.accept();
    ASSERT_TRUE(peer);
    EXPECT_EQ(peer->receiveFrame(), versionRequestFrame());
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4");
}

TEST(OpeningAConnection, RetriesEndWithAForcedClose) {
    RecordingCallbacks callbacks;
    SimulatorProtocol engine(1, kReconnect | kSilent);
    useTransportUnderTest(engine);
    EndOnExit end(engine);
    engine.addCallbackInterface(&callbacks);
    ASSERT_EQ(engine.openConnection(ScriptedHost::address(), refusingPort(), nullptr), 0);
    engine.forceCloseConnection();
    EXPECT_TRUE(waitForState(engine, CSClient::STATE_DISCONNECTED));
    EXPECT_EQ(callbacks.states(), "0->1 1->3 3->0");
}

TEST(OpeningAConnection, WorksAgainAfterAClose) {
    ScriptedHost host;
    SimulatorProtocol engine(1, kSilent);
    useTransportUnderTest(engine);
    for (int round = 0; round < 3; ++round) {
        EndOnExit end(engine);
        ASSERT_EQ(engine.openConnection(ScriptedHost::address(), host.port(), nullptr), 0);
        const std::unique_ptr<ScriptedHost::Peer> peer = host.accept();
        ASSERT_TRUE(peer);
        EXPECT_EQ(peer->receiveFrame(), versionRequestFrame());
        engine.forceCloseConnection();
        EXPECT_TRUE(peer->waitForEnd());
    }
}

TEST(OpeningAConnection, RegistrationsMadeBeforeAreSentWhenTheHostAccepts) {
    ScriptedHost host;
    SimulatorProtocol engine(1, kSilent);
    useTransportUnderTest(engine);
    EndOnExit end(engine);
    const CSClient::OutputDef output{"B", CSClient::TYPE_INT};
    EXPECT_EQ(engine.registerOutputParameters(&output, 1), 0);
    ASSERT_EQ(engine.openConnection(ScriptedHost::address(), host.port(), nullptr), 0);
    const std::unique_ptr<ScriptedHost::Peer> peer = host.accept();
    ASSERT_TRUE(peer);
    EXPECT_EQ(peer->receiveFrame(), versionRequestFrame());
    EXPECT_EQ(
        peer->receiveBody(),
        "04 02 7F FF 00 00 00 3C 00 7F 00 02 00 01 00 00 00 00 00 01 00 00 04 B0 00 00 00 01 42 " + hexField("", 31));
}

}  // namespace
}  // namespace com_tesk::test
