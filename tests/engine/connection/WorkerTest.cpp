#include <pthread.h>

#include <csignal>
#include <new>
#include <thread>

#include "engine/ConnectionState.h"
#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/engine/connection/ThreadHooks.h"
#include "tests/support/CountedSleeps.h"

namespace com_tesk::test {
namespace {

class WorkerLoop : public ConnectionTest {
  protected:
    /// Runs the worker's loop on another thread, from `STATE_RECONNECTING` on.
    std::future<void*> runFromReconnecting() {
        create(kReconnect | kSilent);
        engine->pretendState(CSClient::STATE_RECONNECTING);
        return onAnotherThread([this] { return runLoop(); });
    }

    void* runLoop() { return CSClientProtocol::mainThread(static_cast<CSClientProtocol*>(engine.get())); }
};

TEST_F(WorkerLoop, WithoutAnEngineReturnsAtOnce) {
    EXPECT_EQ(CSClientProtocol::mainThread(nullptr), nullptr);
}

TEST_F(WorkerLoop, EndClosesTheTransportAndNotifiesOfTheDisconnection) {
    create();
    EXPECT_EQ(engine->registerOutputs({output("A")}), 0);
    engine->pretendState(CSClient::STATE_DISCONNECTING);
    int closesWhenNotified = 0;
    engine->onStateChange = [&](CSClient::State, CSClient::State) { closesWhenNotified = transport().closeCount(); };
    EXPECT_EQ(runLoop(), nullptr);
    EXPECT_EQ(callbacks->states(), "3->0");
    EXPECT_EQ(closesWhenNotified, 1);
    EXPECT_EQ(engine->getNumberOfOutputParameters(false), 0U);
}

TEST_F(WorkerLoop, InStateReconnectingPausesASecondAndThenConnects) {
    const Stopwatch stopwatch;
    auto running = runFromReconnecting();
    EXPECT_TRUE(waitForState(*engine, CSClient::STATE_READY));
    EXPECT_TRUE(isOneSecond(stopwatch.seconds())) << stopwatch.seconds();
    EXPECT_EQ(transport().openings().size(), 1U);
    engine->forceCloseConnection();
    running.get();
}

TEST_F(WorkerLoop, InStateReconnectingARequestToCloseEndsThePause) {
    const LongPauses pauses;
    auto running = runFromReconnecting();
    ASSERT_TRUE(LongPauses::waitForOne());
    engine->forceCloseConnection();
    EXPECT_EQ(running.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    running.get();
    EXPECT_TRUE(transport().openings().empty());
    EXPECT_TRUE(transport().readCounts().empty());
}

TEST_F(WorkerLoop, ReadsFramesUntilTheConnectionEnds) {
    create();
    for (const char* const body : {"01", "02", "03"}) {
        transport().queueFrame(body);
    }
    open();
    ASSERT_TRUE(waitUntil([this] { return engine->received().size() == 3; }));
    EXPECT_EQ(engine->received(), (Strings{"1: 01", "1: 02", "1: 03"}));
}

/// Returns the calling thread's signal mask, one digit for each signal.
std::string ownMask() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    std::string text;
    for (int signal = 1; signal < NSIG; ++signal) {
        text += sigismember(&mask, signal) == 1 ? '1' : '0';
    }
    return text;
}

using WorkerSignals = ConnectionTest;

TEST_F(WorkerSignals, AreAllBlocked) {
    create();
    std::string mask;
    // The worker is blocked in its read, so that it writes the mask once.
    transport().onRead = [&](unsigned int /*count*/) {
        if (mask.empty()) {
            mask = ownMask();
        }
        gate.pass();
    };
    open();
    ASSERT_TRUE(gate.waitUntilReached());
    const std::string full = onAnotherThread([] {
                                 sigset_t every;
                                 sigfillset(&every);
                                 pthread_sigmask(SIG_BLOCK, &every, nullptr);
                                 return ownMask();
                             }).get();
    EXPECT_EQ(mask, full) << "the system leaves out some signals";
    EXPECT_EQ(mask[SIGTERM - 1], '1');
    EXPECT_EQ(mask[SIGUSR1 - 1], '1');
    gate.open();
    endConnection();  // Before the mask is destroyed.
}

TEST_F(WorkerSignals, AreBlockedOnTheWorkerAlone) {
    const std::string before = ownMask();
    create();
    open();
    EXPECT_EQ(ownMask(), before);
    create();
    const NoMoreThreads none;
    EXPECT_EQ(engine->openConnection(1, 1, nullptr), 2);
    EXPECT_EQ(ownMask(), before);
}

/// Runs out of memory once.
class OutOfMemory : public ConnectionTest {
  protected:
    void runOut() {
        if (!hasRunOut.exchange(true)) {
            throw std::bad_alloc();
        }
    }

