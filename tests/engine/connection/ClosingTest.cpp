#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/engine/connection/ThreadHooks.h"

namespace com_tesk::test {
namespace {

/// One operation in one state, and what it does.
struct CloseCase {
    const char* name;
    unsigned int options;
    CSClient::State before;
    const char* states;  ///< The state changes.
    bool pauses;
};

constexpr auto kState0 = CSClient::STATE_DISCONNECTED;
constexpr auto kState1 = CSClient::STATE_CONNECTING;
constexpr auto kState2 = CSClient::STATE_CONNECTED;
constexpr auto kState3 = CSClient::STATE_DISCONNECTING;
constexpr auto kState4 = CSClient::STATE_READY;
constexpr auto kState5 = CSClient::STATE_RECONNECTING;

/// The end of a connection, which a forced close also begins with reconnection.
const CloseCase kEnds[] = {{"In0", 0, kState0, "", false},     {"In1", 0, kState1, "1->3", false},
                           {"In2", 0, kState2, "2->3", false}, {"In3", 0, kState3, "", false},
                           {"In4", 0, kState4, "4->3", false}, {"In5", 0, kState5, "5->3", false}};

const CloseCase kReconnections[] = {{"In0", kReconnect, kState0, "", false},
                                    {"In1", kReconnect, kState1, "", true},
                                    {"In2", kReconnect, kState2, "2->1", true},
                                    {"In3", kReconnect, kState3, "", false},
                                    {"In4", kReconnect, kState4, "4->5 5->1", true},
                                    {"In5", kReconnect, kState5, "", true},
                                    {"SilentIn4", kReconnect | kSilent, kState4, "4->5 5->1", true}};

class CloseOperation : public ConnectionTest, public testing::WithParamInterface<CloseCase> {
  protected:
    void prepare(unsigned int optionFlags) {
        create(optionFlags);
        engine->pretendAddress(kServerAddress, kServerPort);
        engine->pretendState(GetParam().before);
    }

    void expectOutcome(double seconds) {
        const std::string states = GetParam().states;
        const bool isSilent = GetParam().options == (kReconnect | kSilent);
        const bool isServerKept = states.empty() || states.back() != '3';
        expectEvents(states, "", states == "4->5 5->1" && !isSilent ? kReconnectLine : "");
        EXPECT_EQ(std::to_string(engine->getState()),
                  states.empty() ? std::to_string(GetParam().before) : states.substr(states.size() - 1));
        EXPECT_EQ(engine->getServerIPAddress(), isServerKept ? "127.0.0.1" : "0.0.0.0");
        EXPECT_EQ(engine->getServerPort(), isServerKept ? kServerPort : 0U);
        EXPECT_TRUE(GetParam().pauses ? isOneSecond(seconds) : seconds < kNoPause) << seconds;
        EXPECT_EQ(transport().closeCount(), 0) << "the worker closes the transport";
    }
};

TEST_P(CloseOperation, DependsOnTheState) {
    prepare(GetParam().options);
    const Stopwatch stopwatch;
    engine->closeConnection();
    expectOutcome(stopwatch.seconds());
}

INSTANTIATE_TEST_SUITE_P(WithoutReconnect, CloseOperation, testing::ValuesIn(kEnds), kByName);
INSTANTIATE_TEST_SUITE_P(WithReconnect, CloseOperation, testing::ValuesIn(kReconnections), kByName);

using ForcedCloseOperation = CloseOperation;

TEST_P(ForcedCloseOperation, BeginsTheEndWithoutAPause) {
    for (const unsigned int optionFlags : {0U, kReconnect}) {
        prepare(optionFlags);
        const Stopwatch stopwatch;
        engine->forceCloseConnection();
        expectOutcome(stopwatch.seconds());
    }
}

INSTANTIATE_TEST_SUITE_P(State, ForcedCloseOperation, testing::ValuesIn(kEnds), kByName);

using CloseWithReconnect = ConnectionTest;

TEST_F(CloseWithReconnect, PausesWithoutAnyLock) {
    connect(kReconnect);
    expectPauseWithoutLock("state 5->1", [this] { engine->closeConnection(); });
}

/// An operation that locks `connectionMutex`.
struct LockingOperation {
    const char* name;
    void (*run)(TestEngine& engine);
};

const LockingOperation kLockingOperations[] = {
    {"OpeningInVain", [](TestEngine& engine) { engine.openConnection(1, 1, nullptr); }},
    {"ChangingTheTransport",
     [](TestEngine& engine) {
         FakeTransport refused;
         EXPECT_FALSE(engine.changeCommsInterface(&refused));
     }},
    {"Closing", [](TestEngine& engine) { engine.closeConnection(); }},
    {"StartingAConnection", [](TestEngine& engine) { engine.startConnection(); }},
    {"ChangingTheState", [](TestEngine& engine) { engine.changeState(CSClient::STATE_CONNECTING); }},
    {"AFailedWrite",
     [](TestEngine& engine) {
         engine.fakeTransport().failWrites(-1, EPIPE);
         sendControl(engine);
     }},
};

class LockHeldDuringAClose : public ConnectionTest {
  protected:
    void TearDown() override {
        goOn.open();
        ConnectionTest::TearDown();
    }

