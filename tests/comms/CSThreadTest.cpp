#include <malloc.h>

#include <type_traits>

#include "tests/comms/ThreadRoutines.h"
#include "tests/comms/Transports.h"
#include "tests/support/Emulator.h"

namespace com_tesk::test {
namespace {

static_assert(!std::is_copy_constructible_v<CSThread> && !std::is_copy_assignable_v<CSThread>, "owns a system object");
static_assert(std::has_virtual_destructor_v<CSThread>, "may be derived from");

std::string blockedSignals() {
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    std::string text;
    for (int signal = 1; signal < NSIG; ++signal) {
        text += sigismember(&blocked, signal) == 1 ? '1' : '0';
    }
    return text;
}

/// A record that a routine makes about its thread.
struct RoutineRecord {
    pthread_t id{};
    int detachState = -1;
    std::string signals;
};

void* recordRoutine(void* argument) {
    *static_cast<RoutineRecord*>(argument) = {pthread_self(), detachStateOf(pthread_self()), blockedSignals()};
    return nullptr;
}

/// Makes the system refuse new threads in its scope: the default size of their stacks is more than there is.
class NoStacks {
  public:
    NoStacks() {
        pthread_getattr_default_np(&previous);
        pthread_attr_t huge;
        pthread_getattr_default_np(&huge);
        pthread_attr_setstacksize(&huge, kHugeSize);
        pthread_setattr_default_np(&huge);
        pthread_attr_destroy(&huge);
    }
    NoStacks(const NoStacks&) = delete;
    NoStacks& operator=(const NoStacks&) = delete;
    ~NoStacks() {
        pthread_setattr_default_np(&previous);
        pthread_attr_destroy(&previous);
    }

  private:
    /// Seven eighths of 32 bits are not free in one piece; a quarter of 64 bits is more than processors address.
    static constexpr std::size_t kHugeSize =
        sizeof(std::size_t) > 4 ? std::size_t{1} << (sizeof(std::size_t) * 8 - 2) : std::size_t{0xE0000000U};