    std::atomic<bool> hasRunOut{false};
};

TEST_F(OutOfMemory, InAFrameIsAReadError) {
    for (const unsigned int optionFlags : {0U, kSilent}) {
        for (const char* const place : {"header", "body", "handler"}) {
            SCOPED_TRACE(place);
            connect(optionFlags);
            hasRunOut = false;
            transport().onRead = [&](unsigned int count) {
                if (place == std::string(count == 32 ? "header" : "body")) {
                    runOut();
                }
            };
            engine->onMessage = [this] { runOut(); };
            transport().queueFrame("01 02");
            EXPECT_NO_THROW(engine->receiveMessage());
            EXPECT_TRUE(hasRunOut);
            expectEvents("4->3", optionFlags == kSilent ? "" : "EXIT: Read error.\n");
            EXPECT_EQ(engine->received().size(), place == std::string("handler") ? 1U : 0U);
        }
    }
}

TEST_F(OutOfMemory, InASendReachesTheCallerAndKeepsNoLock) {
    connect();
    transport().onWrite = [this] { runOut(); };
    EXPECT_THROW(engine->registerOutputs({output("A")}), std::bad_alloc);
    EXPECT_FALSE(engine->holdsAnyLock());
    EXPECT_EQ(engine->getNumberOfOutputParameters(false), 1U);
    EXPECT_EQ(sendControl(*engine), 0U);
    engine->forceCloseConnection();
    engine->changeState(CSClient::STATE_DISCONNECTED);
    EXPECT_TRUE(engine->changeCommsInterface(new FakeTransport));
}

/// The worker runs out of memory once in the place of this name.
struct WorkerWithoutMemory {
    const char* name;
    unsigned int optionFlags;
    const char* states;
};

class OutOfMemoryOnTheWorker : public OutOfMemory, public testing::WithParamInterface<WorkerWithoutMemory> {
  protected:
    void runOutIn(const std::string& place) {
        if (place == GetParam().name) {
            runOut();
        }
    }
};

TEST_P(OutOfMemoryOnTheWorker, EndsTheConnectionAndNotTheProcess) {
    create(GetParam().optionFlags);
    transport().onOpen = [this] {
        runOutIn("Connect");
        return true;
    };
    engine->onStateChange = [this](CSClient::State, CSClient::State newState) {
        runOutIn(newState == CSClient::STATE_CONNECTED ? "Connected" : "");
        runOutIn(newState == CSClient::STATE_READY ? "Ready" : "");
    };
    engine->onVersionRequest = [this] { runOutIn("VersionRequest"); };
    transport().onRead = [this](unsigned int) { runOutIn("Read"); };
    engine->onMessage = [this] { runOutIn("Message"); };
    transport().queueFrame("01 02");
    open();
    EXPECT_TRUE(waitUntil([this] { return callbacks->states() == GetParam().states; })) << callbacks->states();
    const bool isReconnecting = GetParam().optionFlags == kReconnect;
    const bool isInAFrame = GetParam().name == std::string("Read") || GetParam().name == std::string("Message");
    EXPECT_EQ(captured->err(), isInAFrame ? "EXIT: Read error.\n" : "");
    EXPECT_EQ(captured->out(), callbacks->states().find("4->5") != std::string::npos ? kReconnectLine : "");
    // No lock stays held: the engine works again.
    if (!isReconnecting) {
        ASSERT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
        open();
    }
    transport().queueFrame("03");
    EXPECT_TRUE(waitUntil([this] { return !engine->received().empty() && engine->received().back() == "1: 03"; }));
}

constexpr const char* kEnd = "0->1 1->2 2->4 4->3 3->0";
constexpr const char* kNewConnection = "0->1 1->2 2->4 4->5 5->1 1->2 2->4";

INSTANTIATE_TEST_SUITE_P(In, OutOfMemoryOnTheWorker,
                         testing::Values(WorkerWithoutMemory{"Message", 0, kEnd},
                                         WorkerWithoutMemory{"VersionRequest", 0, kEnd},
                                         WorkerWithoutMemory{"Read", kReconnect, kNewConnection},
                                         WorkerWithoutMemory{"Ready", kReconnect, kNewConnection},
                                         WorkerWithoutMemory{"Connected", kReconnect, "0->1 1->2 2->1 1->2 2->4"},
                                         WorkerWithoutMemory{"Connect", kReconnect, "0->1 1->2 2->4"}),
                         kByName);

/// Records, in order, the callbacks, the engine's own reactions and the version requests.
class StateChange : public ConnectionTest {
  protected:
    StateChange() { start(); }

    void start() {
        create();
        events.clear();
        callbacks->onLine = [this](const std::string& line) {
            events.push_back(line + " in " + std::to_string(engine->getState()));
        };
        engine->onStateChange = [this](CSClient::State oldState, CSClient::State newState) {
            events.push_back("engine " + std::to_string(oldState) + "->" + std::to_string(newState));
        };
        engine->onVersionRequest = [this] { events.emplace_back("version request"); };
    }

