#include <linux/futex.h>

#include <type_traits>

#include "comms/CSLockGuard.h"
#include "comms/CSMutex.h"
#include "comms/CSUseCount.h"
#include "tests/comms/Transports.h"

namespace com_tesk::test {
namespace {

static_assert(!std::is_copy_constructible_v<CSMutex> && !std::is_copy_assignable_v<CSMutex>, "owns a system object");
static_assert(std::has_virtual_destructor_v<CSMutex>, "may be derived from");
static_assert(!std::is_copy_constructible_v<CSLockGuard>, "a lock is released once");

/// A mutex whose insides a test can reach.
class OpenMutex : public CSMutex {
  public:
    using CSMutex::lockStatus;
    using CSMutex::unlockStatus;

    /// As the mutex's own, for tests that the lock analysis cannot follow.
    bool takeWithin(milliseconds timeout) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS { return lockWithin(timeout); }
    unsigned int lockForTest() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS { return lock(); }
    bool take() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS { return tryLock(); }
    unsigned int release() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS { return unlock(); }

    /// Returns the result of `operation` on another thread, and unlocks when it has locked.
    template <typename Operation>
    bool succeedsElsewhere(const Operation& operation) {
        return std::async(std::launch::async,
                          [&] {
                              const bool isTaken = operation();
                              EXPECT_EQ(isHeldByThisThread(), isTaken);
                              if (isTaken) {
                                  release();
                              }
                              return isTaken;
                          })
            .get();
    }
    bool isFreeElsewhere() {
        return succeedsElsewhere([this] { return take(); });
    }

