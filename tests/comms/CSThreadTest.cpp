#include "comms/CSThread.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <memory>
#include <type_traits>

#include "tests/comms/NoStacks.h"
#include "tests/comms/ThreadRoutines.h"

namespace com_tesk::test {
namespace {

static_assert(!std::is_copy_constructible<CSThread>::value && !std::is_copy_assignable<CSThread>::value,
              "it owns a system object");
static_assert(std::has_virtual_destructor<CSThread>::value, "may be derived from");

TEST(CSThread, IsIdleAtFirst) {
    const CSThread thread;
    EXPECT_EQ(thread.getId(), pthread_t{0});
    EXPECT_FALSE(thread.isActive());
}

TEST(CSThread, RunsTheRoutineOnAnotherThread) {
    Shared shared;
    CSThread thread;
    EXPECT_TRUE(thread.create(endAtOnce, &shared));
    EXPECT_TRUE(thread.waitForThread());
    EXPECT_EQ(shared.starts, 1);
    EXPECT_NE(shared.task, thisTask());
}

TEST(CSThread, HasTheIdOfTheStartedThread) {
    CSThread thread;
    pthread_t seen{};
    ASSERT_TRUE(thread.create(
        [](void* argument) -> void* {
            *static_cast<pthread_t*>(argument) = pthread_self();
            return nullptr;
        },
        &seen));
    const pthread_t id = thread.getId();
    EXPECT_TRUE(thread.waitForThread());
    EXPECT_EQ(id, seen);
}

TEST(CSThread, StartsTheThreadJoinable) {
    CSThread thread;
    int detachState = -1;
    ASSERT_TRUE(thread.create(
        [](void* argument) -> void* {
            pthread_attr_t attributes;
            pthread_getattr_np(pthread_self(), &attributes);
            pthread_attr_getdetachstate(&attributes, static_cast<int*>(argument));
            pthread_attr_destroy(&attributes);
            return nullptr;
        },
        &detachState));
    EXPECT_TRUE(thread.waitForThread());
    EXPECT_EQ(detachState, PTHREAD_CREATE_JOINABLE);
}

TEST(CSThread, RefusesASecondStart) {
    Shared first;
    Shared second;
    CSThread thread;
    ASSERT_TRUE(thread.create(waitForLeave, &first));
    const pthread_t id = thread.getId();
    EXPECT_FALSE(thread.create(endAtOnce, &second));
    EXPECT_EQ(thread.getId(), id);
    first.mayEnd = true;
    EXPECT_TRUE(thread.waitForThread());
    EXPECT_EQ(second.starts, 0);
}

TEST(CSThread, RefusesASecondStartAfterTheRoutineHasReturned) {
    Shared first;
    Shared second;
    CSThread thread;
    ASSERT_TRUE(thread.create(endAtOnce, &first));
    ASSERT_TRUE(first.waitForStart() && first.waitForGone());
    EXPECT_FALSE(thread.create(endAtOnce, &second));
    EXPECT_EQ(second.starts, 0);
}

TEST(CSThread, RefusesASecondStartAfterWaiting) {
    Shared first;
    Shared second;
    CSThread thread;
    ASSERT_TRUE(thread.create(endAtOnce, &first));
    ASSERT_TRUE(thread.waitForThread());
    EXPECT_FALSE(thread.create(endAtOnce, &second));
    EXPECT_EQ(second.starts, 0);
}

TEST(CSThread, StartsAgainAfterKill) {
    Shared first;
    Shared second;
    CSThread thread;
    ASSERT_TRUE(thread.create(waitForCancellation, &first));
    ASSERT_TRUE(first.waitForSleep());
    thread.kill();
    EXPECT_TRUE(thread.create(endAtOnce, &second));
    EXPECT_TRUE(thread.isActive());
    EXPECT_TRUE(thread.waitForThread());
    EXPECT_EQ(second.starts, 1);
    EXPECT_TRUE(first.waitForGone());
}

TEST(CSThread, StartsAgainAfterWaitingAndKill) {
    Shared first;
    Shared second;
    CSThread thread;
    ASSERT_TRUE(thread.create(endAtOnce, &first));
    ASSERT_TRUE(thread.waitForThread());
    thread.kill();
    ASSERT_TRUE(thread.create(endAtOnce, &second));
    // The second thread has not been joined yet, whatever became of the first.
    EXPECT_TRUE(thread.waitForThread());
    EXPECT_EQ(second.starts, 1);
}

TEST(CSThread, StaysActiveAfterTheRoutineHasReturnedUntilKill) {
    Shared shared;
    CSThread thread;
    ASSERT_TRUE(thread.create(endAtOnce, &shared));
    EXPECT_TRUE(thread.isActive());
    ASSERT_TRUE(shared.waitForStart() && shared.waitForGone());
    EXPECT_TRUE(thread.isActive());
    EXPECT_NE(thread.getId(), pthread_t{0});
    thread.kill();
    EXPECT_FALSE(thread.isActive());
    EXPECT_EQ(thread.getId(), pthread_t{0});
}

TEST(CSThread, StaysIdleWhenTheSystemRefusesAThread) {
    Shared shared;
    CSThread thread;
    {
        const NoStacks none;
        EXPECT_FALSE(thread.create(endAtOnce, &shared));
    }
    EXPECT_EQ(thread.getId(), pthread_t{0});
    EXPECT_FALSE(thread.isActive());
    EXPECT_FALSE(thread.waitForThread());
    EXPECT_EQ(shared.starts, 0);
}

TEST(CSThread, StartsAfterTheSystemHasRefusedAThread) {
    Shared shared;
    CSThread thread;
    {
        const NoStacks none;
        ASSERT_FALSE(thread.create(endAtOnce, &shared));
    }
    EXPECT_TRUE(thread.create(endAtOnce, &shared));
    EXPECT_TRUE(thread.waitForThread());
    EXPECT_EQ(shared.starts, 1);
}

TEST(CSThreadKill, DoesNothingWhenIdle) {
    CSThread thread;
    thread.kill();
    thread.kill();
    EXPECT_FALSE(thread.isActive());
}

TEST(CSThreadKill, CancelsTheThread) {
    Shared shared;
    CSThread thread;
    ASSERT_TRUE(thread.create(waitForCancellation, &shared));
    ASSERT_TRUE(shared.waitForSleep());
    thread.kill();
    EXPECT_EQ(thread.getId(), pthread_t{0});
    EXPECT_FALSE(thread.isActive());
    EXPECT_TRUE(shared.waitForGone());
    EXPECT_TRUE(shared.wasCancelled);
}

void* sleepInACall(void* argument) {
    pthread_cleanup_push([](void* /*unused*/) { forgetDeadFrames(); }, nullptr);
    noteStart(*static_cast<Shared*>(argument));
    for (;;) {
        pause();
    }
    pthread_cleanup_pop(0);
    return nullptr;
}

TEST(CSThreadKill, ReachesAThreadThatBlocksInASystemCall) {
    Shared shared;
    CSThread thread;
    ASSERT_TRUE(thread.create(sleepInACall, &shared));
    ASSERT_TRUE(shared.waitForSleep());
    thread.kill();
    EXPECT_TRUE(eventually([&] { return !exists(shared.task); }));
}

TEST(CSThreadKill, DoesNotWaitForTheThread) {
    Shared shared;
    CSThread thread;
    ASSERT_TRUE(thread.create(ignoreCancellation, &shared));
    ASSERT_TRUE(shared.waitForSleep());
    thread.kill();
    EXPECT_FALSE(shared.hasEnded);
    EXPECT_FALSE(thread.isActive());
    shared.mayEnd = true;
    EXPECT_TRUE(shared.waitForGone());
    EXPECT_TRUE(shared.hasEnded);
}

TEST(CSThreadKill, LeavesNothingToWaitFor) {
    Shared shared;
    CSThread thread;
    ASSERT_TRUE(thread.create(waitForCancellation, &shared));
    ASSERT_TRUE(shared.waitForSleep());
    thread.kill();
    EXPECT_FALSE(thread.waitForThread());
    EXPECT_TRUE(shared.waitForGone());
}

TEST(CSThreadKill, MayBeCalledByTheThreadItself) {
    struct OwnThread : Shared {
        CSThread thread;
        std::atomic<bool> mayKill{false};
        std::atomic<bool> wasActiveAfterKill{true};
    } own;
    ASSERT_TRUE(own.thread.create(
        [](void* argument) -> void* {
            OwnThread& shared = *static_cast<OwnThread*>(argument);
            noteStart(shared);
            while (!shared.mayKill) {
                usleep(1000);
            }
            shared.thread.kill();
            shared.wasActiveAfterKill = shared.thread.isActive();
            shared.hasEnded = true;
            return nullptr;
        },
        static_cast<void*>(static_cast<OwnThread*>(&own))));
    own.mayKill = true;
    ASSERT_TRUE(own.waitForStart());
    EXPECT_TRUE(own.waitForGone());
    EXPECT_TRUE(own.hasEnded);
    EXPECT_FALSE(own.wasActiveAfterKill);
}

TEST(CSThreadWait, ReturnsFalseWhenIdle) {
    EXPECT_FALSE(CSThread().waitForThread());
}

TEST(CSThreadWait, LastsUntilTheRoutineHasReturned) {
    Shared shared;
    CSThread thread;
    ASSERT_TRUE(thread.create(waitForLeave, &shared));
    ASSERT_TRUE(shared.waitForSleep());
    shared.mayEnd = true;
    EXPECT_TRUE(thread.waitForThread());
    EXPECT_TRUE(shared.hasEnded);
}

TEST(CSThreadWait, LeavesTheIdAsItWas) {
    Shared shared;
    CSThread thread;
    ASSERT_TRUE(thread.create(endAtOnce, &shared));
    const pthread_t id = thread.getId();
    ASSERT_TRUE(thread.waitForThread());
    EXPECT_EQ(thread.getId(), id);
    EXPECT_TRUE(thread.isActive());
}

TEST(CSThreadWait, ReturnsFalseWhenTheThreadWasJoinedBefore) {
    Shared shared;
    CSThread thread;
    ASSERT_TRUE(thread.create(endAtOnce, &shared));
    ASSERT_TRUE(thread.waitForThread());
    EXPECT_FALSE(thread.waitForThread());
}

TEST(CSThreadDestruction, CancelsARunningThread) {
    Shared shared;
    auto thread = std::make_unique<CSThread>();
    ASSERT_TRUE(thread->create(waitForCancellation, &shared));
    ASSERT_TRUE(shared.waitForSleep());
    thread.reset();
    EXPECT_TRUE(shared.waitForGone());
    EXPECT_TRUE(shared.wasCancelled);
}

TEST(CSThreadDestruction, DoesNotWaitForTheThread) {
    Shared shared;
    auto thread = std::make_unique<CSThread>();
    ASSERT_TRUE(thread->create(ignoreCancellation, &shared));
    ASSERT_TRUE(shared.waitForSleep());
    thread.reset();
    EXPECT_FALSE(shared.hasEnded);
    shared.mayEnd = true;
    EXPECT_TRUE(shared.waitForGone());
}

TEST(CSThreadDestruction, LeavesAKilledThreadAlone) {
    Shared shared;
    {
        CSThread thread;
        ASSERT_TRUE(thread.create(ignoreCancellation, &shared));
        ASSERT_TRUE(shared.waitForSleep());
        thread.kill();
    }
    shared.mayEnd = true;
    EXPECT_TRUE(shared.waitForGone());
}

}  // namespace
}  // namespace com_tesk::test
