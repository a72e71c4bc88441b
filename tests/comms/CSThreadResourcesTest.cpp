#include <gtest/gtest.h>
#include <malloc.h>
#include <pthread.h>

#include <functional>
#include <memory>

#include "comms/CSThread.h"
#include "tests/comms/ThreadRoutines.h"
#include "tests/comms/Transports.h"
#include "tests/support/Emulator.h"

namespace com_tesk::test {
namespace {

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

/// A thread that has the id of one that was joined, because the system reuses ids.
class Successor {
  public:
    /// Starts threads until one has this id. That one sleeps where a cancellation would end it.
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

    /// Ends the thread. Returns true when it was neither cancelled nor detached before.
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
        Successor successor(thread->getId());
        ASSERT_TRUE(successor.hasTheId());
        operation(thread);
        EXPECT_TRUE(successor.endUntouched());
    }
}

}  // namespace
}  // namespace com_tesk::test
