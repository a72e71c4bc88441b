#include <gtest/gtest.h>

#include <thread>

#include "tests/client/CountedSleeps.h"
#include "tests/client/GatedTransport.h"
#include "tests/client/ProbedClient.h"
#include "tests/client/Stopwatch.h"

namespace com_tesk::test {
namespace {

TEST(StateWait, TheStateThatIsThereIsSeenAtOnce) {
    ProbedClient client;
    client.pretendState(CSClient::STATE_READY);
    const CountedSleeps sleeps;
    EXPECT_TRUE(client.waitForConnectionState(CSClient::STATE_READY, 5));
    EXPECT_EQ(sleeps.count(), 0);
}

TEST(StateWait, ZeroSecondsAreOneLookThatFindsTheState) {
    ProbedClient client;
    client.pretendState(CSClient::STATE_READY);
    EXPECT_TRUE(client.waitForConnectionState(CSClient::STATE_READY, 0));
}

TEST(StateWait, ZeroSecondsAreOneLookWithoutSleeping) {
    ProbedClient client;
    const CountedSleeps sleeps;
    EXPECT_FALSE(client.waitForConnectionState(CSClient::STATE_READY, 0));
    EXPECT_EQ(sleeps.count(), 0);
}

TEST(StateWait, EachStateCanBeWaitedFor) {
    ProbedClient client;
    for (const unsigned int state : {1U, 2U, 3U, 4U, 5U, 0U}) {
        client.pretendState(static_cast<CSClient::State>(state));
        for (const unsigned int wanted : {0U, 1U, 2U, 3U, 4U, 5U}) {
            EXPECT_EQ(client.waitForConnectionState(static_cast<CSClient::State>(wanted), 0), state == wanted)
                << "waiting for " << wanted << " in state " << state;
        }
    }
}

TEST(StateWait, OneSecondIsOneSleep) {
    const ProbedClient client;
    const CountedSleeps sleeps;
    EXPECT_FALSE(client.waitForConnectionState(CSClient::STATE_READY, 1));
    EXPECT_EQ(sleeps.count(), 1);
}

TEST(StateWait, ThreeSecondsAreThreeSleeps) {
    const ProbedClient client;
    const CountedSleeps sleeps;
    EXPECT_FALSE(client.waitForConnectionState(CSClient::STATE_READY, 3));
    EXPECT_EQ(sleeps.count(), 3);
}

TEST(StateWait, AStateReachedDuringASleepIsSeenAtTheNextLook) {
    ProbedClient client;
    client.pretendState(CSClient::STATE_CONNECTING);
    const CountedSleeps sleeps([&client](int sleep) {
        if (sleep == 2) {
            client.pretendState(CSClient::STATE_READY);
        }
    });
    EXPECT_TRUE(client.waitForConnectionState(CSClient::STATE_READY, 5));
    EXPECT_EQ(sleeps.count(), 2);
}

TEST(StateWait, OneLastLookFollowsTheLastSleep) {
    ProbedClient client;
    client.pretendState(CSClient::STATE_CONNECTING);
    const CountedSleeps sleeps([&client](int sleep) {
        if (sleep == 3) {
            client.pretendState(CSClient::STATE_READY);
        }
    });
    EXPECT_TRUE(client.waitForConnectionState(CSClient::STATE_READY, 3));
    EXPECT_EQ(sleeps.count(), 3);
}

TEST(StateWait, AStateThatPassesBetweenTwoLooksIsNotSeen) {
    ProbedClient client;
    client.pretendState(CSClient::STATE_CONNECTING);
    const CountedSleeps sleeps([&client](int /*sleep*/) {
        client.pretendState(CSClient::STATE_READY);
        client.pretendState(CSClient::STATE_CONNECTING);
    });
    EXPECT_FALSE(client.waitForConnectionState(CSClient::STATE_READY, 2));
}

/// An engine whose connection lock another thread can hold.
class LockedEngine : public ProbeEngine {
  public:
    using ProbeEngine::ProbeEngine;

    void holdTheLock(Gate& gate) {
        underConnectionLock([&gate]() { gate.pass(); });
    }
};

/// Another thread holds the connection lock, as during a change of state.
class StateWaitUnderALock : public testing::Test {
  protected:
    StateWaitUnderALock() : holder([this] { client.probed->holdTheLock(gate); }) { gate.waitUntilReached(); }
    ~StateWaitUnderALock() override {
        gate.open();
        holder.join();
    }

    ClientOf<LockedEngine> client;
    Gate gate;
    std::thread holder;
};

TEST_F(StateWaitUnderALock, ZeroSecondsFindTheStateWithoutBlocking) {
    const CountedSleeps sleeps;
    const Stopwatch watch;
    for (const unsigned int state : {1U, 2U, 3U, 4U, 5U}) {
        client.pretendState(static_cast<CSClient::State>(state));
        EXPECT_TRUE(client.waitForConnectionState(static_cast<CSClient::State>(state), 0)) << state;
    }
    EXPECT_LT(watch.seconds(), 0.9);
    EXPECT_EQ(sleeps.count(), 0);
}

TEST_F(StateWaitUnderALock, ZeroSecondsMissTheStateWithoutBlocking) {
    client.pretendState(CSClient::STATE_CONNECTED);
    const CountedSleeps sleeps;
    const Stopwatch watch;
    for (const unsigned int state : {0U, 1U, 3U, 4U, 5U}) {
        EXPECT_FALSE(client.waitForConnectionState(static_cast<CSClient::State>(state), 0)) << state;
    }
    EXPECT_LT(watch.seconds(), 0.9);
    EXPECT_EQ(sleeps.count(), 0);
}

TEST_F(StateWaitUnderALock, SecondsAreCountedAsEver) {
    client.pretendState(CSClient::STATE_CONNECTED);
    const Stopwatch watch;
    const CountedSleeps sleeps([this](int sleep) {
        if (sleep == 3) {
            client.pretendState(CSClient::STATE_RECONNECTING);
        }
    });
    EXPECT_TRUE(client.waitForConnectionState(CSClient::STATE_RECONNECTING, 3));
    EXPECT_EQ(sleeps.count(), 3);
    EXPECT_LT(watch.seconds(), 0.9);
}

TEST(StateWait, TheSecondsAreReal) {
    const ProbedClient client;
    const Stopwatch watch;
    EXPECT_FALSE(client.waitForConnectionState(CSClient::STATE_READY, 2));
    EXPECT_GE(watch.seconds(), 2.0);
}

}  // namespace
}  // namespace com_tesk::test
