#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>

#include "client/SimClient.h"
#include "tests/client/AllocationFailures.h"
#include "tests/client/CountedSleeps.h"
#include "tests/support/TestEngine.h"

namespace com_tesk::test {
namespace {

/// An application's own client whose constructor fails before there is an engine.
class FailingClient : public CSClient {
  public:
    FailingClient() : CSClient(OPTION_SILENT) {
        EXPECT_EQ(engine, nullptr);
        throw std::runtime_error("no engine today");
    }
};

/// Looks at what the base class has left of the options that it was given.
class LookingClient : public CSClient {
  public:
    LookingClient() : CSClient(0xFFFFFFFFU), hadEngine(engine != nullptr) { engine = new TestEngine(1, 0); }
    const bool hadEngine;
};

TEST(Construction, TheBaseClassInstallsNoEngine) {
    const LookingClient client;
    EXPECT_FALSE(client.hadEngine);
}

TEST(Construction, TheOptionsAreTheEnginesWhateverTheClientWasGiven) {
    const LookingClient client;
    EXPECT_EQ(client.getOptions(), 0U);
    EXPECT_FALSE(client.hasOptions(1));
}

TEST(Construction, AConstructorThatThrowsBeforeItHasAnEngineIsUndoneAtOnce) {
    const CountedSleeps sleeps;
    EXPECT_THROW(FailingClient(), std::runtime_error);
    EXPECT_EQ(sleeps.count(), 0);
}

TEST(Construction, ASimClientStandsDisconnectedWithTheOptionsGiven) {
    const SimClient client(1, 1);
    EXPECT_EQ(client.getOptions(), 1U);
    EXPECT_EQ(client.getConnectionState(), CSClient::STATE_DISCONNECTED);
}

TEST(Construction, AllOptionBitsAreKept) {
    const SimClient client(1, 0xFFFFFFFFU);
    EXPECT_EQ(client.getOptions(), 0xFFFFFFFFU);
}

TEST(Construction, ASimClientIsUsedThroughItsBase) {
    const std::unique_ptr<CSClient> client = std::make_unique<SimClient>(1, CSClient::OPTION_SILENT);
    EXPECT_EQ(client->registerOutputParameter({"A", CSClient::TYPE_FLOAT}), 0);
    EXPECT_EQ(client->getNumberOfUnregisteredOutputParameters(), 1);
    EXPECT_EQ(client->getNumCallbackInterfaces(), 0);
}

// The leak checker watches that nothing of the engine is left behind.
TEST(Construction, ASimClientWhoseEngineCannotBeMadeThrowsAndLeavesNothing) {
    int failures = 0;
    bool hasSucceeded = false;
    while (!hasSucceeded && failures < 1000) {
        const CountedSleeps sleeps;
        const FailingAllocation failing(failures);
        try {
            const SimClient client(1, CSClient::OPTION_SILENT);
            hasSucceeded = !FailingAllocation::hasFailed();
        } catch (const std::bad_alloc&) {
            ++failures;
        }
        ASSERT_EQ(sleeps.count(), 0);
    }
    EXPECT_TRUE(hasSucceeded);
    EXPECT_GE(failures, 1);
}

}  // namespace
}  // namespace com_tesk::test
