#include <gtest/gtest.h>

#include <future>
#include <set>

#include "client/SimClient.h"
#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

using Interfaces = std::set<CSClient::CallbackIface*>;

class CallbackRegistry : public testing::Test {
  protected:
    ConnectionEngine engine{kSilent};
    RecordingCallbacks first;
    RecordingCallbacks second;
};

TEST_F(CallbackRegistry, IsEmptyAtFirst) {
    EXPECT_EQ(engine.getNumCallbackInterfaces(), 0);
    EXPECT_FALSE(engine.hasCallbackInterface(&first));
    Interfaces out;
    EXPECT_EQ(engine.getCallbackInterfaces(out), 0);
    EXPECT_TRUE(out.empty());
}

TEST_F(CallbackRegistry, AddsAnInterfaceOnce) {
    EXPECT_EQ(engine.addCallbackInterface(&first), 1U);
    EXPECT_EQ(engine.addCallbackInterface(&first), 0U);
    EXPECT_EQ(engine.getNumCallbackInterfaces(), 1);
    EXPECT_TRUE(engine.hasCallbackInterface(&first));
    EXPECT_FALSE(engine.hasCallbackInterface(&second));
}

TEST_F(CallbackRegistry, InterfaceAddedTwiceIsNotifiedOncePerEvent) {
    engine.addCallbackInterface(&first);
    engine.addCallbackInterface(&first);
    engine.changeState(CSClient::STATE_CONNECTING);
    EXPECT_EQ(first.states(), "0->1");
}

TEST_F(CallbackRegistry, RefusesNull) {
    EXPECT_EQ(engine.addCallbackInterface(nullptr), 0U);
    EXPECT_EQ(engine.getNumCallbackInterfaces(), 0);
    EXPECT_FALSE(engine.hasCallbackInterface(nullptr));
    EXPECT_EQ(engine.removeCallbackInterface(nullptr), 0);
    engine.changeState(CSClient::STATE_CONNECTING);
}

TEST_F(CallbackRegistry, RemovesAnInterface) {
    engine.addCallbackInterface(&first);
    engine.addCallbackInterface(&second);
    EXPECT_EQ(engine.removeCallbackInterface(&first), 0);
    EXPECT_FALSE(engine.hasCallbackInterface(&first));
    EXPECT_TRUE(engine.hasCallbackInterface(&second));
    EXPECT_EQ(engine.getNumCallbackInterfaces(), 1);
    engine.changeState(CSClient::STATE_CONNECTING);
    EXPECT_EQ(first.states(), "");
    EXPECT_EQ(second.states(), "0->1");
}

TEST_F(CallbackRegistry, RemovingAnInterfaceThatIsNotThereChangesNothing) {
    engine.addCallbackInterface(&first);
    EXPECT_EQ(engine.removeCallbackInterface(&second), 0);
    EXPECT_EQ(engine.getNumCallbackInterfaces(), 1);
    EXPECT_TRUE(engine.hasCallbackInterface(&first));
}

TEST_F(CallbackRegistry, InterfaceCanBeAddedAgainAfterItsRemoval) {
    engine.addCallbackInterface(&first);
    engine.removeCallbackInterface(&first);
    EXPECT_EQ(engine.addCallbackInterface(&first), 1U);
    engine.changeState(CSClient::STATE_CONNECTING);
    EXPECT_EQ(first.states(), "0->1");
}

TEST_F(CallbackRegistry, CopyReplacesWhatWasInTheSet) {
    RecordingCallbacks stranger;
    engine.addCallbackInterface(&first);
    engine.addCallbackInterface(&second);
    Interfaces out{&stranger};
    EXPECT_EQ(engine.getCallbackInterfaces(out), 0);
    EXPECT_EQ(out, (Interfaces{&first, &second}));
}

TEST_F(CallbackRegistry, CopyOfAnEmptyRegistryEmptiesTheSet) {
    Interfaces out{&first};
    EXPECT_EQ(engine.getCallbackInterfaces(out), 0);
    EXPECT_TRUE(out.empty());
}

