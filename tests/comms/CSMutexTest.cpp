#include "comms/CSMutex.h"

#include <gtest/gtest.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>
#include <type_traits>
#include <vector>

#include "comms/CSLockGuard.h"
#include "tests/comms/TaskStatus.h"

namespace com_tesk::test {
namespace {

static_assert(!std::is_copy_constructible<CSMutex>::value && !std::is_copy_assignable<CSMutex>::value,
              "it owns a system object");
static_assert(std::has_virtual_destructor<CSMutex>::value, "may be derived from");
static_assert(!std::is_copy_constructible<CSLockGuard>::value, "a lock is released once");

/// A mutex whose insides a test can reach.
class OpenMutex : public CSMutex {
  public:
    using CSMutex::lockStatus;
    using CSMutex::unlockStatus;

    /// The system's answer when the calling thread tries the lock without waiting; it is not kept.
    int tryLock() {
        const int result = pthread_mutex_trylock(&mutex);
        if (result == 0) {
            pthread_mutex_unlock(&mutex);
        }
        return result;
    }

    /// `lockWithin` and `unlock` for tests whose way through the lock analysis cannot follow.
    bool takeWithin(std::chrono::milliseconds timeout) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
        return lockWithin(timeout);
    }
    unsigned int release() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS { return unlock(); }

    /// Puts a mutex in place that reports its holder's death as an error.
    void makeRobust() {
        pthread_mutex_destroy(&mutex);
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
        pthread_mutex_init(&mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
};

int tryLockElsewhere(OpenMutex& mutex) {
    int result = -1;
    std::thread([&mutex, &result] { result = mutex.tryLock(); }).join();
    return result;
}

TEST(CSMutex, LocksAndUnlocksWithStatusZero) {
    CSMutex mutex;
    EXPECT_EQ(mutex.lock(), 0U);
    EXPECT_EQ(mutex.unlock(), 0U);
}

TEST(CSMutex, CanBeLockedAgainAfterUnlocking) {
    CSMutex mutex;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(mutex.lock(), 0U);
        EXPECT_EQ(mutex.unlock(), 0U);
    }
}

TEST(CSMutex, ShutsOtherThreadsOutWhileItIsHeld) {
    OpenMutex mutex;
    mutex.lock();
    EXPECT_EQ(tryLockElsewhere(mutex), EBUSY);
    mutex.unlock();
    EXPECT_EQ(tryLockElsewhere(mutex), 0);
}

TEST(CSMutex, IsNotRecursive) {
    OpenMutex mutex;
    mutex.lock();
    EXPECT_EQ(mutex.tryLock(), EBUSY);
    mutex.unlock();
}

TEST(CSMutex, LockBlocksUntilTheHolderUnlocks) {
    CSMutex mutex;
    std::atomic<pid_t> task{0};
    std::atomic<bool> hasLocked{false};
    mutex.lock();
    std::thread waiter([&] {
        task = thisTask();
        mutex.lock();
        hasLocked = true;
        mutex.unlock();
    });
    EXPECT_TRUE(eventually([&] { return task != 0 && isAsleep(task); }));
    EXPECT_FALSE(hasLocked);
    mutex.unlock();
    waiter.join();
    EXPECT_TRUE(hasLocked);
}

TEST(CSMutex, KeepsThreadsApart) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 5'000;
    CSMutex mutex;
    int counter = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                mutex.lock();
                ++counter;
                mutex.unlock();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, kThreads * kRounds);
}

TEST(CSMutexStatus, LockIsZeroForSuccess) {
    EXPECT_EQ(OpenMutex::lockStatus(0), 0U);
}

TEST(CSMutexStatus, LockIsOneForBusy) {
    EXPECT_EQ(OpenMutex::lockStatus(16), 1U);
}

TEST(CSMutexStatus, LockIsTwoForEveryOtherError) {
    for (int result = 1; result <= 15; ++result) {
        EXPECT_EQ(OpenMutex::lockStatus(result), 2U) << "result " << result;
    }
    for (const int result : {17, 18, 35, 130, 131, 1'000'000}) {
        EXPECT_EQ(OpenMutex::lockStatus(result), 2U) << "result " << result;
    }
}

TEST(CSMutexStatus, UnlockIsZeroForSuccessAndTwoForEveryError) {
    EXPECT_EQ(OpenMutex::unlockStatus(0), 0U);
    for (const int result : {1, 15, 16, 17, 35, 131}) {
        EXPECT_EQ(OpenMutex::unlockStatus(result), 2U) << "result " << result;
    }
}

TEST(CSMutexStatus, LockReportsTheSystemsErrorsAsTwo) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    robust_list_head* list = nullptr;
    std::size_t length = 0;
    if (syscall(SYS_get_robust_list, 0, &list, &length) != 0) {
        GTEST_SKIP() << "the system (an emulator?) does not tell a mutex that its holder has died";
    }
    OpenMutex mutex;
    mutex.makeRobust();
    std::thread([&mutex]() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS { mutex.lock(); }).join();
    // First its holder has died (130), then it has been given up for good (131).
    EXPECT_EQ(mutex.lock(), 2U);
    EXPECT_EQ(mutex.unlock(), 0U);
    EXPECT_EQ(mutex.lock(), 2U);
}

TEST(CSMutexHolder, IsNobodyAtFirst) {
    EXPECT_FALSE(CSMutex().isHeldByThisThread());
}

