#include <gtest/gtest.h>

#include <cerrno>
#include <mutex>
#include <string>
#include <vector>

#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

using std::chrono::milliseconds;
using Interruptions = std::vector<bool>;

/// What is allowed for an operation that waits 50 ms, on a busy machine.
constexpr double kSoon = 0.9;

/// A probe transport that writes down how it is interrupted and not, and, when asked to, ends writes that are held up
/// as soon as it is interrupted.
class InterruptibleTransport : public ProbeTransport {
  public:
    void setInterrupted(bool interrupted) override {
        const std::lock_guard<std::mutex> lock(mutex);
        made.push_back(interrupted);
        if (interrupted && interruptionEnds != nullptr) {
            failWrites(-1, ECANCELED);
            interruptionEnds->open();
        }
    }

    Interruptions interruptions() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return made;
    }

    Latch* interruptionEnds = nullptr;

  private:
    mutable std::mutex mutex;
    Interruptions made;
};

/// An engine whose change to `STATE_READY` is stuck in the write of its version request.
class StuckStateChange : public testing::Test {
  protected:
    void start(unsigned int optionFlags) {
        engine = std::make_unique<ConnectionEngine>(optionFlags);
        transport = new InterruptibleTransport;
        ASSERT_TRUE(engine->changeCommsInterface(transport));
        engine->addCallbackInterface(&callbacks);
        transport->onWrite = [this] {
            isStuck.open();
            goOn.wait();
        };
        ASSERT_EQ(engine->openConnection(0x0100007F, 55580, nullptr), 0);
        ASSERT_TRUE(isStuck.wait());
    }

    void TearDown() override {
        goOn.open();
        if (engine) {
            EndOnExit end(*engine);
        }
    }

    CapturedStreams captured;
    RecordingCallbacks callbacks;
    Latch isStuck;
    Latch goOn;
    std::unique_ptr<ConnectionEngine> engine;
    InterruptibleTransport* transport = nullptr;
};

TEST_F(StuckStateChange, DoesNotHoldUpTheRequestToClose) {
    start(0);
    const Stopwatch stopwatch;
    engine->forceCloseConnection();
    EXPECT_LT(stopwatch.seconds(), kSoon);
    EXPECT_EQ(engine->getState(), CSClient::STATE_READY) << "the change itself goes on";
}

TEST_F(StuckStateChange, IsFollowedByTheCloseThatWasRequestedMeanwhile) {
    start(kReconnect);
    engine->forceCloseConnection();
    goOn.open();
    EXPECT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
    EXPECT_EQ(engine->getServerIPAddress(), "0.0.0.0");
    EXPECT_EQ(engine->getServerPort(), 0U);
}

TEST_F(StuckStateChange, IsClosedOnceHoweverOftenThatWasRequested) {
    start(kReconnect);
    for (int i = 0; i < 3; ++i) {
        engine->forceCloseConnection();
    }
    goOn.open();
    EXPECT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
    EXPECT_EQ(transport->closeCount(), 1);
}

TEST_F(StuckStateChange, EndsAtOnceWhenTheTransportCanBeInterrupted) {
    start(kReconnect);
    transport->interruptionEnds = &goOn;
    const Stopwatch stopwatch;
    engine->forceCloseConnection();
    EXPECT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
    EXPECT_LT(stopwatch.seconds(), kSoon);
    // The failed write owes a close too, which comes second and finds nothing to do: no reconnection, no sleep.
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
    EXPECT_EQ(captured.err(), "Error writing to server (125) \n");
    EXPECT_EQ(captured.out(), "");
}

TEST_F(StuckStateChange, RequestForOneConnectionDoesNotCloseTheNext) {
    start(0);
    engine->forceCloseConnection();
    goOn.open();
    ASSERT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
    engine->forceCloseConnection();
    ASSERT_EQ(engine->openConnection(0x0100007F, 55580, nullptr), 0);
    ASSERT_TRUE(callbacks.waitFor("state 2->4", 2));
    transport->queueFrame("0A");
    EXPECT_TRUE(waitUntil([this] { return engine->received().size() == 1; }));
    EXPECT_EQ(engine->getState(), CSClient::STATE_READY);
}

TEST_F(StuckStateChange, DoesNotHoldUpQueries) {
    start(0);
    engine->registerOutputParameters(nullptr, 0);
    const Stopwatch stopwatch;
    EXPECT_EQ(engine->getState(), CSClient::STATE_READY);
    EXPECT_EQ(engine->getServerVersion(), "UNKNOWN");
    EXPECT_EQ(engine->getServerIPAddress(), "127.0.0.1");
    EXPECT_EQ(engine->getNumberOfOutputParameters(false), 0U);
    EXPECT_LT(stopwatch.seconds(), kSoon);
}

/// Closes from inside a change of state, which is not allowed, but must not block.
class ClosingCallbacks : public RecordingCallbacks {
  public:
    void connectionStateChanged(CSClient::State oldState, CSClient::State newState) override {
        if (newState == CSClient::STATE_READY) {
            engine->forceCloseConnection();
            record("state inside " + std::to_string(engine->getState()));
        }
        RecordingCallbacks::connectionStateChanged(oldState, newState);
    }

