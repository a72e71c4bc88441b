#include "comms/InterruptiblePause.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <future>
#include <thread>
#include <vector>

#include "tests/comms/BufferedPair.h"
#include "tests/comms/TaskStatus.h"

namespace com_tesk::test {
namespace {

using std::chrono::milliseconds;

/// A pause that a test interrupts lasts so long otherwise.
constexpr unsigned int kManySeconds = 60;

/// Far below it.
constexpr double kFarBelowMany = 20.0;

/// A pause of many seconds on another thread, which has begun.
class PauseUnderWay {
  public:
    explicit PauseUnderWay(InterruptiblePause& pause)
        : thread([this, &pause] {
              task = thisTask();
              pause.sleep(kManySeconds);
              hasEnded = true;
          }) {
        EXPECT_TRUE(eventually([this] { return task != 0 && isAsleep(task); }));
    }
    PauseUnderWay(const PauseUnderWay&) = delete;
    PauseUnderWay& operator=(const PauseUnderWay&) = delete;
    ~PauseUnderWay() { thread.join(); }

    pthread_t handle() { return thread.native_handle(); }

    std::atomic<bool> hasEnded{false};

  private:
    std::atomic<pid_t> task{0};
    std::thread thread;
};

double secondsOfPause(InterruptiblePause& pause, unsigned int seconds) {
    const StopwatchSince watch;
    pause.sleep(seconds);
    return watch.seconds();
}

TEST(InterruptiblePause, LastsItsSeconds) {
    InterruptiblePause pause;
    EXPECT_GE(secondsOfPause(pause, 1), 1.0);
    EXPECT_GE(secondsOfPause(pause, 2), 2.0);
}

TEST(InterruptiblePause, OfNoSecondsReturnsAtOnce) {
    InterruptiblePause pause;
    EXPECT_LT(secondsOfPause(pause, 0), kFarBelowMany);
}

TEST(InterruptiblePause, EndsWhenAnotherThreadInterrupts) {
    InterruptiblePause pause;
    const StopwatchSince watch;
    {
        const PauseUnderWay underWay(pause);
        EXPECT_FALSE(underWay.hasEnded);
        pause.interrupt();
    }
    EXPECT_LT(watch.seconds(), kFarBelowMany);
}

TEST(InterruptiblePause, EndsForAllThreadsThatAreInside) {
    InterruptiblePause pause;
    const StopwatchSince watch;
    {
        const PauseUnderWay first(pause);
        const PauseUnderWay second(pause);
        const PauseUnderWay third(pause);
        pause.interrupt();
    }
    EXPECT_LT(watch.seconds(), kFarBelowMany);
}

TEST(InterruptiblePause, ReturnsAtOnceAfterAnInterruption) {
    InterruptiblePause pause;
    pause.interrupt();
    EXPECT_LT(secondsOfPause(pause, kManySeconds), kFarBelowMany);
    EXPECT_LT(secondsOfPause(pause, kManySeconds), kFarBelowMany) << "also the second time";
}

TEST(InterruptiblePause, LastsItsSecondsAgainAfterAReset) {
    InterruptiblePause pause;
    pause.interrupt();
    pause.interrupt();
    pause.reset();
    EXPECT_GE(secondsOfPause(pause, 1), 1.0);
}

TEST(InterruptiblePause, IsNotEndedByAReset) {
    InterruptiblePause pause;
    pause.reset();
    auto paused = std::async(std::launch::async, [&pause] { return secondsOfPause(pause, 1); });
    while (paused.wait_for(milliseconds(10)) != std::future_status::ready) {
        pause.reset();
    }
    EXPECT_GE(paused.get(), 1.0);
}

TEST(InterruptiblePause, IsNotShortenedBySignals) {
    struct sigaction harmless {};
    struct sigaction previous {};
    harmless.sa_handler = [](int) {};  // And no SA_RESTART.
    ASSERT_EQ(sigaction(SIGUSR1, &harmless, &previous), 0);
    InterruptiblePause pause;
    std::atomic<bool> isOver{false};
    std::thread signaller([&isOver, pausing = pthread_self()] {
        while (!isOver) {
            pthread_kill(pausing, SIGUSR1);
            std::this_thread::sleep_for(milliseconds(3));
        }
    });
    EXPECT_GE(secondsOfPause(pause, 1), 1.0);
    isOver = true;
    signaller.join();
    sigaction(SIGUSR1, &previous, nullptr);
}

void* pauseLong(void* pause) {
    static_cast<InterruptiblePause*>(pause)->sleep(kManySeconds);
    return nullptr;
}

TEST(InterruptiblePause, LeavesItsMutexFreeWhenItIsCancelled) {
    InterruptiblePause pause;
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, pauseLong, &pause), 0);
    std::this_thread::sleep_for(milliseconds(50));  // It is cancelled inside, or on its way there: both must do.
    ASSERT_EQ(pthread_cancel(thread), 0);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    auto others = std::async(std::launch::async, [&pause] {
        pause.interrupt();
        pause.sleep(kManySeconds);
        pause.reset();
    });
    EXPECT_EQ(others.wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

}  // namespace
}  // namespace com_tesk::test
