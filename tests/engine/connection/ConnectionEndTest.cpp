#include <thread>

#include "tests/engine/connection/ConnectionFixtures.h"

namespace com_tesk::test {
namespace {

/// Yields, so that the end is seen as soon as it is visible.
void awaitDisconnected(const CSClientProtocol& engine) {
    while (engine.getState() != CSClient::STATE_DISCONNECTED) {
        std::this_thread::yield();
    }
}

using EndOfAConnection = ConnectionTest;

TEST_F(EndOfAConnection, DerivedEngineMayBeDeletedAsSoonAsItIsSeen) {
    for (int round = 0; round < 500; ++round) {
        std::string history;
        HookedEngine own(1, kSilent);
        own.afterStateChange = [&history](CSClient::State oldState, CSClient::State newState) {
            history += std::to_string(oldState) + "->" + std::to_string(newState) + " ";
        };
        const bool isClosedByHost = round % 5 < 2;
        if (isClosedByHost) {
            own.fakeTransport().queueRead(0);
        }
        ASSERT_EQ(own.openConnection(1, 1, nullptr), 0);
        if (round % 5 == 2) {
            ASSERT_TRUE(waitForState(own, CSClient::STATE_READY));
        }
        if (!isClosedByHost) {
            own.forceCloseConnection();
        }
        awaitDisconnected(own);
        EXPECT_EQ(history.substr(history.size() - 5), "3->0 ");
    }
}

TEST_F(EndOfAConnection, RegistrationAndOpeningRightAfterItSucceedOnAnyThread) {
    create();
    for (int round = 0; round < 200; ++round) {
        SCOPED_TRACE(round);
        open();
        if (round % 3 == 0) {
            ASSERT_TRUE(waitForState(*engine, CSClient::STATE_READY));
        }
        EXPECT_EQ(engine->registerOutputs({output("before")}), 0);
        const auto useAgain = [this] {
            awaitDisconnected(*engine);
            EXPECT_EQ(engine->getNumberOfOutputParameters(false), 0U);
            EXPECT_EQ(engine->registerOutputs({output("after")}), 0);
            // The next worker starts after the previous one has released the lock.
            EXPECT_EQ(engine->openConnection(1, 1, nullptr), 0);
            EXPECT_TRUE(engine->hasOutputParameter("after", false));
        };
        auto nextUse = std::async(round % 2 == 0 ? std::launch::async : std::launch::deferred, useAgain);
        engine->forceCloseConnection();
        nextUse.get();
        engine->forceCloseConnection();
        awaitDisconnected(*engine);
    }
}

TEST_F(EndOfAConnection, IsSeenByOthersOnlyWhenTheCallbacksHaveReturned) {
    create();
    EXPECT_EQ(engine->registerOutputs({output("A")}), 0);
    std::atomic<unsigned int> stateInside{99};
    engine->onStateChange = [&](CSClient::State, CSClient::State newState) {
        if (newState == CSClient::STATE_DISCONNECTED) {
            stateInside = engine->getState();
            gate.pass();
        }
    };
    const EndOnExit end(*engine);
    open();
    ASSERT_TRUE(waitForState(*engine, CSClient::STATE_READY));
    engine->forceCloseConnection();
    ASSERT_TRUE(gate.waitUntilReached());
    EXPECT_EQ(callbacks->states(), "0->1 1->2 2->4 4->3 3->0");
    EXPECT_EQ(stateInside, static_cast<unsigned int>(CSClient::STATE_DISCONNECTED));
    EXPECT_EQ(engine->getState(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(engine->getNumberOfOutputParameters(false), 1U) << "the tables are emptied after the callbacks";
    gate.open();
    ASSERT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
    EXPECT_EQ(engine->getNumberOfOutputParameters(false), 0U);
}

/// A thread's write on the first connection is blocked until the gate is open, and then fails.
class LateFailure : public ConnectionTest {
  protected:
    void startSending(unsigned int optionFlags, const std::function<unsigned int()>& send) {
        connect(optionFlags);
        transport().onWrite = [this] {
            if (std::this_thread::get_id() == sender) {
                gate.pass();
                // The writes of other threads are over, so this one fails.
                transport().failWrites(-1, EPIPE);
            }
        };
        sending = onAnotherThread([this, send] {
            sender = std::this_thread::get_id();
            return send();
        });
        ASSERT_TRUE(gate.waitUntilReached());
    }

    unsigned int fail() {
        gate.open();
        return sending.get();
    }

    std::atomic<std::thread::id> sender;
    std::future<unsigned int> sending;
};

TEST_F(LateFailure, IsReportedAndDoesNotCloseANewerConnection) {
    startSending(kReconnect, [this] { return sendControl(*engine); });
    engine->closeConnection();
    EXPECT_EQ(engine->startConnection(), 0);
    EXPECT_EQ(fail(), 2U);
    EXPECT_EQ(engine->getState(), CSClient::STATE_READY);
    EXPECT_EQ(sendControl(*engine), 0U);
    expectEvents("4->5 5->1 1->2 2->4", kBrokenPipeLine, kReconnectLine);
}

TEST_F(LateFailure, UnderParameterLockDoesNotCloseANewerConnection) {
    startSending(kReconnect | kSilent, [this] { return engine->registerOutputs({output("O")}); });
    engine->closeConnection();
    engine->ignoreRequestsSoFar();
    // The new connection sends its version request. Then it waits for the sender to unlock the parameters.
    auto connecting = onAnotherThread([this] { return engine->startConnection(); });
    ASSERT_TRUE(waitUntil([this] { return engine->requests().size() == 1; }));
    EXPECT_EQ(fail(), 2U);
    EXPECT_EQ(connecting.get(), 0);
    EXPECT_EQ(callbacks->states(), "4->5 5->1 1->2 2->4");
    EXPECT_EQ(engine->getState(), CSClient::STATE_READY);
}

TEST_F(LateFailure, WithoutReconnectDoesNotCloseANewerConnection) {
    startSending(kSilent, [this] { return sendControl(*engine); });
    engine->closeConnection();
    engine->changeState(CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(engine->connect(), 0);
    EXPECT_EQ(fail(), 2U);
    EXPECT_EQ(engine->getState(), CSClient::STATE_READY);
    EXPECT_EQ(engine->getServerIPAddress(), "127.0.0.1");
}

TEST_F(LateFailure, ChangesNothingWithoutAConnection) {
    startSending(kSilent, [this] { return sendControl(*engine); });
    engine->forceCloseConnection();
    engine->changeState(CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(fail(), 2U);
    EXPECT_EQ(callbacks->states(), "4->3 3->0");
    EXPECT_EQ(engine->getState(), CSClient::STATE_DISCONNECTED);
}

class TransportChange : public ConnectionTest {
  protected:
    /// Returns a transport whose destruction is counted.
    std::unique_ptr<FakeTransport> newTransport() {
        auto made = std::make_unique<FakeTransport>();
        made->onDestruction = [this] { ++destructions; };
        return made;
    }

    std::atomic<int> destructions{0};
};

TEST_F(TransportChange, IsRefusedInAConnectionAndLeavesTheTransportWithTheCaller) {
    for (const CSClient::State state : kStatesOfAConnection) {
        SCOPED_TRACE(state);
        create();
        ASSERT_TRUE(engine->changeCommsInterface(newTransport().release()));
        const std::unique_ptr<FakeTransport> other = newTransport();
        destructions = 0;
        engine->pretendState(state);
        EXPECT_FALSE(engine->changeCommsInterface(other.get()));
        EXPECT_FALSE(engine->changeCommsInterface(nullptr));
        EXPECT_EQ(destructions, 0);
        EXPECT_EQ(engine->getState(), state);
    }
}

TEST_F(TransportChange, WhileDisconnectedDeletesTheOldAndOwnsTheNew) {
    create();
    EXPECT_FALSE(engine->changeCommsInterface(nullptr));
    for (int round = 0; round < 50; ++round) {
        std::unique_ptr<FakeTransport> next = newTransport();
        FakeTransport& used = *next;
        ASSERT_TRUE(engine->changeCommsInterface(next.release()));
        EXPECT_EQ(destructions, round);
        const EndOnExit end(*engine);
        open(2, 2);
        ASSERT_TRUE(waitUntil([&used] { return !used.written().empty(); }));
        EXPECT_EQ(used.openings().at(0).address, 2U);
        EXPECT_EQ(used.written().at(0), versionRequestFrame());
    }
    endConnection();
    engine.reset();
    EXPECT_EQ(destructions, 50);
}

TEST_F(TransportChange, WaitsUntilTheWriteOfASenderIsOver) {
    for (const unsigned int result : {0U, 2U}) {
        Gate own;
        connect();
        destructions = 0;
        transport().onDestruction = [this] { ++destructions; };
        transport().onWrite = [&own] { own.pass(); };
        if (result == 2) {
            transport().failWrites(-1, EPIPE);
        }
        auto sending = onAnotherThread([this] { return sendControl(*engine); });
        ASSERT_TRUE(own.waitUntilReached());
        engine->forceCloseConnection();
        engine->changeState(CSClient::STATE_DISCONNECTED);
        auto changing = onAnotherThread([this] { return engine->changeCommsInterface(new FakeTransport); });
        EXPECT_EQ(changing.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
        EXPECT_EQ(destructions, 0) << "deleted under a sender";
        own.open();
        ASSERT_EQ(changing.wait_for(std::chrono::seconds(20)), std::future_status::ready);
        EXPECT_TRUE(changing.get());
        EXPECT_EQ(sending.get(), result);
        EXPECT_EQ(destructions, 1);
        EXPECT_EQ(callbacks->states(), "4->3 3->0");
        EXPECT_EQ(engine->connect(), 0);
    }
}

TEST_F(TransportChange, MayHappenWhileOtherThreadsSend) {
    create();
    std::atomic<bool> isDone{false};
    const auto send = [&] {
        while (!isDone) {
            sendControl(*engine);
        }
    };
    auto first = onAnotherThread(send);
    auto second = onAnotherThread(send);
    for (int round = 0; round < 100; ++round) {
        open();
        EXPECT_TRUE(waitForState(*engine, CSClient::STATE_READY));
        engine->forceCloseConnection();
        EXPECT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
        EXPECT_TRUE(engine->changeCommsInterface(new FakeTransport));
    }
    isDone = true;
}

}  // namespace
}  // namespace com_tesk::test