    /// Opens, with a worker that stays in its first read until the gate is open.
    void openWithBusyWorker() {
        create(kReconnect | kSilent);
        transport().onRead = [this](unsigned int /*count*/) { gate.pass(); };
        open();
        ASSERT_TRUE(gate.waitUntilReached());
    }

    /// Closes while another thread runs the operation and holds the first lock that it takes for longer than a close
    /// waits.
    void closeWhileHeldBy(const std::function<void()>& operation) {
        auto holding = onAnotherThread([&] {
            {
                const HeldMutex held(engine->connectionPart(), [this] {
                    wasHeld = true;
                    isHeld.open();
                    goOn.wait();
                });
                operation();
            }
            isHeld.open();
        });
        ASSERT_TRUE(isHeld.wait());
        ASSERT_TRUE(wasHeld) << "the operation has not taken the lock";
        engine->forceCloseConnection();
        goOn.open();
        ASSERT_EQ(holding.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    }

    std::atomic<bool> wasHeld{false};
    Latch isHeld;
    Latch goOn;
};

class HeldLock : public LockHeldDuringAClose, public testing::WithParamInterface<LockingOperation> {};

TEST_P(HeldLock, DoesNotLoseTheClose) {
    gate.open();
    openWithBusyWorker();
    closeWhileHeldBy([this] { GetParam().run(*engine); });
    EXPECT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED)) << engine->getState();
}

TEST_P(HeldLock, IsFollowedByTheCloseAlsoWhenTheWorkerIsBusy) {
    openWithBusyWorker();
    closeWhileHeldBy([this] { GetParam().run(*engine); });
    EXPECT_EQ(engine->getState(), CSClient::STATE_DISCONNECTING);
    gate.open();
    EXPECT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED)) << engine->getState();
}

INSTANTIATE_TEST_SUITE_P(By, HeldLock, testing::ValuesIn(kLockingOperations), kByName);

TEST_F(LockHeldDuringAClose, ByOpeningDoesNotLoseTheClose) {
    create(kReconnect | kSilent);
    closeWhileHeldBy([this] { open(); });
    EXPECT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED)) << engine->getState();
}

using Interruptions = std::vector<bool>;

class CloseRequest : public ConnectionTest {
  protected:
    /// Opens an engine whose change to `STATE_READY` is blocked in its first write until the gate is open.
    void openBlocked(unsigned int optionFlags) {
        create(optionFlags);
        transport().onWrite = [this] { gate.pass(); };
        open();
        ASSERT_TRUE(gate.waitUntilReached());
    }

    /// Opens again, and checks that no earlier request closes that connection.
    void expectNextConnectionStays() {
        ASSERT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
        open();
        ASSERT_TRUE(callbacks->waitFor("state 2->4", 2));
        transport().queueFrame("0A");
        EXPECT_TRUE(waitUntil([this] { return engine->received().size() == 1; }));
        EXPECT_EQ(engine->getState(), CSClient::STATE_READY);
    }
};

TEST_F(CloseRequest, DoesNotWaitForABlockedStateChange) {
    openBlocked(0);
    const Stopwatch stopwatch;
    EXPECT_EQ(engine->getServerVersion(), "UNKNOWN");
    EXPECT_EQ(engine->getServerIPAddress(), "127.0.0.1");
    EXPECT_EQ(engine->getNumberOfOutputParameters(false), 0U);
    engine->forceCloseConnection();
    EXPECT_EQ(engine->getState(), CSClient::STATE_READY) << "the change itself continues";
    EXPECT_LT(stopwatch.seconds(), kNoPause);
}

