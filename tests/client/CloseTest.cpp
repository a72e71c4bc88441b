#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <stdexcept>
#include <utility>

#include "tests/client/ClientFixtures.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/CountedSleeps.h"

namespace com_tesk::test {
namespace {

using BlockedClient = ClientWithBlockedWorker<>;

TEST(Close, WithoutAConnectionReturnsZeroAtOnce) {
    TestClient client;
    const CountedSleeps sleeps;
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(sleeps.count(), 0);
}

TEST(Close, PollsAfterEachOfTwoSleeps) {
    for (const int end : {1, 2}) {
        SCOPED_TRACE(end);
        BlockedClient blocked;
        const CountedSleeps sleeps([&](int sleep) {
            if (sleep == end) {
                blocked.gate.open();
                EXPECT_TRUE(waitForState(*blocked.client, CSClient::STATE_DISCONNECTED));
            }
        });
        EXPECT_EQ(blocked.client->close(), CSClient::STATE_DISCONNECTED);
        EXPECT_EQ(sleeps.count(), end);
        EXPECT_EQ(blocked.callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
    }
}

TEST(Close, AfterTwoSleepsReturnsTheCurrentState) {
    BlockedClient blocked;
    const CountedSleeps sleeps;
    EXPECT_EQ(blocked.client->close(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(sleeps.count(), 2);
    EXPECT_EQ(blocked.client->open(kAnyAddress, 1, nullptr), 2) << "the worker has not ended";
    EXPECT_EQ(blocked.client->close(), CSClient::STATE_DISCONNECTING) << "another close waits for the same worker";
    EXPECT_EQ(sleeps.count(), 4);
    blocked.gate.open();
    EXPECT_TRUE(waitForState(*blocked.client, CSClient::STATE_DISCONNECTED));
    EXPECT_EQ(blocked.callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
}

TEST(Close, DoesNotInterruptAHostThatStallsInABody) {
    ScriptedSession session;
    ASSERT_NO_FATAL_FAILURE(session.connect());
    session.peer->send(kUnfinishedFrame);
    // After one receive time-out the worker is inside the body.
    EXPECT_FALSE(session.client->waitForConnectionState(CSClient::STATE_DISCONNECTED, 1));
    EXPECT_EQ(session.client->close(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(session.client->getServerPort(), 0U);
    const std::future<void> destruction = std::async(std::launch::async, [&] { session.client.reset(); });
    EXPECT_EQ(destruction.wait_for(std::chrono::milliseconds(500)), std::future_status::timeout);
    session.peer->send("02 7F FF 00 00 00 0C 00 7F 00 09");
    EXPECT_TRUE(session.peer->waitForEnd());
    EXPECT_EQ(destruction.wait_for(kWaitBound), std::future_status::ready);
    EXPECT_EQ(session.callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
}

TEST(Close, AndDestructionEndTheConnectionOfASilentHostInTime) {
    ScriptedSession session;
    ASSERT_NO_FATAL_FAILURE(session.connect());
    EXPECT_EQ(session.client->close(), CSClient::STATE_DISCONNECTED);
    EXPECT_TRUE(session.peer->waitForEnd());
    ASSERT_NO_FATAL_FAILURE(session.connect());
    session.client.reset();
    EXPECT_TRUE(session.peer->waitForEnd());
    EXPECT_EQ(session.callbacks.states(), "0->1 1->2 2->4 4->3 3->0 0->1 1->2 2->4 4->3 3->0");
}

TEST(Close, EndsRetriesInTimeAndPrintsNothing) {
    const CapturedStreams streams;
    ScriptedSession session(kReconnect);
    session.host.stopListening();
    ASSERT_NO_FATAL_FAILURE(session.open());
    EXPECT_FALSE(session.client->waitForConnectionState(CSClient::STATE_READY, 1));
    EXPECT_EQ(session.client->getConnectionState(), CSClient::STATE_CONNECTING);
    EXPECT_EQ(session.client->close(), CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST(Close, IsNotBlockedByAConnectInProgress) {
    BlockedClient blocked(BlockedClient::IN_CONNECT);
    const CountedSleeps sleeps;
    EXPECT_EQ(blocked.client->getConnectionState(), CSClient::STATE_CONNECTING);
    EXPECT_EQ(blocked.client->getServerIPAddress(), "127.0.0.1");
    EXPECT_EQ(blocked.client->open(kAnyAddress, 2, nullptr), 2);
    EXPECT_EQ(blocked.client->registerOutputParameter(output("A")), 0);
    EXPECT_EQ(sleeps.count(), 0);
    EXPECT_EQ(blocked.client->close(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(sleeps.count(), 2);
    blocked.gate.open();
    ASSERT_TRUE(blocked.callbacks.waitFor("state 3->0"));
    EXPECT_EQ(blocked.callbacks.states(), "0->1 1->3 3->0");
    const FakeTransport& transport = blocked.client->probed->fakeTransport();
    EXPECT_EQ(transport.written(), Lines{}) << "a connection made after the close is not used";
    EXPECT_GE(transport.closeCount(), 1);
}

/// A thread that has seen `STATE_DISCONNECTED` may act at once.
class EndOfConnection : public testing::Test {
  protected:
    static constexpr int kRounds = 20;

    EndOfConnection() {
        lastCallback.onLine = [this](const std::string& line) {
            if (line == "state 3->0") {
                stateInside = client->getConnectionState();
                gate.pass();
            }
        };
    }
    ~EndOfConnection() override { gate.open(); }

    void connect() {
        ASSERT_EQ(client->open(kAnyAddress, 1, nullptr), 0);
        ASSERT_TRUE(waitForState(*client, CSClient::STATE_READY));
    }

    /// Ends the connection without sleeping.
    void end() {
        client->probed->forceCloseConnection();
        ASSERT_TRUE(waitForState(*client, CSClient::STATE_DISCONNECTED));
    }

    /// Its callback of the end waits at the gate.
    RecordingCallbacks lastCallback;
    Gate gate;
    CSClient::State stateInside = CSClient::STATE_RECONNECTING;
    std::unique_ptr<TestClient> client = std::make_unique<TestClient>();
};

TEST_F(EndOfConnection, CloseReturnsZeroAfterTheLastCallbackWithEmptyTables) {
    client->addCallbackInterface(&lastCallback);
    ASSERT_NO_FATAL_FAILURE(connect());
    client->registerOutputParameter(output("A"));
    client->registerInputParameter(input("B"));
    const CountedSleeps sleeps([&](int sleep) {
        EXPECT_TRUE(gate.waitUntilReached());
        EXPECT_EQ(client->getConnectionState(), CSClient::STATE_DISCONNECTING);
        if (sleep == 4) {
            gate.open();
            EXPECT_TRUE(waitForState(*client, CSClient::STATE_DISCONNECTED));
        }
    });
    EXPECT_EQ(client->close(), CSClient::STATE_DISCONNECTING) << "the callback still runs";
    EXPECT_EQ(client->close(), CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(sleeps.count(), 4);
    EXPECT_EQ(stateInside, CSClient::STATE_DISCONNECTED) << "the callback itself sees it earlier";
    EXPECT_EQ(lastCallback.states(), "0->1 1->2 2->4 4->3 3->0");
    EXPECT_EQ(client->probed->outputTable(), Lines{});
    EXPECT_EQ(client->probed->inputTable(), Lines{});
}

TEST_F(EndOfConnection, AllowsEveryOperationAtOnce) {
    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE(round);
        ASSERT_NO_FATAL_FAILURE(connect());
        ASSERT_NO_FATAL_FAILURE(end());
        ASSERT_NO_FATAL_FAILURE(connect());
        client->registerOutputParameter(output("old"));
        ASSERT_NO_FATAL_FAILURE(end());
        EXPECT_EQ(client->registerOutputParameter(output("new")), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        ASSERT_EQ(client->probed->outputTable(), Lines{"new type 1 waiting 00000000"});
        ASSERT_NO_FATAL_FAILURE(connect());
        ASSERT_NO_FATAL_FAILURE(end());
        client = std::make_unique<TestClient>();
    }
}

/// A client of an application, whose constructor may fail before there is an engine.
class ApplicationClient : public CSClient {
  public:
    explicit ApplicationClient(bool fails = false) : CSClient(0xFFFFFFFFU) {
        EXPECT_EQ(engine, nullptr) << "the base class installs none";
        if (fails) {
            throw std::runtime_error("no engine");
        }
        engine = new TestEngine(1, 0);
    }
};

TEST(Construction, OptionsAreThoseOfTheEngineOfTheSubclass) {
    const ApplicationClient client;
    EXPECT_EQ(client.getOptions(), 0U);
    EXPECT_FALSE(client.hasOptions(1));
}

TEST(Construction, ThatThrowsBeforeThereIsAnEngineIsUndoneAtOnce) {
    const CountedSleeps sleeps;
    EXPECT_THROW(ApplicationClient(true), std::runtime_error);
    EXPECT_EQ(sleeps.count(), 0);
}

TEST(Construction, AllOptionBitsOfASimClientAreKept) {
    for (const unsigned int options : {1U, 0xFFFFFFFFU}) {
        const std::unique_ptr<CSClient> client = std::make_unique<SimClient>(1, options);
        EXPECT_EQ(client->getOptions(), options);
        EXPECT_EQ(client->getConnectionState(), CSClient::STATE_DISCONNECTED);
        EXPECT_EQ(client->getNumCallbackInterfaces(), 0);
    }
}

/// Counts the destructions of engines, and keeps the state of the last.
class CountedEngine : public TestEngine {
  public:
    using TestEngine::TestEngine;
    ~CountedEngine() override {
        ++destructions;
        lastState = getState();
    }

    static inline int destructions = 0;
    static inline CSClient::State lastState = CSClient::STATE_RECONNECTING;
};

using CountedClient = ClientOf<CountedEngine>;

class Destruction : public testing::Test {
  protected:
    Destruction() { CountedEngine::destructions = 0; }

    /// Destroys a client through its base class. Its worker is blocked until that sleep of the destructor.
    static void expectToSleepUntil(int end, ClientWithBlockedWorker<CountedClient>& blocked) {
        const CountedEngine& engine = *blocked.client->probed;
        const CountedSleeps sleeps([&](int sleep) {
            EXPECT_EQ(CountedEngine::destructions, 0);
            EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING);
            if (sleep == end) {
                blocked.gate.open();
                EXPECT_TRUE(waitUntil([&] { return engine.getState() == CSClient::STATE_DISCONNECTED; }));
            }
        });
        std::unique_ptr<CSClient> base = std::move(blocked.client);
        base.reset();
        EXPECT_EQ(sleeps.count(), end);
        EXPECT_EQ(CountedEngine::destructions, 1);
        EXPECT_EQ(CountedEngine::lastState, CSClient::STATE_DISCONNECTED);
    }
};

TEST_F(Destruction, OfAClientThatWasNeverOpenedDoesNotSleep) {
    auto client = std::make_unique<SimClient>(1, kSilent);
    // Without a host to confirm them. The leak checker sees that they are freed.
    EXPECT_EQ(client->registerOutputParameter(output("A")), 0);
    EXPECT_EQ(client->registerInputParameter(input("B")), 0);
    const CountedSleeps sleeps;
    client.reset();
    EXPECT_EQ(sleeps.count(), 0);
}

TEST_F(Destruction, WaitsForTheWorkerLongerThanClose) {
    ClientWithBlockedWorker<CountedClient> blocked;
    expectToSleepUntil(4, blocked);
    EXPECT_EQ(blocked.callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
}

TEST_F(Destruction, WaitsForAConnectInProgress) {
    ClientWithBlockedWorker<CountedClient> blocked(ClientWithBlockedWorker<CountedClient>::IN_CONNECT);
    expectToSleepUntil(3, blocked);
    EXPECT_EQ(blocked.callbacks.states(), "0->1 1->3 3->0");
}

}  // namespace
}  // namespace com_tesk::test
