#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <csignal>
#include <thread>

#include "tests/client/GatedTransport.h"
#include "tests/client/ProbedClient.h"
#include "tests/client/Stopwatch.h"

namespace com_tesk::test {
namespace {

std::atomic<int> caught{0};

/// Interrupts the thread that creates it every few milliseconds, as a profiler's or an application's timer does.
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

/// Fewer would not show that the sleep was interrupted again and again.
constexpr int kManyInterruptions = 5;

TEST(SignalsDuringWaits, TheWaitForAStateTakesItsWholeSeconds) {
    const ProbedClient client;
    const Interruptions interruptions;
    const Stopwatch watch;
    EXPECT_FALSE(client.waitForConnectionState(CSClient::STATE_READY, 2));
    EXPECT_GE(watch.seconds(), 2.0);
    EXPECT_GE(caught, kManyInterruptions);
}

TEST(SignalsDuringWaits, TheWaitForOutputsTakesItsWholeSeconds) {
    ProbedClient client;
    client.registerOutputParameter({"A", CSClient::TYPE_FLOAT});
    const Interruptions interruptions;
    const Stopwatch watch;
    EXPECT_FALSE(client.waitForOutputsToBeRegistered(2));
    EXPECT_GE(watch.seconds(), 2.0);
    EXPECT_GE(caught, kManyInterruptions);
}

TEST(SignalsDuringWaits, TheWaitForInputsTakesItsWholeSeconds) {
    ProbedClient client;
    client.registerInputParameter({"A", CSClient::TYPE_FLOAT, 1});
    const Interruptions interruptions;
    const Stopwatch watch;
    EXPECT_FALSE(client.waitForInputsToBeRegistered(2));
    EXPECT_GE(watch.seconds(), 2.0);
    EXPECT_GE(caught, kManyInterruptions);
}

TEST(SignalsDuringWaits, CloseGivesTheWorkerItsTwoSeconds) {
    Gate gate;
    ProbedClient client;
    client.probed->changeCommsInterface(new GatedTransport(gate));
    client.open(kAnyAddress, 1, nullptr);
    ASSERT_TRUE(gate.waitUntilReached());
    const Interruptions interruptions;
    const Stopwatch watch;
    EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTING);
    EXPECT_GE(watch.seconds(), 2.0);
    EXPECT_GE(caught, kManyInterruptions);
    gate.open();
}

TEST(SignalsDuringWaits, AFailedWriteSleepsItsWholeSecondBeforeItReturns) {
    ProbedClient client(CSClient::OPTION_SILENT | CSClient::OPTION_AUTO_RECONNECT);
    client.pretendState(CSClient::STATE_READY);
    client.probed->fakeTransport().failWrites(-1, EPIPE);
    const Interruptions interruptions;
    const Stopwatch watch;
    EXPECT_EQ(client.sendMessage(RawMessage(RawMessage::DATA)), 2);
    EXPECT_GE(watch.seconds(), 1.0);
    EXPECT_EQ(client.getConnectionState(), CSClient::STATE_CONNECTING);
    EXPECT_GE(caught, kManyInterruptions);
}

}  // namespace
}  // namespace com_tesk::test
