#include "comms/CSThread.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <csignal>
#include <memory>
#include <string>
#include <type_traits>

#include "tests/comms/ThreadRoutines.h"

namespace com_tesk::test {
namespace {

static_assert(!std::is_copy_constructible_v<CSThread> && !std::is_copy_assignable_v<CSThread>, "owns a system object");
static_assert(std::has_virtual_destructor_v<CSThread>, "may be derived from");

/// Records about a thread that its routine makes.
struct RoutineRecord {
    pthread_t id{};
    int detachState = -1;
    sigset_t blockedSignals{};
};

void* recordRoutine(void* argument) {
    RoutineRecord& record = *static_cast<RoutineRecord*>(argument);
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getdetachstate(&attributes, &record.detachState);
    pthread_attr_destroy(&attributes);
    record.id = pthread_self();
    pthread_sigmask(SIG_SETMASK, nullptr, &record.blockedSignals);
    return nullptr;
}

std::string textOf(const sigset_t& signals) {
    std::string text;
    for (int signal = 1; signal < NSIG; ++signal) {
        text += sigismember(&signals, signal) == 1 ? '1' : '0';
    }
    return text;
}

std::string blockedSignals() {
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    return textOf(blocked);
}

class CSThreadTest : public testing::Test {
  protected:
    void startAndSleep(void* (*routine)(void*)) {
        ASSERT_TRUE(thread->create(routine, &shared));
        ASSERT_TRUE(shared.waitForSleep());
    }

    void startAndJoin() {
        ASSERT_TRUE(thread->create(endAtOnce, &shared));
        ASSERT_TRUE(thread->waitForThread());
    }

