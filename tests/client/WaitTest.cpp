#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>
#include <future>
#include <string>
#include <thread>

#include "message/RawMessage.h"
#include "tests/client/ClientFixtures.h"
#include "tests/support/CountedSleeps.h"

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

/// Interrupts the thread that creates it every 50 milliseconds, as a timer of the application does.
class Interruptions {
  public:
    Interruptions() {
        caught = 0;
        struct sigaction action = {};
        action.sa_handler = [](int /*signal*/) { ++caught; };
        sigaction(SIGUSR1, &action, &previous);
        sender = std::thread([this, waiting = pthread_self()] {
            while (!isOver) {
                pthread_kill(waiting, SIGUSR1);
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            }
        });
    }
    ~Interruptions() {
        isOver = true;
        sender.join();
        sigaction(SIGUSR1, &previous, nullptr);
    }

  private:
    struct sigaction previous = {};
    std::atomic<bool> isOver{false};
    std::thread sender;
};

/// Runs an operation that must sleep for two seconds although signals interrupt it.
template <typename Operation>
void expectTwoSeconds(const Operation& operation) {
    const Interruptions interruptions;
    const Stopwatch watch;
    operation();
    EXPECT_GE(watch.seconds(), 2.0);
    EXPECT_GE(caught, 5) << "enough to interrupt the sleep several times";
}

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

TEST(WholeSecondsDespiteSignals, AreSleptByTheWaitForAState) {
    const TestClient client;
    expectTwoSeconds([&] { EXPECT_FALSE(client.waitForConnectionState(CSClient::STATE_READY, 2)); });
}

TYPED_TEST(ConfirmationWait, SleepsWholeSecondsDespiteSignals) {
    this->registerOne("A");
    expectTwoSeconds([this] { EXPECT_FALSE(this->wait(2)); });
}

TEST(WholeSecondsDespiteSignals, AreSleptByClose) {
    const ClientWithBlockedWorker<> blocked;
    expectTwoSeconds([&] { EXPECT_EQ(blocked.client->close(), CSClient::STATE_DISCONNECTING); });
}

struct Change {
    CSClient::State from;
    CSClient::State to;
};

/// A client one of whose changes of state stays in its callback until the gate is open.
class StateChangeInProgress : public testing::TestWithParam<Change> {
  protected:
    void SetUp() override {
        const std::string change = "state " + std::to_string(GetParam().from) + "->" + std::to_string(GetParam().to);
        session.callbacks.onLine = [this, change](const std::string& line) {
            if (line == change) {
                EXPECT_TRUE(client.waitForConnectionState(GetParam().to, 0)) << "in the callback";
                gate.pass();
            }
        };
        // On another thread, because opening itself makes the first change.
        opening = std::async(std::launch::async,
                             [this] { return client.open(ScriptedHost::address(), session.host.port(), nullptr); });
        if (GetParam().from != CSClient::STATE_DISCONNECTED) {
            session.peer = session.host.accept();
            ASSERT_TRUE(session.peer);
        }
        if (GetParam().from == CSClient::STATE_READY) {
            ASSERT_TRUE(session.callbacks.waitFor("state 2->4"));
            session.peer->reset();
        }
        ASSERT_TRUE(gate.waitUntilReached());
    }

    void TearDown() override {
        gate.open();
        EXPECT_EQ(opening.get(), 0);
    }

    Gate gate;
    ScriptedSession session{kSilent | kReconnect};
    CSClient& client = *session.client;
    std::future<int> opening;
};

INSTANTIATE_TEST_SUITE_P(To, StateChangeInProgress,
                         testing::Values(Change{CSClient::STATE_DISCONNECTED, CSClient::STATE_CONNECTING},
                                         Change{CSClient::STATE_CONNECTING, CSClient::STATE_CONNECTED},
                                         Change{CSClient::STATE_CONNECTED, CSClient::STATE_READY},
                                         Change{CSClient::STATE_READY, CSClient::STATE_RECONNECTING}),
                         [](const testing::TestParamInfo<Change>& change) { return std::to_string(change.param.to); });

TEST_P(StateChangeInProgress, DoesNotBlockTheWaitForAState) {
    const CountedSleeps sleeps;
    const Stopwatch watch;
    EXPECT_TRUE(client.waitForConnectionState(GetParam().to, 0));
    EXPECT_TRUE(client.waitForConnectionState(GetParam().to, 4));
    EXPECT_FALSE(client.waitForConnectionState(CSClient::STATE_DISCONNECTING, 0));
    EXPECT_EQ(sleeps.count(), 0);
    EXPECT_FALSE(client.waitForConnectionState(CSClient::STATE_DISCONNECTING, 3));
    EXPECT_EQ(sleeps.count(), 3);
    EXPECT_LT(watch.seconds(), kWithoutBlocking);
}

TEST_P(StateChangeInProgress, LetsARegistrationReachTheHostOnce) {
    ASSERT_TRUE(client.waitForConnectionState(GetParam().to, 0));
    EXPECT_EQ(client.registerOutputParameter(output("A")), 0);
    gate.open();
    if (GetParam().to != CSClient::STATE_CONNECTED && GetParam().to != CSClient::STATE_READY) {
        session.peer = session.host.accept();
        ASSERT_TRUE(session.peer);
    }
    EXPECT_EQ(session.peer->receiveBody(), "04 02 7F FF 00 00 00 14 00 7F 00 06 00 01 00 00 00 00 00 00");
    EXPECT_EQ(session.peer->receiveBody(),
              "04 02 7F FF 00 00 00 3C 00 7F 00 02 00 01 00 00 00 00 00 01 00 00 04 B0 00 00 00 00 " + hexField("A"));
    EXPECT_TRUE(session.peer->isQuietFor(std::chrono::milliseconds(100)));
}

}  // namespace
}  // namespace com_tesk::test
