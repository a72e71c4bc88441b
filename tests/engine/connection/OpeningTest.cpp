#include <map>
#include <thread>

#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/engine/connection/ThreadHooks.h"

namespace com_tesk::test {
namespace {

TEST(EngineDefaults, NumbersOfStatesAndOptionsArePartOfTheInterface) {
    EXPECT_EQ(static_cast<int>(CSClient::STATE_DISCONNECTED), 0);
    EXPECT_EQ(static_cast<int>(CSClient::STATE_CONNECTING), 1);
    EXPECT_EQ(static_cast<int>(CSClient::STATE_CONNECTED), 2);
    EXPECT_EQ(static_cast<int>(CSClient::STATE_DISCONNECTING), 3);
    EXPECT_EQ(static_cast<int>(CSClient::STATE_READY), 4);
    EXPECT_EQ(static_cast<int>(CSClient::STATE_RECONNECTING), 5);
    EXPECT_EQ(kReconnect, 1U);
    EXPECT_EQ(kSilent, 2U);
    EXPECT_EQ(sizeof(CSClient::State), 4U);
    const CSClient::ConnectionOptions connectionOptions;
    EXPECT_EQ(connectionOptions.receiveBufferSize, 0U);
    EXPECT_EQ(connectionOptions.sendBufferSize, 0U);
}

TEST(EngineDefaults, UnopenedEngineIsDestroyedWithoutAClose) {
    int closes = -1;
    {
        TestEngine engine;
        FakeTransport& transport = engine.fakeTransport();
        transport.onDestruction = [&] { closes = transport.closeCount(); };
    }
    EXPECT_EQ(closes, 0);
}

TEST(EngineOptions, EveryBitOfTheMaskMustBeSet) {
    for (const unsigned int options : {0U, 1U, 2U, 3U, 7U, 0x80000000U, 0xFFFFFFFFU}) {
        const TestEngine engine(1, options);
        EXPECT_EQ(engine.getOptions(), options);
        for (const unsigned int mask : {0U, 1U, 3U, 0x80000000U, 0xFFFFFFFFU}) {
            EXPECT_EQ(engine.hasOptions(mask), (options & mask) == mask) << options << " " << mask;
        }
    }
}

TEST(EngineOptions, OtherBitsHaveNoEffect) {
    TestEngine engine(1, 0xFFFFFFFC);
    engine.connect();
    engine.closeConnection();
    EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING) << "without reconnection";
}

using Opening = HostTest;

TEST_F(Opening, BecomesReadyAndRequestsTheVersionOnce) {
    createForHost(0);
    openToHost();
    accept();
    EXPECT_TRUE(peer->isQuietFor(std::chrono::milliseconds(200)));
    CSClient::ConnectionOptions others;
    others.sendBufferSize = 5000;
    EXPECT_EQ(engine->openConnection(0x02000002, 1, &others), 2) << "it is open";
    EXPECT_TRUE(peer->isQuietFor(std::chrono::milliseconds(100)));
    expectEvents("0->1 1->2 2->4");
    EXPECT_EQ(engine->getState(), CSClient::STATE_READY);
    EXPECT_EQ(engine->getServerIPAddress(), "127.0.0.1");
    EXPECT_EQ(engine->getServerPort(), host.port());
}

TEST_F(Opening, NotifiesOnTheOpeningThreadAndThenOnTheWorker) {
    create();
    std::map<std::string, std::thread::id> threadOf;
    callbacks->onLine = [&threadOf](const std::string& line) { threadOf[line] = std::this_thread::get_id(); };
    const EndOnExit end(*engine);
    open();
    ASSERT_TRUE(callbacks->waitFor("state 2->4"));
    // During the change the worker would perform the close.
    ASSERT_TRUE(engine->waitForStateChange());
    engine->forceCloseConnection();
    ASSERT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
    EXPECT_EQ(threadOf["state 0->1"], std::this_thread::get_id());
    EXPECT_NE(threadOf["state 1->2"], std::this_thread::get_id());
    EXPECT_EQ(threadOf["state 2->4"], threadOf["state 1->2"]);
    EXPECT_EQ(threadOf["state 4->3"], std::this_thread::get_id());
    EXPECT_EQ(threadOf["state 3->0"], threadOf["state 1->2"]);
}

TEST_F(Opening, IsRefusedInEveryStateOfAConnection) {
    for (const CSClient::State state : kStatesOfAConnection) {
        SCOPED_TRACE(state);
        create();
        engine->pretendAddress(kServerAddress, kServerPort);
        engine->pretendState(state);
        EXPECT_EQ(engine->openConnection(0x0200007F, 4712, nullptr), 2);
        EXPECT_EQ(engine->getState(), state);
        EXPECT_EQ(engine->getServerIPAddress(), "127.0.0.1");
        EXPECT_EQ(engine->getServerPort(), kServerPort);
        expectEvents("");
        EXPECT_TRUE(transport().openings().empty());
    }
}

TEST_F(Opening, RefusedByTheHostEndsWithEmptyTables) {
    createForHost(0);
    EXPECT_EQ(engine->registerOutputs({output("A")}), 0);
    open(ScriptedHost::address(), refusingPort());
    ASSERT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
    expectEvents("0->1 1->3 3->0");
    EXPECT_EQ(engine->getNumberOfOutputParameters(false), 0U);
    EXPECT_EQ(engine->getServerIPAddress(), "0.0.0.0");
    EXPECT_EQ(engine->getServerPort(), 0U);
}

TEST_F(Opening, WithReconnectIsTriedOnceASecondWithoutNotifications) {
    create(kReconnect);
    transport().onOpen = [] { return false; };
    open();
    ASSERT_TRUE(waitUntil([this] { return transport().openings().size() >= 3; }));
    const std::vector<FakeTransport::Opening> openings = transport().openings();
    for (std::size_t i = 1; i < 3; ++i) {
        const double pause = std::chrono::duration<double>(openings[i].time - openings[i - 1].time).count();
        EXPECT_TRUE(isOneSecond(pause)) << pause;
        EXPECT_EQ(openings[i].address, kServerAddress);
        EXPECT_EQ(openings[i].port, kServerPort);
    }
    EXPECT_EQ(engine->getState(), CSClient::STATE_CONNECTING);
    expectEvents("0->1");
}

class FailedThreadCreation : public ConnectionTest {
  protected:
    /// Opens while no thread can be started.
    void openInVain() {
        const NoMoreThreads none;
        EXPECT_EQ(engine->openConnection(kServerAddress, kServerPort, nullptr), 2);
    }

