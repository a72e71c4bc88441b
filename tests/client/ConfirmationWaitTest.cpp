#include <gtest/gtest.h>

#include <functional>

#include "tests/client/CountedSleeps.h"
#include "tests/client/ProbedClient.h"
#include "tests/client/Stopwatch.h"

namespace com_tesk::test {
namespace {

/// Both waits look alike at their own side.
struct Side {
    const char* name;
    bool (CSClient::*wait)(unsigned int seconds) const;
    void (*registerOne)(CSClient& client, const char* name);
    std::string (*confirmation)(unsigned int id, const std::string& name);
    void (*unregisterAll)(CSClient& client);
};

const Side kOutputs{"Outputs", &CSClient::waitForOutputsToBeRegistered,
                    [](CSClient& client, const char* name) {
                        EXPECT_EQ(client.registerOutputParameter({name, CSClient::TYPE_FLOAT}), 0);
                    },
                    outputConfirmation, [](CSClient& client) { client.unregisterAllOutputParameters(); }};

const Side kInputs{"Inputs", &CSClient::waitForInputsToBeRegistered,
                   [](CSClient& client, const char* name) {
                       EXPECT_EQ(client.registerInputParameter({name, CSClient::TYPE_FLOAT, 1}), 0);
                   },
                   inputConfirmation, [](CSClient& client) { client.unregisterAllInputParameters(); }};

class ConfirmationWait : public testing::TestWithParam<Side> {
  protected:
    bool wait(unsigned int seconds) const { return (client.*GetParam().wait)(seconds); }
    void registerOne(const char* name) { GetParam().registerOne(client, name); }
    void confirm(unsigned int id, const char* name) { client.probed->receive(GetParam().confirmation(id, name)); }

    /// The host's answer, while the thread that waits is in that sleep.
    std::function<void(int)> confirmIn(int when, unsigned int id, const char* name) {
        return [this, when, id, name](int sleep) {
            if (sleep == when) {
                confirm(id, name);
            }
        };
    }

    ProbedClient client;
};

INSTANTIATE_TEST_SUITE_P(Of, ConfirmationWait, testing::Values(kOutputs, kInputs),
                         [](const testing::TestParamInfo<Side>& side) { return std::string(side.param.name); });

TEST_P(ConfirmationWait, WithNothingRegisteredNothingIsMissing) {
    const CountedSleeps sleeps;
    EXPECT_TRUE(wait(1));
    EXPECT_EQ(sleeps.count(), 0);
}

TEST_P(ConfirmationWait, ConfirmedParametersAreSeenAtOnce) {
    registerOne("A");
    confirm(7, "A");
    const CountedSleeps sleeps;
    EXPECT_TRUE(wait(5));
    EXPECT_EQ(sleeps.count(), 0);
}

TEST_P(ConfirmationWait, ZeroSecondsAreFalseEvenWhenEverythingIsConfirmed) {
    registerOne("A");
    confirm(7, "A");
    EXPECT_FALSE(wait(0));
}

TEST_P(ConfirmationWait, ZeroSecondsAreFalseWithNothingRegistered) {
    const CountedSleeps sleeps;
    EXPECT_FALSE(wait(0));
    EXPECT_EQ(sleeps.count(), 0);
}

TEST_P(ConfirmationWait, OneSecondIsOneLookAndOneSleep) {
    registerOne("A");
    const CountedSleeps sleeps;
    EXPECT_FALSE(wait(1));
    EXPECT_EQ(sleeps.count(), 1);
}

TEST_P(ConfirmationWait, ThreeSecondsAreThreeSleeps) {
    registerOne("A");
    const CountedSleeps sleeps;
    EXPECT_FALSE(wait(3));
    EXPECT_EQ(sleeps.count(), 3);
}

TEST_P(ConfirmationWait, OneUnconfirmedParameterAmongOthersIsMissing) {
    const CountedSleeps sleeps;
    registerOne("A");
    registerOne("B");
    confirm(7, "A");
    EXPECT_FALSE(wait(1));
}

TEST_P(ConfirmationWait, AConfirmationDuringASleepIsSeenAtTheNextLook) {
    registerOne("A");
    const CountedSleeps sleeps(confirmIn(1, 7, "A"));
    EXPECT_TRUE(wait(2));
    EXPECT_EQ(sleeps.count(), 1);
}

// Unlike the wait for a state.
TEST_P(ConfirmationWait, NoLookFollowsTheLastSleep) {
    registerOne("A");
    const CountedSleeps sleeps(confirmIn(3, 7, "A"));
    EXPECT_FALSE(wait(3));
    EXPECT_EQ(sleeps.count(), 3);
}

TEST_P(ConfirmationWait, AnIdOfAnEarlierConnectionMakesTheWaitRunOut) {
    const CountedSleeps sleeps;
    registerOne("A");
    confirm(7, "A");
    confirm(8, "A");
    EXPECT_FALSE(wait(1));
}

TEST_P(ConfirmationWait, TheSameIdAgainIsSeenAtOnce) {
    registerOne("A");
    confirm(7, "A");
    confirm(7, "A");
    EXPECT_TRUE(wait(1));
}

TEST_P(ConfirmationWait, UnregisteredParametersAreNotWaitedFor) {
    registerOne("A");
    GetParam().unregisterAll(client);
    EXPECT_TRUE(wait(1));
}

TEST_P(ConfirmationWait, TheSecondsAreReal) {
    registerOne("A");
    const Stopwatch watch;
    EXPECT_FALSE(wait(1));
    EXPECT_GE(watch.seconds(), 1.0);
}

TEST(ConfirmationWaits, UnconfirmedInputsDoNotHoldUpTheOutputs) {
    const CountedSleeps sleeps;
    ProbedClient client;
    client.registerInputParameter({"A", CSClient::TYPE_FLOAT, 1});
    EXPECT_TRUE(client.waitForOutputsToBeRegistered(1));
    EXPECT_FALSE(client.waitForInputsToBeRegistered(1));
}

TEST(ConfirmationWaits, UnconfirmedOutputsDoNotHoldUpTheInputs) {
    const CountedSleeps sleeps;
    ProbedClient client;
    client.registerOutputParameter({"A", CSClient::TYPE_FLOAT});
    EXPECT_TRUE(client.waitForInputsToBeRegistered(1));
    EXPECT_FALSE(client.waitForOutputsToBeRegistered(1));
}

}  // namespace
}  // namespace com_tesk::test
