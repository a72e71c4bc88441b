#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <memory>
#include <string>

#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/ScriptedHost.h"

namespace com_tesk::test {
namespace {

/// A probe transport that says when it is destroyed.
std::unique_ptr<ProbeTransport> countedTransport(std::atomic<int>& destructions) {
    auto made = std::make_unique<ProbeTransport>();
    made->onDestruction = [&destructions] { ++destructions; };
    return made;
}

TEST(ChangingTheTransport, ToNoneIsRefused) {
    std::atomic<int> destructions{0};
    ConnectionEngine engine(kSilent);
    engine.probe().onDestruction = [&destructions] { ++destructions; };
    EXPECT_FALSE(engine.changeCommsInterface(nullptr));
    EXPECT_EQ(destructions, 0);
    EXPECT_EQ(engine.connect(), 0);
}

class ChangingTheTransportInAnotherState : public testing::TestWithParam<CSClient::State> {};

TEST_P(ChangingTheTransportInAnotherState, IsRefusedAndLeavesItWithTheCaller) {
    std::atomic<int> oldDestructions{0};
    std::atomic<int> newDestructions{0};
    std::unique_ptr<ProbeTransport> other = countedTransport(newDestructions);
    ConnectionEngine engine(kSilent);
    engine.probe().onDestruction = [&oldDestructions] { ++oldDestructions; };
    engine.pretendState(GetParam());
    EXPECT_FALSE(engine.changeCommsInterface(other.get()));
    EXPECT_FALSE(engine.changeCommsInterface(nullptr));
    EXPECT_EQ(oldDestructions, 0);
    EXPECT_EQ(newDestructions, 0);
    EXPECT_EQ(engine.getState(), GetParam());
    engine.pretendState(CSClient::STATE_DISCONNECTED);
}

INSTANTIATE_TEST_SUITE_P(State, ChangingTheTransportInAnotherState,
                         testing::Values(CSClient::STATE_CONNECTING, CSClient::STATE_CONNECTED,
                                         CSClient::STATE_DISCONNECTING, CSClient::STATE_READY,
                                         CSClient::STATE_RECONNECTING),
                         testing::PrintToStringParamName());

TEST(ChangingTheTransport, WhileDisconnectedDeletesTheOldAndOwnsTheNew) {
    std::atomic<int> oldDestructions{0};
    std::atomic<int> newDestructions{0};
    {
        ConnectionEngine engine(kSilent);
        engine.probe().onDestruction = [&oldDestructions] { ++oldDestructions; };
        EXPECT_TRUE(engine.changeCommsInterface(countedTransport(newDestructions).release()));
        EXPECT_EQ(oldDestructions, 1);
        EXPECT_EQ(newDestructions, 0);
    }
    EXPECT_EQ(oldDestructions, 1);
    EXPECT_EQ(newDestructions, 1);
}

TEST(ChangingTheTransport, NextConnectionUsesTheNewOne) {
    ConnectionEngine engine(kSilent);
    EndOnExit end(engine);
    ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
    ASSERT_TRUE(waitForState(engine, CSClient::STATE_READY));
    engine.forceCloseConnection();
    ASSERT_TRUE(waitForState(engine, CSClient::STATE_DISCONNECTED));
    auto* const other = new ProbeTransport;
    ASSERT_TRUE(engine.changeCommsInterface(other));
    ASSERT_EQ(engine.openConnection(2, 2, nullptr), 0);
    ASSERT_TRUE(waitUntil([other] { return other->written().size() == 1; }));
    EXPECT_EQ(other->openings().at(0).address, 2U);
    EXPECT_EQ(other->written().at(0), versionRequestFrame());
}

TEST(ChangingTheTransport, AgainAndAgainBetweenConnectionsLosesNone) {
    std::atomic<int> destructions{0};
    {
        ConnectionEngine engine(kSilent);
        for (int round = 0; round < 50; ++round) {
            ASSERT_TRUE(engine.changeCommsInterface(countedTransport(destructions).release()));
            EXPECT_EQ(destructions, round);
            EndOnExit end(engine);
            ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
            ASSERT_TRUE(waitForState(engine, CSClient::STATE_READY));
        }
    }
    EXPECT_EQ(destructions, 50);
}

/// An engine in whose transport a sender is writing when the connection ends.
class ChangingTheTransportUnderASender : public testing::Test {
  protected:
    void SetUp() override {
        engine.connect();
        engine.addCallbackInterface(&callbacks);
        engine.probe().onDestruction = [this] { ++destructions; };
        engine.probe().onWrite = [this] {
            inWrite.open();
            goOn.wait();
        };
    }