    /// Without a worker, no thread changes the state, or performs the end that a close begins.
    void expectLeft(CSClient::State state) {
        FakeTransport other;
        EXPECT_EQ(engine->openConnection(1, 1, nullptr), 2);
        EXPECT_FALSE(engine->changeCommsInterface(&other));
        EXPECT_EQ(engine->getState(), state);
        engine->forceCloseConnection();
        EXPECT_EQ(engine->getState(), CSClient::STATE_DISCONNECTING);
        EXPECT_EQ(engine->getServerIPAddress(), "0.0.0.0");
        EXPECT_EQ(engine->getServerPort(), 0U);
        EXPECT_TRUE(transport().openings().empty());
        EXPECT_EQ(transport().closeCount(), 0);
        expectEvents("0->1 1->3");
    }
};

TEST_F(FailedThreadCreation, WithoutReconnectLeavesTheEngineDisconnecting) {
    create(0);
    EXPECT_EQ(engine->registerOutputs({output("A")}), 0);
    const int refusals = NoMoreThreads::refusals();
    const Stopwatch stopwatch;
    openInVain();
    EXPECT_LT(stopwatch.seconds(), kNoPause);
    EXPECT_EQ(NoMoreThreads::refusals(), refusals + 1);
    EXPECT_EQ(engine->getServerIPAddress(), "0.0.0.0");
    EXPECT_EQ(engine->getNumberOfOutputParameters(false), 1U);
    expectEvents("0->1 1->3");
    expectLeft(CSClient::STATE_DISCONNECTING);
}

TEST_F(FailedThreadCreation, WithReconnectLeavesTheEngineConnectingAfterASecond) {
    create(kReconnect);
    expectPauseWithoutLock("state 0->1", [this] { openInVain(); });
    EXPECT_EQ(engine->getServerIPAddress(), "127.0.0.1");
    EXPECT_EQ(engine->getServerPort(), kServerPort);
    expectEvents("0->1");
    expectLeft(CSClient::STATE_CONNECTING);
}

using ConnectionAttempt = ConnectionTest;

TEST_F(ConnectionAttempt, ThatFailsOrComesInAnotherStateOnlyClosesTheConnection) {
    create();
    transport().onOpen = [] { return false; };
    EXPECT_EQ(engine->connect(), 2);
    EXPECT_EQ(callbacks->states(), "1->3");
    create();
    EXPECT_EQ(engine->startConnection(), 2);
    EXPECT_EQ(engine->getState(), CSClient::STATE_DISCONNECTED);
    for (const CSClient::State other : {CSClient::STATE_CONNECTED, CSClient::STATE_DISCONNECTING, CSClient::STATE_READY,
                                        CSClient::STATE_RECONNECTING}) {
        SCOPED_TRACE(other);
        engine->pretendState(other);
        EXPECT_EQ(engine->startConnection(), 2);
        EXPECT_EQ(engine->getState(), CSClient::STATE_DISCONNECTING);
    }
    EXPECT_TRUE(transport().openings().empty());
}

/// The worker is blocked in the transport's connect until the test opens the gate.
class BlockedConnect : public ConnectionTest {
  protected:
    void openBlocked(unsigned int optionFlags) {
        create(optionFlags);
        transport().onOpen = [this] { return gate.pass(); };
        open();
        ASSERT_TRUE(gate.waitUntilReached());
    }
};

TEST_F(BlockedConnect, BlocksNoOtherThread) {
    openBlocked(kReconnect);
    FakeTransport other;
    const Stopwatch stopwatch;
    EXPECT_EQ(engine->getState(), CSClient::STATE_CONNECTING);
    EXPECT_EQ(engine->getServerIPAddress(), "127.0.0.1");
    EXPECT_EQ(engine->getServerPort(), kServerPort);
    EXPECT_EQ(engine->getServerVersion(), "UNKNOWN");
    EXPECT_EQ(engine->openConnection(1, 1, nullptr), 2);
    EXPECT_FALSE(engine->changeCommsInterface(&other));
    EXPECT_EQ(engine->registerOutputs({output("A")}), 0);
    EXPECT_EQ(engine->getNumberOfOutputParameters(false), 1U);
    EXPECT_EQ(engine->sendMessage(messageOf(RawMessage::DATA, "01")), 1U);
    EXPECT_EQ(engine->getNumCallbackInterfaces(), 1);
    engine->forceCloseConnection();
    EXPECT_EQ(engine->getState(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(engine->getServerIPAddress(), "0.0.0.0");
    EXPECT_LT(stopwatch.seconds(), 2.0);
    EXPECT_EQ(callbacks->states(), "0->1 1->3");
}

TEST_F(BlockedConnect, AfterACloseEndsDisconnectedAndSendsNothing) {
    for (const unsigned int optionFlags : {0U, kReconnect}) {
        for (const bool succeeds : {true, false}) {
            create(optionFlags);
            Gate own;
            transport().onOpen = [&own, succeeds] {
                own.pass();
                return succeeds;
            };
            const EndOnExit end(*engine);
            open();
            ASSERT_TRUE(own.waitUntilReached());
            engine->forceCloseConnection();
            EXPECT_EQ(engine->getState(), CSClient::STATE_DISCONNECTING);
            EXPECT_EQ(engine->openConnection(1, 1, nullptr), 2);
            const Stopwatch stopwatch;
            own.open();
            ASSERT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
            EXPECT_LT(stopwatch.seconds(), kNoPause);
            expectEvents("0->1 1->3 3->0");
            EXPECT_TRUE(transport().written().empty());
            EXPECT_GE(transport().closeCount(), 1);
            EXPECT_EQ(transport().openings().size(), 1U);
        }
    }
    // The engine can be opened again.
    transport().onOpen = nullptr;
    open(0x0200007F, 4712);
    ASSERT_TRUE(waitForState(*engine, CSClient::STATE_READY));
    EXPECT_EQ(transport().openings().at(1).address, 0x0200007FU);
}

TEST_F(BlockedConnect, CloseWithReconnectPausesOnItsOwnThreadOnly) {
    openBlocked(kReconnect | kSilent);
    const Stopwatch stopwatch;
    engine->closeConnection();
    EXPECT_TRUE(isOneSecond(stopwatch.seconds())) << stopwatch.seconds();
    EXPECT_EQ(engine->getState(), CSClient::STATE_CONNECTING);
    EXPECT_EQ(engine->registerOutputs({output("A")}), 0);
    gate.open();
    EXPECT_TRUE(waitUntil([this] { return transport().written().size() == 2; })) << "the registration follows";
    EXPECT_EQ(transport().written().at(0), versionRequestFrame());
    EXPECT_EQ(callbacks->states(), "0->1 1->2 2->4");
}

}  // namespace
}  // namespace com_tesk::test