TEST_F(CallbackRegistry, CopyOntoItselfDoesNothing) {
    engine.addCallbackInterface(&first);
    engine.addCallbackInterface(&second);
    EXPECT_EQ(engine.copyRegistryOntoItself(), 0);
    EXPECT_EQ(engine.getNumCallbackInterfaces(), 2);
    engine.changeState(CSClient::STATE_CONNECTING);
    EXPECT_EQ(first.states(), "0->1");
    EXPECT_EQ(second.states(), "0->1");
}

TEST_F(CallbackRegistry, CopyIsNotTheRegistry) {
    engine.addCallbackInterface(&first);
    Interfaces out;
    engine.getCallbackInterfaces(out);
    out.clear();
    EXPECT_EQ(engine.getNumCallbackInterfaces(), 1);
    engine.getCallbackInterfaces(out);
    engine.removeCallbackInterface(&first);
    EXPECT_EQ(out.count(&first), 1U);
}

TEST_F(CallbackRegistry, NeverDeletesAnInterface) {
    struct Deletable : RecordingCallbacks {
        explicit Deletable(bool& flag) : deleted(flag) {}
        ~Deletable() override { deleted = true; }
        bool& deleted;
    };
    bool deleted = false;
    {
        Deletable deletable(deleted);
        {
            ConnectionEngine own(kSilent);
            own.addCallbackInterface(&deletable);
            own.removeCallbackInterface(&deletable);
            own.addCallbackInterface(&deletable);
        }
        EXPECT_FALSE(deleted);
    }
    EXPECT_TRUE(deleted);
}

TEST_F(CallbackRegistry, SurvivesTheEndOfAConnection) {
    engine.addCallbackInterface(&first);
    for (int round = 0; round < 2; ++round) {
        EndOnExit end(engine);
        ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
    }
    EXPECT_EQ(engine.getNumCallbackInterfaces(), 1);
    EXPECT_TRUE(first.waitFor("state 3->0", 2));
}

TEST_F(CallbackRegistry, AnyThreadMayUseItWhileOthersNotify) {
    std::vector<std::future<void>> running;
    for (RecordingCallbacks* const own : {&first, &second}) {
        running.push_back(std::async(std::launch::async, [this, own] {
            for (int round = 0; round < 500; ++round) {
                EXPECT_EQ(engine.addCallbackInterface(own), 1U);
                EXPECT_TRUE(engine.hasCallbackInterface(own));
                EXPECT_GE(engine.getNumCallbackInterfaces(), 1);
                Interfaces out;
                EXPECT_EQ(engine.getCallbackInterfaces(out), 0);
                EXPECT_EQ(out.count(own), 1U);
                EXPECT_EQ(engine.removeCallbackInterface(own), 0);
            }
        }));
    }
    for (int round = 0; round < 500; ++round) {
        engine.changeState(CSClient::STATE_CONNECTING);
        engine.changeState(CSClient::STATE_DISCONNECTING);
        engine.changeState(CSClient::STATE_DISCONNECTED);
    }
    running.clear();
    EXPECT_EQ(engine.getNumCallbackInterfaces(), 0);
}

TEST(CallbackRegistryOfAClient, IsThatOfItsEngine) {
    SimClient client(1, CSClient::OPTION_SILENT);
    RecordingCallbacks callbacks;
    EXPECT_EQ(client.addCallbackInterface(&callbacks), 1U);
    EXPECT_EQ(client.addCallbackInterface(&callbacks), 0U);
    EXPECT_EQ(client.addCallbackInterface(nullptr), 0U);
    EXPECT_TRUE(client.hasCallbackInterface(&callbacks));
    EXPECT_EQ(client.getNumCallbackInterfaces(), 1);
    Interfaces out;
    EXPECT_EQ(client.getCallbackInterfaces(out), 0);
    EXPECT_EQ(out, Interfaces{&callbacks});
    EXPECT_EQ(client.removeCallbackInterface(&callbacks), 0);
    EXPECT_EQ(client.getNumCallbackInterfaces(), 0);
}

}  // namespace
}  // namespace com_tesk::test