    /// Replaces the system's mutex by one that reports its holder's death as an error.
    void makeRobust() {
        pthread_mutex_destroy(&mutex);
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
        pthread_mutex_init(&mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
};

TEST(CSMutex, IsTakenAtOnceWhenFreeHoweverItIsLocked) {
    OpenMutex mutex;
    const std::function<bool()> operations[] = {
        [&] { return mutex.lockForTest() == 0; },
        [&] { return mutex.take(); },
        [&] { return mutex.takeWithin(std::chrono::seconds(10)); },
        [&] { return mutex.takeWithin(milliseconds(0)); },
        [&] { return mutex.takeWithin(milliseconds(-1)); },
    };
    EXPECT_FALSE(mutex.isHeldByThisThread());
    for (const auto& operation : operations) {
        const Stopwatch elapsed;
        EXPECT_TRUE(operation());
        EXPECT_LT(elapsed.seconds(), 2.0);
        EXPECT_TRUE(mutex.isHeldByThisThread());
        EXPECT_FALSE(mutex.isFreeElsewhere());
        EXPECT_FALSE(mutex.take()) << "not even for its holder";
        EXPECT_TRUE(mutex.isHeldByThisThread()) << "failed attempts change nothing";
        EXPECT_EQ(mutex.release(), 0U);
        EXPECT_FALSE(mutex.isHeldByThisThread());
        EXPECT_TRUE(mutex.isFreeElsewhere());
        EXPECT_FALSE(mutex.isHeldByThisThread());
    }
}

TEST(CSMutex, LockBlocksUntilTheHolderUnlocks) {
    CSMutex mutex;
    std::atomic<bool> hasLocked{false};
    mutex.lock();
    BackgroundCall waiter([&] {
        mutex.lock();
        hasLocked = true;
        EXPECT_TRUE(mutex.isHeldByThisThread());
        mutex.unlock();
        return CallResult();
    });
    EXPECT_TRUE(waiter.waitUntilItBlocks());
    EXPECT_FALSE(hasLocked);
    mutex.unlock();
    waiter.get();
    EXPECT_TRUE(hasLocked);
}

TEST(CSMutex, ExcludesOtherThreadsHoweverItIsLocked) {
    constexpr int kRounds = 2'000;
    OpenMutex mutex;
    int unguarded = 0;
    std::vector<std::future<void>> threads;
    for (int i = 0; i < 4; ++i) {
        threads.push_back(std::async(std::launch::async, [&mutex, &unguarded, i]() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
            for (int round = 0; round < kRounds;) {
                const bool isLocked = i < 2 ? mutex.lock() == 0 : mutex.takeWithin(milliseconds(round % 2));
                if (isLocked) {
                    ++unguarded;
                    ++round;
                    mutex.unlock();
                }
            }
        }));
    }
    threads.clear();
    EXPECT_EQ(unguarded, 4 * kRounds);
}

TEST(CSMutexStatus, IsZeroForSuccessTwoForErrorsAndOneForABusyLock) {
    EXPECT_EQ(OpenMutex::lockStatus(0), 0U);
    EXPECT_EQ(OpenMutex::unlockStatus(0), 0U);
    for (const int result : {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 35, 130, 131, 1'000'000}) {
        EXPECT_EQ(OpenMutex::lockStatus(result), result == 16 ? 1U : 2U) << "result " << result;
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
    // First its holder has died (130), then it cannot be recovered (131).
    EXPECT_EQ(mutex.lock(), 2U);
    EXPECT_EQ(mutex.unlock(), 0U);
    EXPECT_EQ(mutex.lock(), 2U);
}

TEST(CSLockGuard, HoldsTheMutexForItsScopeAlsoWhenAnExceptionEndsIt) {
    OpenMutex mutex;
    try {
        const CSLockGuard guard(mutex);
        EXPECT_TRUE(mutex.isHeldByThisThread());
        EXPECT_FALSE(mutex.isFreeElsewhere());
        throw 1;
    } catch (int) {
        EXPECT_FALSE(mutex.isHeldByThisThread());
        EXPECT_TRUE(mutex.isFreeElsewhere());
    }
}

TEST(CSLockGuard, UnlocksEarlyOnRequestAndThenNotAgain) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    OpenMutex mutex;
    {
        CSLockGuard guard(mutex);
        EXPECT_EQ(guard.unlock(), 0U);
        EXPECT_FALSE(mutex.isHeldByThisThread());
        EXPECT_TRUE(mutex.isFreeElsewhere());
        // A second unlock would take the mutex away from its new holder.
        mutex.lock();
    }
    EXPECT_TRUE(mutex.isHeldByThisThread());
    EXPECT_FALSE(mutex.isFreeElsewhere());
    mutex.unlock();
}

TEST(CSMutexLockWithin, FailsAfterItsTimeAndAtOnceForItsHolder) {
    OpenMutex mutex;
    mutex.lock();
    for (const int timeout : {100, 0, -1}) {
        const Stopwatch elapsed;
        EXPECT_FALSE(mutex.succeedsElsewhere([&] { return mutex.takeWithin(milliseconds(timeout)); }));
        EXPECT_GE(elapsed.seconds(), timeout / 1'000.0);
        EXPECT_LT(elapsed.seconds(), 2.0);
        EXPECT_TRUE(mutex.isHeldByThisThread());
    }
    const Stopwatch elapsed;
    EXPECT_FALSE(mutex.takeWithin(std::chrono::seconds(20))) << "at once for its holder";
    EXPECT_LT(elapsed.seconds(), 5.0);
    EXPECT_TRUE(mutex.isHeldByThisThread());
    mutex.unlock();
}

TEST(CSMutexLockWithin, GetsALockThatIsReleasedMeanwhile) {
    OpenMutex mutex;
    EXPECT_TRUE(mutex.take());
    auto other = std::async(std::launch::async, [&mutex] {
        return mutex.succeedsElsewhere([&mutex] { return mutex.takeWithin(std::chrono::seconds(20)); });
    });
    EXPECT_EQ(other.wait_for(milliseconds(50)), std::future_status::timeout);
    mutex.release();
    EXPECT_TRUE(other.get());
}

using Use = CSUseCount::Use;

class CSUseCountTest : public testing::Test {
  protected:
    std::unique_ptr<Use> use() { return std::make_unique<Use>(count); }

    void startToWait() {
        waiters.push_back(std::async(std::launch::async, [this] {
            count.waitForUsers();
            ++ended;
        }));
    }
    bool hasAnyEnded() {
        return waitUntil([this] { return ended > 0; }, std::chrono::milliseconds(50));
    }
    bool haveAllEnded() {
        return waitUntil([this] { return ended == static_cast<int>(waiters.size()); });
    }

    CSUseCount count;
    std::atomic<int> ended{0};
    std::vector<std::future<void>> waiters;
};

TEST_F(CSUseCountTest, IsInUseUntilTheLastUseEnds) {
    EXPECT_FALSE(count.isInUse());
    count.waitForUsers();
    auto first = use();
    auto second = use();
    auto third = use();
    first.reset();
    auto fourth = use();
    second.reset();
    third.reset();
    EXPECT_TRUE(count.isInUse());
    fourth.reset();
    EXPECT_FALSE(count.isInUse());
    const auto fifth = use();
    EXPECT_TRUE(count.isInUse());
}

TEST_F(CSUseCountTest, TwoWaitsLastUntilTheLastUseEnds) {
    auto first = use();
    auto second = use();
    startToWait();
    startToWait();
    EXPECT_FALSE(hasAnyEnded());
    first.reset();
    EXPECT_FALSE(hasAnyEnded());
    second.reset();
    EXPECT_TRUE(haveAllEnded());
}

TEST_F(CSUseCountTest, WaitIsNotProlongedByUsesThatBeginLater) {
    auto first = use();
    startToWait();
    EXPECT_FALSE(hasAnyEnded());
    const auto later = use();
    first.reset();
    EXPECT_TRUE(haveAllEnded());
    EXPECT_TRUE(count.isInUse());
}

TEST_F(CSUseCountTest, NoThreadUsesAHandleThatWasWithdrawn) {
    constexpr int kRounds = 200;
    // Stands for a descriptor; 0 is none.
    std::atomic<int> handle{0};
    std::atomic<int> closed{0};
    std::atomic<bool> isOver{false};
    std::atomic<int> misuses{0};
    std::vector<std::future<void>> users;
    for (int i = 0; i < 3; ++i) {
        users.push_back(std::async(std::launch::async, [&] {
            while (!isOver) {
                const Use inUse(count);
                const int seen = handle;
                if (seen != 0) {
                    std::this_thread::yield();
                    misuses += closed == seen ? 1 : 0;
                }
            }
        }));
    }
    for (int round = 1; round <= kRounds; ++round) {
        handle = round;
        std::this_thread::yield();
        handle = 0;
        count.waitForUsers();
        closed = round;
    }
    isOver = true;
    users.clear();
    EXPECT_EQ(misuses, 0);
}

}  // namespace
}  // namespace com_tesk::test