TEST_F(CloseRequest, IsPerformedOnceAfterTheStateChange) {
    openBlocked(kReconnect);
    for (int i = 0; i < 3; ++i) {
        engine->forceCloseConnection();
    }
    gate.open();
    EXPECT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
    expectEvents("0->1 1->2 2->4 4->3 3->0");
    EXPECT_EQ(transport().closeCount(), 1);
    EXPECT_EQ(engine->getServerIPAddress(), "0.0.0.0");
    EXPECT_EQ(engine->getServerPort(), 0U);
}

TEST_F(CloseRequest, EndsABlockedWriteOfATransportThatCanBeInterrupted) {
    openBlocked(kReconnect);
    transport().onInterruption = [this](bool isInterrupted) {
        if (isInterrupted) {
            transport().failWrites(-1, ECANCELED);
            gate.open();
        }
    };
    const Stopwatch stopwatch;
    engine->forceCloseConnection();
    EXPECT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
    EXPECT_LT(stopwatch.seconds(), kNoPause) << "the failed write begins no reconnection";
    expectEvents("0->1 1->2 2->4 4->3 3->0", "Error writing to server (125) \n");
}

TEST_F(CloseRequest, ForOneConnectionDoesNotCloseTheNext) {
    openBlocked(0);
    engine->forceCloseConnection();
    gate.open();
    ASSERT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
    engine->forceCloseConnection();
    expectNextConnectionStays();
}

TEST_F(CloseRequest, MadeWhileTheConnectionEndsIsNotKeptForTheNext) {
    create(kReconnect | kSilent);
    transport().onClose = [this] { gate.pass(); };
    open();
    ASSERT_TRUE(callbacks->waitFor("state 2->4"));
    engine->forceCloseConnection();
    ASSERT_TRUE(gate.waitUntilReached());
    engine->forceCloseConnection();
    gate.open();
    expectNextConnectionStays();
}

TEST_F(CloseRequest, InsideAStateChangeIsPerformedAfterIt) {
    create(kReconnect | kSilent);
    std::atomic<CSClient::State> stateInside{CSClient::STATE_DISCONNECTED};
    const EndOnExit end(*engine);
    callbacks->onLine = [&](const std::string& line) {
        if (line == "state 2->4") {
            engine->forceCloseConnection();
            stateInside = engine->getState();
        }
    };
    open();
    EXPECT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
    EXPECT_EQ(stateInside, CSClient::STATE_READY);
    expectEvents("0->1 1->2 2->4 4->3 3->0");
}

using Interruption = ConnectionTest;

TEST_F(Interruption, EndsWithOpeningAndBeginsWithClosing) {
    create(kReconnect | kSilent);
    // With the first read the change to ready is complete. Otherwise two threads would interrupt.
    transport().onRead = [this](unsigned int /*count*/) { gate.pass(); };
    transport().onInterruption = [this](bool isInterrupted) {
        EXPECT_EQ(engine->getState(), isInterrupted ? CSClient::STATE_DISCONNECTING : CSClient::STATE_DISCONNECTED);
    };
    open();
    ASSERT_TRUE(gate.waitUntilReached());
    EXPECT_EQ(transport().interruptions(), Interruptions{false});
    engine->forceCloseConnection();
    EXPECT_EQ(transport().interruptions(), (Interruptions{false, true}));
    gate.open();
    ASSERT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
    open();
    EXPECT_EQ(transport().interruptions(), (Interruptions{false, true, false}));
    // Then the close at the end of the test is no request to another thread.
    EXPECT_TRUE(waitForState(*engine, CSClient::STATE_READY) && engine->waitForStateChange());
}

TEST_F(Interruption, IsNotUsedByReconnectionsNorWithoutAConnection) {
    create(kReconnect | kSilent);
    engine->forceCloseConnection();
    engine->connect();
    engine->closeConnection();
    EXPECT_EQ(engine->startConnection(), 0);
    EXPECT_EQ(transport().interruptions(), Interruptions{});
}

}  // namespace
}  // namespace com_tesk::test
