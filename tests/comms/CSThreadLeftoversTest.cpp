#include <gtest/gtest.h>
#include <malloc.h>
#include <pthread.h>

#include <memory>

#include "comms/CSThread.h"
#include "tests/comms/ThreadRoutines.h"
#include "tests/support/Emulator.h"

namespace com_tesk::test {
namespace {

/// Threads that nobody joins or detaches keep their stacks: 8 MiB of address space each. An emulator starts threads slowly,
/// and its size says nothing; there it is enough that the stacks would not fit 32 bits.
const int kCycles = isEmulated() ? 600 : 2'000;
constexpr int kWarmUp = 200;
constexpr long kTolerance = 512L * 1024;  // KiB; what leaks would be some 16 GiB.

/// Runs a cycle many times and checks that neither threads nor address space pile up. The cycle returns whether the
/// thread that it started is gone.
template <typename Cycle>
void expectNothingIsLeft(Cycle cycle) {
    // Arenas of the allocator would look like a leak while they are being made.
    mallopt(M_ARENA_MAX, 1);
    for (int i = 0; i < kWarmUp; ++i) {
        ASSERT_TRUE(cycle()) << "warm-up " << i;
    }
    const long threads = statusNumber("Threads");
    const long size = statusNumber("VmSize");
    for (int i = 0; i < kCycles; ++i) {
        ASSERT_TRUE(cycle()) << "cycle " << i;
    }
    EXPECT_TRUE(eventually([threads] { return statusNumber("Threads") <= threads; }));
    EXPECT_LT(statusNumber("VmSize") - size, kTolerance);
}

TEST(CSThreadLeftovers, AKilledThreadLeavesNothing) {
    expectNothingIsLeft([] {
        Shared shared;
        CSThread thread;
        const bool isStarted = thread.create(waitForCancellation, &shared) && shared.waitForStart();
        thread.kill();
        return isStarted && shared.waitForGone();
    });
}

TEST(CSThreadLeftovers, AThreadKilledAfterItsEndLeavesNothing) {
    expectNothingIsLeft([] {
        Shared shared;
        CSThread thread;
        const bool isGone = thread.create(endAtOnce, &shared) && shared.waitForStart() && shared.waitForGone();
        thread.kill();
        return isGone;
    });
}

TEST(CSThreadLeftovers, AThreadThatKillsItselfLeavesNothing) {
    expectNothingIsLeft([] {
        struct OwnThread : Shared {
            CSThread thread;
        } own;
        // As its last act; the creator must not look at the thread before, so it holds it back.
        const bool isStarted = own.thread.create(
            [](void* argument) -> void* {
                OwnThread& shared = *static_cast<OwnThread*>(argument);
                noteStart(shared);
                while (!shared.mayEnd) {
                    sched_yield();
                }
                shared.thread.kill();
                shared.hasEnded = true;
                return nullptr;
            },
            &own);
        own.mayEnd = true;
        return isStarted && own.waitForStart() && own.waitForGone();
    });
}

TEST(CSThreadLeftovers, AThreadCancelledByDestructionLeavesNothing) {
    expectNothingIsLeft([] {
        Shared shared;
        auto thread = std::make_unique<CSThread>();
        const bool isStarted = thread->create(waitForCancellation, &shared) && shared.waitForStart();
        thread.reset();
        return isStarted && shared.waitForGone();
    });
}

TEST(CSThreadLeftovers, AJoinedThreadLeavesNothing) {
    expectNothingIsLeft([] {
        Shared shared;
        CSThread thread;
        const bool isJoined = thread.create(endAtOnce, &shared) && thread.waitForThread();
        thread.kill();
        return isJoined;
    });
}

/// A thread that has taken over the id of one that was joined: the system hands ids out again.
class Successor {
  public:
    /// Starts threads until one has this id; holds that one in a sleep that a cancellation would end.
    explicit Successor(pthread_t id) {
        for (int attempt = 0; attempt < 100 && !isStarted; ++attempt) {
            shared = std::make_unique<Shared>();
            if (pthread_create(&thread, nullptr, waitForCancellation, shared.get()) != 0) {
                return;
            }
            isStarted = thread == id && shared->waitForSleep();
            if (!isStarted) {
                end();
            }
        }
    }
    Successor(const Successor&) = delete;
    Successor& operator=(const Successor&) = delete;
    ~Successor() {
        if (isStarted) {
            end();
        }
    }

    bool hasTheId() const { return isStarted; }

    /// Ends the thread.
    /// @return whether nobody has touched it before: it was neither cancelled nor detached.
    bool endUntouched() {
        isStarted = false;
        return end() == 0 && !shared->wasCancelled;
    }

  private:
    int end() {
        pthread_attr_t attributes;
        int detachState = PTHREAD_CREATE_DETACHED;
        if (!shared->wasCancelled && pthread_getattr_np(thread, &attributes) == 0) {
            pthread_attr_getdetachstate(&attributes, &detachState);
            pthread_attr_destroy(&attributes);
        }
        shared->mayEnd = true;
        if (detachState == PTHREAD_CREATE_DETACHED) {
            shared->waitForGone();
            return -1;
        }
        return pthread_join(thread, nullptr);
    }

    pthread_t thread{};
    std::unique_ptr<Shared> shared;
    bool isStarted = false;
};

TEST(CSThreadLeftovers, KillAfterJoiningTouchesNoThread) {
    Shared shared;
    CSThread thread;
    ASSERT_TRUE(thread.create(endAtOnce, &shared));
    ASSERT_TRUE(thread.waitForThread());
    Successor successor(thread.getId());
    ASSERT_TRUE(successor.hasTheId());
    thread.kill();
    EXPECT_TRUE(successor.endUntouched());
}

TEST(CSThreadLeftovers, DestructionAfterJoiningTouchesNoThread) {
    Shared shared;
    auto thread = std::make_unique<CSThread>();
    ASSERT_TRUE(thread->create(endAtOnce, &shared));
    ASSERT_TRUE(thread->waitForThread());
    Successor successor(thread->getId());
    ASSERT_TRUE(successor.hasTheId());
    thread.reset();
    EXPECT_TRUE(successor.endUntouched());
}

TEST(CSThreadLeftovers, WaitingAgainAfterJoiningTouchesNoThread) {
    Shared shared;
    CSThread thread;
    ASSERT_TRUE(thread.create(endAtOnce, &shared));
    ASSERT_TRUE(thread.waitForThread());
    Successor successor(thread.getId());
    ASSERT_TRUE(successor.hasTheId());
    EXPECT_FALSE(thread.waitForThread());
    EXPECT_TRUE(successor.endUntouched());
}

}  // namespace
}  // namespace com_tesk::test
