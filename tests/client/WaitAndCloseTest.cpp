#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <future>
#include <stdexcept>
#include <utility>

#include "tests/client/ClientFixtures.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

constexpr unsigned int kStates[] = {0, 1, 2, 3, 4, 5};

/// Returns a callback of `CountedSleeps` that runs `event` in one of the sleeps.
std::function<void(int)> inSleep(int number, const std::function<void()>& event) {
    return [=](int sleep) {
        if (sleep == number) {
            event();
        }
    };
}

std::atomic<int> caught{0};

class StateWait : public testing::Test {
  protected:
    TestClient client;
};

TEST_F(StateWait, SeesTheCurrentStateWithoutSleeping) {
    const CountedSleeps sleeps;
    for (const unsigned int state : kStates) {
        client.pretendState(static_cast<CSClient::State>(state));
        for (const unsigned int wanted : kStates) {
            EXPECT_EQ(client.waitForConnectionState(static_cast<CSClient::State>(wanted), 0), state == wanted)
                << "waiting for " << wanted << " in state " << state;
        }
        EXPECT_TRUE(client.waitForConnectionState(static_cast<CSClient::State>(state), 5));
    }
    EXPECT_EQ(sleeps.count(), 0);
}

TEST_F(StateWait, SleepsOncePerSecondAndSeesAChangeAtTheNextPoll) {
    for (const int change : {1, 3, 4}) {
        client.pretendState(CSClient::STATE_CONNECTING);
        const CountedSleeps sleeps(inSleep(change, [this] { client.pretendState(CSClient::STATE_READY); }));
        // The last poll follows the last sleep.
        EXPECT_EQ(client.waitForConnectionState(CSClient::STATE_READY, 3), change <= 3);
        EXPECT_EQ(sleeps.count(), std::min(change, 3));
    }
}

TEST_F(StateWait, DoesNotSeeAStateThatEndsBetweenTwoPolls) {
    const CountedSleeps sleeps([this](int /*sleep*/) {
        client.pretendState(CSClient::STATE_READY);
        client.pretendState(CSClient::STATE_CONNECTING);
    });
    EXPECT_FALSE(client.waitForConnectionState(CSClient::STATE_READY, 2));
}

TEST_F(StateWait, IsNotBlockedByAnotherThreadWithTheConnectionLock) {
    Gate gate;
    std::thread holder([&] { client.probed->underConnectionLock([&gate] { gate.pass(); }); });
    ASSERT_TRUE(gate.waitUntilReached());
    const Stopwatch watch;
    const CountedSleeps sleeps(inSleep(3, [this] { client.pretendState(CSClient::STATE_RECONNECTING); }));
    client.pretendState(CSClient::STATE_CONNECTED);
    EXPECT_TRUE(client.waitForConnectionState(CSClient::STATE_CONNECTED, 0));
    EXPECT_FALSE(client.waitForConnectionState(CSClient::STATE_READY, 0));
    EXPECT_TRUE(client.waitForConnectionState(CSClient::STATE_RECONNECTING, 3));
    EXPECT_EQ(sleeps.count(), 3);
    EXPECT_LT(watch.seconds(), kWithoutBlocking);
    gate.open();
    holder.join();
}

template <typename Kind>
class ConfirmationWait : public ForEachKind<Kind> {
  protected:
    void registerOne(const char* name) { EXPECT_EQ(Kind::registerOne(this->client, Kind::define(name)), 0); }
    bool wait(unsigned int seconds) { return Kind::wait(this->client, seconds); }
};

TYPED_TEST_SUITE(ConfirmationWait, Kinds, KindNames);

