#include <gtest/gtest.h>
#include <pthread.h>

#include <csignal>
#include <string>
#include <thread>

#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/engine/connection/ThreadCreation.h"

namespace com_tesk::test {
namespace {

/// The calling thread's signal mask, one digit a signal.
std::string ownMask() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    std::string text;
    for (int signal = 1; signal < NSIG; ++signal) {
        text += sigismember(&mask, signal) == 1 ? '1' : '0';
    }
    return text;
}

/// The mask of a thread that blocks everything. The system leaves out some signals that cannot be blocked.
std::string fullMask() {
    std::string mask;
    std::thread([&mask] {
        sigset_t every;
        sigfillset(&every);
        pthread_sigmask(SIG_BLOCK, &every, nullptr);
        mask = ownMask();
    }).join();
    return mask;
}

TEST(WorkerSignals, AreAllBlocked) {
    ConnectionEngine engine(kSilent);
    const EndOnExit end(engine);
    std::string mask;
    Latch isRead;
    engine.probe().onRead = [&](unsigned int /*count*/) {
        if (mask.empty()) {
            mask = ownMask();
            isRead.open();
        }
    };
    ASSERT_EQ(engine.openConnection(0x0100007F, 55580, nullptr), 0);
    ASSERT_TRUE(isRead.wait());
    EXPECT_EQ(mask, fullMask());
    EXPECT_EQ(mask[SIGTERM - 1], '1');
    EXPECT_EQ(mask[SIGUSR1 - 1], '1');
}

TEST(WorkerSignals, AreBlockedOnTheWorkerAlone) {
    const std::string before = ownMask();
    ConnectionEngine engine(kSilent);
    const EndOnExit end(engine);
    ASSERT_EQ(engine.openConnection(0x0100007F, 55580, nullptr), 0);
    EXPECT_EQ(ownMask(), before);
}

TEST(WorkerSignals, AreNoLongerBlockedWhenThereIsNoWorker) {
    const std::string before = ownMask();
    ConnectionEngine engine(kSilent);
    {
        const NoMoreThreads none;
        EXPECT_EQ(engine.openConnection(0x0100007F, 55580, nullptr), 2);
    }
    EXPECT_EQ(ownMask(), before);
    engine.pretendState(CSClient::STATE_DISCONNECTED);
}

}  // namespace
}  // namespace com_tesk::test