    Shared shared;
    Shared second;
    std::unique_ptr<CSThread> thread = std::make_unique<CSThread>();
};

TEST_F(CSThreadTest, IsIdleAtFirst) {
    EXPECT_EQ(thread->getId(), pthread_t{0});
    EXPECT_FALSE(thread->isActive());
    EXPECT_FALSE(thread->waitForThread());
    thread->kill();
    thread->kill();
    EXPECT_FALSE(thread->isActive());
}

TEST_F(CSThreadTest, RunsTheRoutineOnAJoinableThreadWithItsId) {
    RoutineRecord record;
    ASSERT_TRUE(thread->create(recordRoutine, &record));
    const pthread_t id = thread->getId();
    EXPECT_TRUE(thread->waitForThread());
    EXPECT_EQ(id, record.id);
    EXPECT_FALSE(pthread_equal(record.id, pthread_self()));
    EXPECT_EQ(record.detachState, PTHREAD_CREATE_JOINABLE);
    EXPECT_EQ(thread->getId(), id) << "until kill";
    EXPECT_TRUE(thread->isActive());
}

TEST_F(CSThreadTest, BlocksTheSignalsThatItsCreatorBlocks) {
    sigset_t some;
    sigemptyset(&some);
    sigaddset(&some, SIGUSR2);
    for (const bool isBlocked : {false, true}) {
        pthread_sigmask(isBlocked ? SIG_BLOCK : SIG_UNBLOCK, &some, nullptr);
        const std::string before = blockedSignals();
        RoutineRecord record;
        CSThread created;
        ASSERT_TRUE(created.create(recordRoutine, &record));
        EXPECT_EQ(blockedSignals(), before);
        EXPECT_FALSE(created.create(recordRoutine, &record));
        EXPECT_EQ(blockedSignals(), before);
        ASSERT_TRUE(created.waitForThread());
        EXPECT_EQ(textOf(record.blockedSignals), before);
        EXPECT_EQ(sigismember(&record.blockedSignals, SIGUSR2), isBlocked ? 1 : 0);
    }
    pthread_sigmask(SIG_UNBLOCK, &some, nullptr);
}

TEST_F(CSThreadTest, RefusesASecondStartBeforeKill) {
    ASSERT_TRUE(thread->create(waitForLeave, &shared));
    const pthread_t id = thread->getId();
    EXPECT_FALSE(thread->create(endAtOnce, &second)) << "while it runs";
    EXPECT_EQ(thread->getId(), id);
    shared.mayEnd = true;
    ASSERT_TRUE(shared.waitForStart() && shared.waitForGone());
    EXPECT_TRUE(thread->isActive());
    EXPECT_FALSE(thread->create(endAtOnce, &second)) << "after the routine has returned";
    EXPECT_TRUE(thread->waitForThread());
    EXPECT_FALSE(thread->create(endAtOnce, &second)) << "after waiting";
    EXPECT_EQ(second.starts, 0);
}

TEST_F(CSThreadTest, StartsAgainAfterKill) {
    startAndSleep(waitForCancellation);
    thread->kill();
    EXPECT_TRUE(thread->create(endAtOnce, &second));
    EXPECT_TRUE(thread->isActive());
    EXPECT_TRUE(thread->waitForThread());
    EXPECT_EQ(second.starts, 1);
    EXPECT_TRUE(shared.waitForGone());
    // The next thread has not been joined, although the previous one has.
    thread->kill();
    ASSERT_TRUE(thread->create(endAtOnce, &second));
    EXPECT_TRUE(thread->waitForThread());
    EXPECT_EQ(second.starts, 2);
}

TEST_F(CSThreadTest, StaysIdleWhenTheSystemRefusesAThread) {
    const std::string before = blockedSignals();
    {
        const NoStacks none;
        EXPECT_FALSE(thread->create(endAtOnce, &shared));
    }
    EXPECT_EQ(blockedSignals(), before);
    EXPECT_EQ(thread->getId(), pthread_t{0});
    EXPECT_FALSE(thread->isActive());
    EXPECT_FALSE(thread->waitForThread());
    EXPECT_EQ(shared.starts, 0);
    startAndJoin();
    EXPECT_EQ(shared.starts, 1);
}

TEST_F(CSThreadTest, WaitLastsUntilTheRoutineHasReturnedAndJoinsOnce) {
    startAndSleep(waitForLeave);
    shared.mayEnd = true;
    EXPECT_TRUE(thread->waitForThread());
    EXPECT_TRUE(shared.hasEnded);
    EXPECT_FALSE(thread->waitForThread());
}

/// A thread is cancelled by `kill` (false) or by the destruction of its object (true).
class CSThreadCancellation : public CSThreadTest, public testing::WithParamInterface<bool> {
  protected:
    void cancel() {
        if (GetParam()) {
            thread.reset();
            return;
        }
        thread->kill();
        EXPECT_EQ(thread->getId(), pthread_t{0});
        EXPECT_FALSE(thread->isActive());
        EXPECT_FALSE(thread->waitForThread());
    }
};

INSTANTIATE_TEST_SUITE_P(By, CSThreadCancellation, testing::Bool(),
                         [](const auto& isDestroyed) { return isDestroyed.param ? "Destruction" : "Kill"; });

TEST_P(CSThreadCancellation, EndsTheThread) {
    startAndSleep(waitForCancellation);
    cancel();
    EXPECT_TRUE(shared.waitForGone());
    EXPECT_TRUE(shared.wasCancelled);
}

TEST_P(CSThreadCancellation, DoesNotWaitForTheThread) {
    startAndSleep(ignoreCancellation);
    cancel();
    EXPECT_FALSE(shared.hasEnded);
    thread.reset();
    shared.mayEnd = true;
    EXPECT_TRUE(shared.waitForGone());
}

void* sleepInACall(void* argument) {
    pthread_cleanup_push([](void* /*unused*/) { dropDeadFrames(); }, nullptr);
    noteStart(*static_cast<Shared*>(argument));
    for (;;) {
        pause();
    }
    pthread_cleanup_pop(0);
    return nullptr;
}

TEST_P(CSThreadCancellation, ReachesAThreadThatBlocksInASystemCall) {
    startAndSleep(sleepInACall);
    cancel();
    EXPECT_TRUE(waitUntil([&] { return !exists(shared.task); }));
}

}  // namespace
}  // namespace com_tesk::test