TEST(CSMutexHolder, IsTheThreadThatHasLocked) {
    CSMutex mutex;
    mutex.lock();
    EXPECT_TRUE(mutex.isHeldByThisThread());
    std::thread([&mutex] { EXPECT_FALSE(mutex.isHeldByThisThread()); }).join();
    mutex.unlock();
}

TEST(CSMutexHolder, IsNobodyAfterUnlocking) {
    CSMutex mutex;
    mutex.lock();
    mutex.unlock();
    EXPECT_FALSE(mutex.isHeldByThisThread());
}

TEST(CSMutexHolder, PassesOnWithTheLock) {
    CSMutex mutex;
    mutex.lock();
    mutex.unlock();
    std::thread([&mutex] {
        mutex.lock();
        EXPECT_TRUE(mutex.isHeldByThisThread());
        mutex.unlock();
    }).join();
    EXPECT_FALSE(mutex.isHeldByThisThread());
}

TEST(CSLockGuard, HoldsTheMutexForItsScope) {
    OpenMutex mutex;
    {
        const CSLockGuard guard(mutex);
        EXPECT_TRUE(mutex.isHeldByThisThread());
        EXPECT_EQ(tryLockElsewhere(mutex), EBUSY);
    }
    EXPECT_FALSE(mutex.isHeldByThisThread());
    EXPECT_EQ(tryLockElsewhere(mutex), 0);
}

TEST(CSLockGuard, UnlocksEarlyOnRequest) {
    OpenMutex mutex;
    CSLockGuard guard(mutex);
    EXPECT_EQ(guard.unlock(), 0U);
    EXPECT_FALSE(mutex.isHeldByThisThread());
    EXPECT_EQ(tryLockElsewhere(mutex), 0);
}

TEST(CSLockGuard, DoesNotUnlockASecondTimeWhenItEnds) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    OpenMutex mutex;
    {
        CSLockGuard guard(mutex);
        guard.unlock();
        // A plain mutex would be unlocked by whoever asks, so a second unlock would take it away from its new holder.
        mutex.lock();
    }
    EXPECT_TRUE(mutex.isHeldByThisThread());
    EXPECT_EQ(tryLockElsewhere(mutex), EBUSY);
    mutex.unlock();
}

TEST(CSLockGuard, ReleasesTheMutexWhenAnExceptionPasses) {
    OpenMutex mutex;
    try {
        const CSLockGuard guard(mutex);
        throw 1;
    } catch (int) {
        EXPECT_EQ(tryLockElsewhere(mutex), 0);
    }
}

// A bounded wait.

TEST(CSMutexLockWithin, TakesAFreeLockAtOnce) {
    OpenMutex mutex;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(mutex.takeWithin(std::chrono::seconds(10)));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    EXPECT_TRUE(mutex.isHeldByThisThread());
    EXPECT_EQ(tryLockElsewhere(mutex), EBUSY);
    EXPECT_EQ(mutex.release(), 0U);
    EXPECT_FALSE(mutex.isHeldByThisThread());
    EXPECT_EQ(tryLockElsewhere(mutex), 0);
}

TEST(CSMutexLockWithin, TriesOnceWhenThereIsNoTime) {
    OpenMutex mutex;
    for (const int noTime : {0, -1}) {
        EXPECT_TRUE(mutex.takeWithin(std::chrono::milliseconds(noTime)));
        bool isLocked = true;
        std::thread([&] { isLocked = mutex.takeWithin(std::chrono::milliseconds(noTime)); }).join();
        EXPECT_FALSE(isLocked);
        mutex.release();
    }
}

TEST(CSMutexLockWithin, GivesUpAfterItsTimeAndNotBefore) {
    OpenMutex mutex;
    mutex.lock();
    bool isLocked = true;
    std::chrono::steady_clock::duration waited{0};
    std::thread([&] {
        const auto start = std::chrono::steady_clock::now();
        isLocked = mutex.takeWithin(std::chrono::milliseconds(100));
        waited = std::chrono::steady_clock::now() - start;
        EXPECT_FALSE(mutex.isHeldByThisThread());
    }).join();
    EXPECT_FALSE(isLocked);
    EXPECT_GE(waited, std::chrono::milliseconds(100));
    EXPECT_LT(waited, std::chrono::seconds(2));
    EXPECT_TRUE(mutex.isHeldByThisThread());
    mutex.unlock();
}

TEST(CSMutexLockWithin, GetsALockThatIsReleasedMeanwhile) {
    OpenMutex mutex;
    mutex.lock();
    bool isLocked = false;
    std::thread waiter([&] {
        isLocked = mutex.takeWithin(std::chrono::seconds(20));
        if (isLocked) {
            mutex.release();
        }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    mutex.unlock();
    waiter.join();
    EXPECT_TRUE(isLocked);
}

TEST(CSMutexLockWithin, FailsAtOnceForTheThreadThatHoldsTheLock) {
    OpenMutex mutex;
    mutex.lock();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(mutex.takeWithin(std::chrono::seconds(20)));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_TRUE(mutex.isHeldByThisThread());
    mutex.unlock();
}

TEST(CSMutexLockWithin, ShutsOtherThreadsOut) {
    OpenMutex mutex;
    int unguarded = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 500;) {
                if (mutex.takeWithin(std::chrono::milliseconds(round % 2))) {
                    ++unguarded;
                    ++round;
                    mutex.release();
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(unguarded, 2000);
}

}  // namespace
}  // namespace com_tesk::test
