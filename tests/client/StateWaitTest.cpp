#include <gtest/gtest.h>

#include "tests/client/CountedSleeps.h"
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

TEST(StateWait, TheSecondsAreReal) {
    const ProbedClient client;
    const Stopwatch watch;
    EXPECT_FALSE(client.waitForConnectionState(CSClient::STATE_READY, 2));
    EXPECT_GE(watch.seconds(), 2.0);
}

}  // namespace
}  // namespace com_tesk::test