TYPED_TEST(ConfirmationWait, ReturnsAtOnceWhenNothingIsUnconfirmed) {
    const CountedSleeps sleeps;
    EXPECT_TRUE(this->wait(1)) << "nothing is registered";
    this->registerOne("A");
    this->confirm(7, "A");
    EXPECT_TRUE(this->wait(5));
    this->confirm(7, "A");
    EXPECT_TRUE(this->wait(5)) << "the same id again";
    this->registerOne("B");
    TypeParam::unregisterOne(this->client, "B");
    EXPECT_TRUE(this->wait(1)) << "the other one is unregistered";
    EXPECT_EQ(sleeps.count(), 0);
}

TYPED_TEST(ConfirmationWait, WithZeroSecondsIsFalse) {
    const CountedSleeps sleeps;
    EXPECT_FALSE(this->wait(0)) << "nothing is registered";
    this->registerOne("A");
    this->confirm(7, "A");
    EXPECT_FALSE(this->wait(0)) << "everything is confirmed";
    EXPECT_EQ(sleeps.count(), 0);
}

// Unlike the wait for a state, it does not poll after the last sleep.
TYPED_TEST(ConfirmationWait, PollsOncePerSecondAndThenSleeps) {
    this->registerOne("A");
    this->registerOne("B");
    this->confirm(7, "A");
    const CountedSleeps sleeps([this](int sleep) {
        if (sleep == 4 || sleep == 6) {
            this->confirm(8U + static_cast<unsigned int>(sleep), sleep == 4 ? "B" : "C");
        }
    });
    EXPECT_FALSE(this->wait(1));
    EXPECT_EQ(sleeps.count(), 1);
    EXPECT_FALSE(this->wait(3)) << "the confirmation arrives in the last sleep";
    EXPECT_EQ(sleeps.count(), 4);
    this->registerOne("C");
    EXPECT_TRUE(this->wait(3));
    EXPECT_EQ(sleeps.count(), 6);
}

TYPED_TEST(ConfirmationWait, TwoIdsOfOneNameMakeItTimeOut) {
    const CountedSleeps sleeps;
    this->registerOne("A");
    this->confirm(7, "A");
    this->confirm(8, "A");
    EXPECT_FALSE(this->wait(1));
}

TYPED_TEST(ConfirmationWait, IgnoresTheOtherKind) {
    using Other = typename TestFixture::OtherKind;
    const CountedSleeps sleeps;
    Other::registerOne(this->client, Other::define("A"));
    EXPECT_TRUE(this->wait(1));
    EXPECT_FALSE(Other::wait(this->client, 1));
}

// Every wait of a client sleeps in the same way.
TEST_F(StateWait, SleepsWholeSecondsDespiteSignals) {
    struct sigaction action = {};
    struct sigaction previous = {};
    action.sa_handler = [](int /*signal*/) { ++caught; };
    sigaction(SIGUSR1, &action, &previous);
    std::atomic<bool> isOver{false};
    std::thread sender([&isOver, waiting = pthread_self()] {
        while (!isOver) {
            pthread_kill(waiting, SIGUSR1);
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    });
    const Stopwatch watch;
    EXPECT_FALSE(client.waitForConnectionState(CSClient::STATE_READY, 2));
    EXPECT_GE(watch.seconds(), 2.0);
    EXPECT_GE(caught, 5) << "enough to interrupt the sleep several times";
    isOver = true;
    sender.join();
    sigaction(SIGUSR1, &previous, nullptr);
}

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
    const std::string frame = hexFrame("04 02 7F FF 00 00 00 0C 00 7F 00 09");
    session.peer->send(frame.substr(0, 33 * 3));
    // After one receive time-out the worker is inside the body.
    EXPECT_FALSE(session.client->waitForConnectionState(CSClient::STATE_DISCONNECTED, 1));
    EXPECT_EQ(session.client->close(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(session.client->getServerPort(), 0U);
    const std::future<void> destruction = std::async(std::launch::async, [&] { session.client.reset(); });
    EXPECT_EQ(destruction.wait_for(std::chrono::milliseconds(500)), std::future_status::timeout);
    session.peer->send(frame.substr(33 * 3));
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
