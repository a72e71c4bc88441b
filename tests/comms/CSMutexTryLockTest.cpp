#include <gtest/gtest.h>

#include <chrono>
#include <future>

#include "comms/CSMutex.h"

namespace com_tesk::test {
namespace {

/// Whether another thread gets the mutex without waiting. It is not kept.
bool canBeTakenElsewhere(CSMutex& mutex) {
    return std::async(std::launch::async,
                      [&mutex]() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
                          const bool isTaken = mutex.tryLock();
                          if (isTaken) {
                              mutex.unlock();
                          }
                          return isTaken;
                      })
        .get();
}

TEST(CSMutexTryLock, TakesAFreeMutex) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    CSMutex mutex;
    EXPECT_TRUE(mutex.tryLock());
    EXPECT_TRUE(mutex.isHeldByThisThread());
    EXPECT_FALSE(canBeTakenElsewhere(mutex));
    EXPECT_EQ(mutex.unlock(), 0U);
    EXPECT_FALSE(mutex.isHeldByThisThread());
    EXPECT_TRUE(canBeTakenElsewhere(mutex));
}

TEST(CSMutexTryLock, FailsAtOnceWhileAnotherThreadHoldsTheMutex) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    CSMutex mutex;
    mutex.lock();
    EXPECT_FALSE(canBeTakenElsewhere(mutex));
    EXPECT_TRUE(mutex.isHeldByThisThread()) << "the failed attempt changes nothing";
    mutex.unlock();
}

TEST(CSMutexTryLock, FailsForTheThreadThatHoldsTheMutex) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    CSMutex mutex;
    mutex.lock();
    EXPECT_FALSE(mutex.tryLock());
    EXPECT_EQ(mutex.unlock(), 0U);
}

TEST(CSMutexTryLock, ThatFailsMakesTheThreadNoHolder) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    CSMutex mutex;
    mutex.lock();
    EXPECT_FALSE(std::async(std::launch::async, [&mutex]() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
                     mutex.tryLock();
                     return mutex.isHeldByThisThread();
                 }).get());
    mutex.unlock();
}

TEST(CSMutexLockWithin, TakesWhatTryLockHasLetGo) CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
    CSMutex mutex;
    EXPECT_TRUE(mutex.tryLock());
    auto other = std::async(std::launch::async, [&mutex]() CSCLIENT_NO_THREAD_SAFETY_ANALYSIS {
        const bool isTaken = mutex.lockWithin(std::chrono::seconds(10));
        if (isTaken) {
            mutex.unlock();
        }
        return isTaken;
    });
    EXPECT_EQ(other.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    mutex.unlock();
    EXPECT_TRUE(other.get());
}

}  // namespace
}  // namespace com_tesk::test