    CSClientProtocol* engine = nullptr;
};

TEST(CloseRequest, FromInsideAStateChangeIsCarriedOutAfterIt) {
    ClosingCallbacks callbacks;
    ConnectionEngine engine(kReconnect | kSilent);
    callbacks.engine = &engine;
    engine.addCallbackInterface(&callbacks);
    ASSERT_EQ(engine.openConnection(0x0100007F, 55580, nullptr), 0);
    EXPECT_TRUE(waitForState(engine, CSClient::STATE_DISCONNECTED));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 inside 4 2->4 4->3 3->0");
}

/// Holds the worker up while it ends the connection, which it does under the lock.
class SlowlyClosingTransport : public ProbeTransport {
  public:
    int close() override {
        isClosing.open();
        goOn.wait();
        return ProbeTransport::close();
    }

    Latch isClosing;
    Latch goOn;
};

TEST(CloseRequest, MadeWhileTheConnectionEndsIsNotKeptForTheNext) {
    RecordingCallbacks callbacks;
    ConnectionEngine engine(kReconnect | kSilent);
    const EndOnExit end(engine);
    auto* const transport = new SlowlyClosingTransport;
    ASSERT_TRUE(engine.changeCommsInterface(transport));
    engine.addCallbackInterface(&callbacks);
    ASSERT_EQ(engine.openConnection(0x0100007F, 55580, nullptr), 0);
    ASSERT_TRUE(callbacks.waitFor("state 2->4"));
    engine.forceCloseConnection();
    ASSERT_TRUE(transport->isClosing.wait());
    engine.forceCloseConnection();
    transport->goOn.open();
    ASSERT_TRUE(waitForState(engine, CSClient::STATE_DISCONNECTED));
    ASSERT_EQ(engine.openConnection(0x0100007F, 55580, nullptr), 0);
    ASSERT_TRUE(callbacks.waitFor("state 2->4", 2));
    transport->queueFrame("0A");
    EXPECT_TRUE(waitUntil([&engine] { return engine.received().size() == 1; }));
    EXPECT_EQ(engine.getState(), CSClient::STATE_READY);
}

class Interruption : public testing::Test {
  protected:
    Interruption() { EXPECT_TRUE(engine.changeCommsInterface(transport)); }

    ConnectionEngine engine{kReconnect | kSilent};
    InterruptibleTransport* transport = new InterruptibleTransport;
};

TEST_F(Interruption, EndsWithOpeningAndBeginsWithClosing) {
    const EndOnExit end(engine);
    Latch isReading;
    transport->onRead = [&isReading](unsigned int /*count*/) { isReading.open(); };
    ASSERT_EQ(engine.openConnection(0x0100007F, 55580, nullptr), 0);
    EXPECT_EQ(transport->interruptions(), Interruptions{false});
    // The change to ready is over then. One that is not is interrupted by who closes and by who carries that out.
    ASSERT_TRUE(isReading.wait());
    EXPECT_EQ(transport->interruptions(), Interruptions{false});
    engine.forceCloseConnection();
    EXPECT_EQ(transport->interruptions(), (Interruptions{false, true}));
    ASSERT_TRUE(waitForState(engine, CSClient::STATE_DISCONNECTED));
    ASSERT_EQ(engine.openConnection(0x0100007F, 55580, nullptr), 0);
    EXPECT_EQ(transport->interruptions(), (Interruptions{false, true, false}));
}

TEST_F(Interruption, ComesAfterTheState) {
    CSClient::State seen = CSClient::STATE_DISCONNECTED;
    class LookingTransport : public ProbeTransport {
      public:
        LookingTransport(CSClientProtocol& lookedAt, CSClient::State& found) : engine(lookedAt), state(found) {}
        void setInterrupted(bool /*interrupted*/) override { state = engine.getState(); }

      private:
        CSClientProtocol& engine;
        CSClient::State& state;
    };
    ConnectionEngine looked(kSilent);
    ASSERT_TRUE(looked.changeCommsInterface(new LookingTransport(looked, seen)));
    looked.pretendState(CSClient::STATE_READY);
    looked.forceCloseConnection();
    EXPECT_EQ(seen, CSClient::STATE_DISCONNECTING);
    looked.pretendState(CSClient::STATE_DISCONNECTED);
}

TEST_F(Interruption, StaysAwayFromReconnections) {
    engine.connect();
    engine.closeConnection();
    EXPECT_EQ(engine.startConnection(), 0);
    EXPECT_EQ(transport->interruptions(), Interruptions{});
    engine.pretendState(CSClient::STATE_DISCONNECTED);
}

TEST_F(Interruption, DoesNotComeWithoutAConnection) {
    engine.forceCloseConnection();
    EXPECT_EQ(transport->interruptions(), Interruptions{});
}

}  // namespace
}  // namespace com_tesk::test