    Strings events;
};

TEST_F(StateChange, ToTheSameStateIsNotNotified) {
    engine->changeState(CSClient::STATE_DISCONNECTED);
    for (const CSClient::State state : kStatesOfAConnection) {
        engine->pretendState(state);
        engine->changeState(state);
    }
    EXPECT_TRUE(events.empty());
    EXPECT_TRUE(transport().written().empty());
}

TEST_F(StateChange, CallbacksComeBeforeTheEnginesOwnReaction) {
    engine->changeState(CSClient::STATE_CONNECTING);
    EXPECT_EQ(events, (Strings{"state 0->1 in 1", "engine 0->1"}));
}

TEST_F(StateChange, ConnectedBecomesReadyAtOnceAndReadyRequestsTheVersion) {
    engine->pretendState(CSClient::STATE_CONNECTING);
    engine->changeState(CSClient::STATE_CONNECTED);
    EXPECT_EQ(events, (Strings{"state 1->2 in 2", "engine 1->2", "state 2->4 in 4", "engine 2->4", "version request"}));
    EXPECT_EQ(engine->getState(), CSClient::STATE_READY);
    EXPECT_EQ(transport().written(), Strings{versionRequestFrame()});
}

TEST_F(StateChange, ToOtherStatesOnlyNotifies) {
    for (const CSClient::State other :
         {CSClient::STATE_CONNECTING, CSClient::STATE_DISCONNECTING, CSClient::STATE_RECONNECTING}) {
        start();
        EXPECT_EQ(engine->registerInputs({input("I")}), 0);
        EXPECT_EQ(engine->registerOutputs({output("O")}), 0);
        engine->pretendState(CSClient::STATE_READY);
        engine->changeState(other);
        EXPECT_EQ(engine->getState(), other);
        EXPECT_TRUE(transport().written().empty());
        EXPECT_EQ(engine->getNumberOfInputParameters(false), 1U);
        EXPECT_EQ(engine->getNumberOfOutputParameters(false), 1U);
    }
}

TEST_F(StateChange, ToReadyIsCompleteAlsoWhileAnotherThreadsWriteIsBlocked) {
    HookedEngine own(1, kSilent);
    ASSERT_EQ(own.registerOutputs({output("O")}), 0);
    std::future<int> publishing;
    own.afterStateChange = [&](CSClient::State, CSClient::State newState) {
        if (newState == CSClient::STATE_READY) {
            own.fakeTransport().onWrite = [this] { gate.pass(); };
            publishing = onAnotherThread([&own] { return own.publish({floatParameter("O", 0)}); });
            EXPECT_TRUE(gate.waitUntilReached());
        }
    };
    auto changing = onAnotherThread([&own] { return own.connect(); });
    ASSERT_TRUE(gate.waitUntilReached());
    EXPECT_TRUE(own.waitForStateChange());
    gate.open();
    EXPECT_EQ(changing.get(), 0);
    EXPECT_EQ(publishing.get(), 0);
}

/// The state without an engine. It records its notifications: "4->3", "interrupted", "continues".
class ConnectionStateAlone : public testing::Test, private ConnectionState::Observer {
  protected:
    void change(CSClient::State state) {
        connection.underLock([&] { PartAccess::change(connection, state); });
        log.clear();
    }

    std::string log;
    ConnectionState connection{*this, kSilent};

  private:
    void stateChanged(CSClient::State oldState, CSClient::State newState) override {
        log += std::to_string(oldState) + "->" + std::to_string(newState) + " ";
    }
    void setInterrupted(bool isInterrupted) override { log += isInterrupted ? "interrupted " : "continues "; }
};

TEST_F(ConnectionStateAlone, NumbersEachConnectionButNoAttempt) {
    PartAccess::connectionNumber(connection) = 0xFFFFFFFF;
    ConnectionState::Attempt attempt;
    change(CSClient::STATE_DISCONNECTING);
    EXPECT_FALSE(connection.isAttemptWanted(attempt));
    EXPECT_FALSE(connection.enterConnected());
    EXPECT_EQ(connection.number(), 0xFFFFFFFF);
    change(CSClient::STATE_CONNECTING);
    EXPECT_TRUE(connection.enterConnected());
    EXPECT_EQ(connection.number(), kNoConnection + 1) << "never the number of none";
    EXPECT_EQ(log, "1->2 ");
}

TEST_F(ConnectionStateAlone, LeavesADeferredCloseToTheWorkerAfterAnException) {
    change(CSClient::STATE_READY);
    EXPECT_THROW(connection.underLock([this] {
        connection.deferClose(connection.number());
        throw std::bad_alloc();
    }),
                 std::bad_alloc);
    EXPECT_TRUE(connection.isAbandoned(connection.number()));
    EXPECT_EQ(log, "");
    connection.closeAsLeft();
    EXPECT_EQ(log, "4->3 interrupted ");
    EXPECT_FALSE(connection.isAbandoned(connection.number()));
}

}  // namespace
}  // namespace com_tesk::test