    pthread_attr_t previous;
};

class CSThreadTest : public testing::Test {
  protected:
    void startAndSleep(void* (*routine)(void*)) {
        ASSERT_TRUE(thread->create(routine, &shared));
        ASSERT_TRUE(shared.waitForSleep());
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
        EXPECT_EQ(before[SIGUSR2 - 1], isBlocked ? '1' : '0');
        RoutineRecord record;
        CSThread created;
        ASSERT_TRUE(created.create(recordRoutine, &record));
        EXPECT_EQ(blockedSignals(), before);
        EXPECT_FALSE(created.create(recordRoutine, &record));
        EXPECT_EQ(blockedSignals(), before);
        ASSERT_TRUE(created.waitForThread());
        EXPECT_EQ(record.signals, before);
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
    ASSERT_TRUE(thread->create(endAtOnce, &shared));
    ASSERT_TRUE(thread->waitForThread());
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

TEST_P(CSThreadCancellation, ReachesAThreadThatBlocksInASystemCall) {
    startAndSleep([](void* argument) -> void* {
        pthread_cleanup_push([](void* /*unused*/) { dropDeadFrames(); }, nullptr);
        noteStart(*static_cast<Shared*>(argument));
        for (;;) {
            pause();
        }
        pthread_cleanup_pop(0);
        return nullptr;
    });
    cancel();
    EXPECT_TRUE(waitUntil([&] { return !exists(shared.task); }));
}

/// Threads that are neither joined nor detached keep their stacks: 8 MiB of address space each. An emulator starts
/// threads slowly; there it is enough that the stacks would not fit 32 bits.
const int kCycles = isEmulated() ? 600 : 2'000;
constexpr int kWarmUp = 200;
constexpr long kTolerance = 512L * 1024;  // KiB. A leak would be some 16 GiB.

struct OwnThread : Shared {
    CSThread thread;
    std::atomic<bool> wasActiveAfterKill{true};
};

/// Waits until it may end, and kills itself.
void* killItself(void* argument) {
    OwnThread& own = *static_cast<OwnThread*>(argument);
    noteStart(own);
    while (!own.mayEnd) {
        sched_yield();
    }
    own.thread.kill();
    own.wasActiveAfterKill = own.thread.isActive();
    own.hasEnded = true;
    return nullptr;
}

/// Starts and ends a thread. Returns true when it is gone.
struct Cycle {
    const char* name;
    bool (*run)();
};

constexpr Cycle kCycleKinds[] = {
    {"Killed",
     [] {
         Shared shared;
         CSThread thread;
         const bool isStarted = thread.create(waitForCancellation, &shared) && shared.waitForStart();
         thread.kill();
         return isStarted && shared.waitForGone();
     }},
    {"KilledAfterItsEnd",
     [] {
         Shared shared;
         CSThread thread;
         const bool isGone = thread.create(endAtOnce, &shared) && shared.waitForStart() && shared.waitForGone();
         thread.kill();
         return isGone;
     }},
    {"KilledByItself",
     [] {
         OwnThread own;
         // The creator must not use the thread before, so it delays the kill.
         const bool isStarted = own.thread.create(killItself, &own);
         own.mayEnd = true;
         return isStarted && own.waitForStart() && own.waitForGone() && !own.wasActiveAfterKill;
     }},
    {"CancelledByDestruction",
     [] {
         Shared shared;
         auto thread = std::make_unique<CSThread>();
         const bool isStarted = thread->create(waitForCancellation, &shared) && shared.waitForStart();
         thread.reset();
         return isStarted && shared.waitForGone();
     }},
    {"Joined",
     [] {
         Shared shared;
         CSThread thread;
         const bool isJoined = thread.create(endAtOnce, &shared) && thread.waitForThread();
         thread.kill();
         return isJoined;
     }},
};

class CSThreadResources : public testing::TestWithParam<Cycle> {};

INSTANTIATE_TEST_SUITE_P(Of, CSThreadResources, testing::ValuesIn(kCycleKinds), nameOfRow<Cycle>);

TEST_P(CSThreadResources, AreFreedWithTheThread) {
    // Arenas of the allocator would look like a leak while they are created.
    mallopt(M_ARENA_MAX, 1);
    for (int i = 0; i < kWarmUp; ++i) {
        ASSERT_TRUE(GetParam().run()) << "warm-up " << i;
    }
    const long threads = statusNumber("Threads");
    const long size = statusNumber("VmSize");
    for (int i = 0; i < kCycles; ++i) {
        ASSERT_TRUE(GetParam().run()) << "cycle " << i;
    }
    EXPECT_TRUE(waitUntil([threads] { return statusNumber("Threads") <= threads; }));
    EXPECT_LT(statusNumber("VmSize") - size, kTolerance);
}

/// Starts threads until one has this id, because the system reuses ids. It sleeps where a cancellation would end it.
std::unique_ptr<CSThread> successorOf(pthread_t id, Shared& shared) {
    for (int attempt = 0; attempt < 100; ++attempt) {
        auto thread = std::make_unique<CSThread>();
        shared.task = 0;
        shared.mayEnd = false;
        if (!thread->create(waitForCancellation, &shared) || !shared.waitForSleep()) {
            break;
        }
        if (thread->getId() == id) {
            return thread;
        }
        shared.mayEnd = true;
        thread->waitForThread();
    }
    return nullptr;
}

TEST(CSThreadJoined, HasNoEffectOnTheNextThreadWithItsId) {
    const std::function<void(std::unique_ptr<CSThread>&)> operations[] = {
        [](auto& thread) { thread->kill(); },
        [](auto& thread) { thread.reset(); },
        [](auto& thread) { EXPECT_FALSE(thread->waitForThread()); },
    };
    for (const auto& operation : operations) {
        Shared shared;
        auto thread = std::make_unique<CSThread>();
        ASSERT_TRUE(thread->create(endAtOnce, &shared));
        ASSERT_TRUE(thread->waitForThread());
        const auto successor = successorOf(thread->getId(), shared);
        ASSERT_TRUE(successor);
        operation(thread);
        EXPECT_EQ(detachStateOf(successor->getId()), PTHREAD_CREATE_JOINABLE);
        shared.mayEnd = true;
        EXPECT_TRUE(successor->waitForThread());
        EXPECT_FALSE(shared.wasCancelled);
    }
}

}  // namespace
}  // namespace com_tesk::test