    template <typename Send>
    void changeWhile(const Send& send) {
        auto sending = std::async(std::launch::async, send);
        ASSERT_TRUE(inWrite.wait());
        engine.forceCloseConnection();
        engine.changeState(CSClient::STATE_DISCONNECTED);
        auto changing =
            std::async(std::launch::async, [this] { return engine.changeCommsInterface(new ProbeTransport); });
        EXPECT_EQ(changing.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
        EXPECT_EQ(destructions, 0) << "deleted under a sender";
        goOn.open();
        ASSERT_EQ(changing.wait_for(std::chrono::seconds(20)), std::future_status::ready);
        EXPECT_TRUE(changing.get());
        result = sending.get();
        EXPECT_EQ(destructions, 1);
        EXPECT_EQ(callbacks.states(), "4->3 3->0");
        EXPECT_EQ(engine.connect(), 0);
    }

    RecordingCallbacks callbacks;
    Latch inWrite;
    Latch goOn;
    std::atomic<int> destructions{0};
    ConnectionEngine engine{kSilent};
    unsigned int result = 99;
};

TEST_F(ChangingTheTransportUnderASender, WaitsUntilTheWriteIsOver) {
    changeWhile([this] { return engine.sendMessage(messageOf(RawMessage::CONTROL, "01")); });
    EXPECT_EQ(result, 0U);
}

TEST_F(ChangingTheTransportUnderASender, DoesNotDeadlockWithAWriteThatFails) {
    engine.probe().failWrites(-1, EPIPE);
    changeWhile([this] { return engine.sendMessage(messageOf(RawMessage::CONTROL, "01")); });
    EXPECT_EQ(result, 2U);
}

TEST(ChangingTheTransport, RaceWithManySendersHurtsNobody) {
    ConnectionEngine engine(kSilent);
    std::atomic<bool> done{false};
    const auto send = [&] {
        while (!done) {
            engine.sendMessage(messageOf(RawMessage::CONTROL, "01 02 03"));
        }
    };
    auto first = std::async(std::launch::async, send);
    auto second = std::async(std::launch::async, send);
    for (int round = 0; round < 100; ++round) {
        EndOnExit end(engine);
        ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
        ASSERT_TRUE(waitForState(engine, CSClient::STATE_READY));
        engine.forceCloseConnection();
        ASSERT_TRUE(waitForState(engine, CSClient::STATE_DISCONNECTED));
        EXPECT_TRUE(engine.changeCommsInterface(new ProbeTransport));
    }
    done = true;
}

TEST(ChangingTheTransport, RealTransportTakesTheFakesPlace) {
    ScriptedHost host;
    ConnectionEngine engine(kSilent);
    EndOnExit end(engine);
    ASSERT_TRUE(engine.changeCommsInterface(new CSCommsInterfaceTCP(CSCommsInterfaceTCP::Options())));
    ASSERT_EQ(engine.openConnection(ScriptedHost::address(), host.port(), nullptr), 0);
    const std::unique_ptr<ScriptedHost::Peer> peer = host.accept();
    ASSERT_TRUE(peer);
    EXPECT_EQ(peer->receiveFrame(), versionRequestFrame());
}

}  // namespace
}  // namespace com_tesk::test
