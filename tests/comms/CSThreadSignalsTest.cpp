#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <thread>

#include "comms/CSThread.h"
#include "tests/comms/NoStacks.h"
#include "tests/comms/ThreadRoutines.h"

namespace com_tesk {
namespace test {
namespace {

struct Mask {
    sigset_t set;
};

void* noteMask(void* argument) {
    pthread_sigmask(SIG_SETMASK, nullptr, &static_cast<Mask*>(argument)->set);
    return nullptr;
}

Mask ownMask() {
    Mask mask{};
    noteMask(&mask);
    return mask;
}

std::string textOf(const Mask& mask) {
    std::string text;
    for (int signal = 1; signal < NSIG; ++signal) {
        text += sigismember(&mask.set, signal) == 1 ? '1' : '0';
    }
    return text;
}

TEST(CSThreadSignals, AreAllBlockedInTheRoutine) {
    Mask mask{};
    CSThread thread;
    ASSERT_TRUE(thread.create(noteMask, &mask));
    ASSERT_TRUE(thread.waitForThread());
    // The system leaves out some that cannot be blocked, and an emulator some that it keeps for itself.
    Mask all{};
    std::thread([&all] {
        sigset_t every;
        sigfillset(&every);
        pthread_sigmask(SIG_BLOCK, &every, nullptr);
        all = ownMask();
    }).join();
    EXPECT_EQ(textOf(mask), textOf(all));
    for (const int signal : {SIGHUP, SIGINT, SIGALRM, SIGTERM, SIGUSR1, SIGPIPE, SIGCHLD, SIGSYS, SIGRTMIN}) {
        EXPECT_EQ(sigismember(&mask.set, signal), 1) << "signal " << signal;
    }
}

TEST(CSThreadSignals, OfTheCreatorStayAsTheyWere) {
    sigset_t some;
    sigemptyset(&some);
    sigaddset(&some, SIGUSR2);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &some, nullptr), 0);
    const std::string before = textOf(ownMask());
    Mask mask{};
    CSThread thread;
    ASSERT_TRUE(thread.create(noteMask, &mask));
    EXPECT_EQ(textOf(ownMask()), before);
    EXPECT_FALSE(thread.create(noteMask, &mask));
    EXPECT_EQ(textOf(ownMask()), before);
    EXPECT_TRUE(thread.waitForThread());
}

TEST(CSThreadSignals, OfTheCreatorStayAsTheyWereWhenTheSystemRefusesAThread) {
    const std::string before = textOf(ownMask());
    const NoStacks none;
    Mask mask{};
    CSThread thread;
    EXPECT_FALSE(thread.create(noteMask, &mask));
    EXPECT_EQ(textOf(ownMask()), before);
}

std::atomic<pid_t> handlingTask{0};

TEST(CSThreadSignals, OfTheProcessReachTheApplicationsThreads) {
    handlingTask = 0;
    struct sigaction action {};
    struct sigaction previous {};
    action.sa_handler = [](int /*signal*/) { handlingTask = thisTask(); };
    sigemptyset(&action.sa_mask);
    ASSERT_EQ(sigaction(SIGUSR1, &action, &previous), 0);
    Shared shared;
    CSThread thread;
    ASSERT_TRUE(thread.create(waitForLeave, &shared));
    EXPECT_TRUE(shared.waitForSleep());
    // Blocked in this thread for a moment, the signal would go to any other that lets it in.
    sigset_t one;
    sigset_t old;
    sigemptyset(&one);
    sigaddset(&one, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &one, &old);
    kill(getpid(), SIGUSR1);
    EXPECT_FALSE(eventually([] { return handlingTask != 0; }, std::chrono::milliseconds(50)));
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    EXPECT_TRUE(eventually([] { return handlingTask != 0; }));
    EXPECT_EQ(handlingTask, thisTask());
    shared.mayEnd = true;
    EXPECT_TRUE(thread.waitForThread());
    sigaction(SIGUSR1, &previous, nullptr);
}

}  // namespace
}  // namespace test
}  // namespace com_tesk
