#include "comms/WholeSeconds.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

#include "tests/comms/TaskStatus.h"
#include "tests/comms/ThreadRoutines.h"

namespace com_tesk::test {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// Lets SIGUSR1 interrupt system calls instead of restarting them.
class InterruptingSignal {
  public:
    InterruptingSignal() {
        struct sigaction action {};
        action.sa_handler = [](int /*signal*/) {};
        sigemptyset(&action.sa_mask);
        sigaction(SIGUSR1, &action, &previous);
    }
    InterruptingSignal(const InterruptingSignal&) = delete;
    InterruptingSignal& operator=(const InterruptingSignal&) = delete;
    ~InterruptingSignal() { sigaction(SIGUSR1, &previous, nullptr); }

  private:
    struct sigaction previous {};
};

struct Sleep {
    milliseconds elapsed;
    int signals;
};

/// Sleeps while the thread gets a signal every `spacing`.
Sleep sleepInAStorm(unsigned int seconds, milliseconds spacing) {
    const InterruptingSignal signal;
    const pthread_t sleeper = pthread_self();
    std::atomic<bool> isOver{false};
    std::atomic<int> signals{0};
    std::thread storm([&] {
        while (!isOver) {
            pthread_kill(sleeper, SIGUSR1);
            ++signals;
            std::this_thread::sleep_for(spacing);
        }
    });
    const auto start = Clock::now();
    sleepWholeSeconds(seconds);
    const auto elapsed = Clock::now() - start;
    isOver = true;
    storm.join();
    return {std::chrono::duration_cast<milliseconds>(elapsed), signals};
}

TEST(SleepWholeSeconds, SleepsAsLongAsItIsTold) {
    const auto start = Clock::now();
    sleepWholeSeconds(1);
    const auto elapsed = Clock::now() - start;
    EXPECT_GE(elapsed, std::chrono::seconds(1));
    EXPECT_LT(elapsed, std::chrono::seconds(2));
}

TEST(SleepWholeSeconds, ReturnsAtOnceForZero) {
    const auto start = Clock::now();
    sleepWholeSeconds(0);
    EXPECT_LT(Clock::now() - start, milliseconds(500));
}

TEST(SleepWholeSeconds, IsNeitherShortenedNorStretchedByAStormOfSignals) {
    const Sleep sleep = sleepInAStorm(2, milliseconds(1));
    EXPECT_GT(sleep.signals, 20);
    EXPECT_GE(sleep.elapsed, milliseconds(2'000));
    EXPECT_LT(sleep.elapsed, milliseconds(3'500));
}

TEST(SleepWholeSeconds, IsNeitherShortenedNorStretchedByAFewSignals) {
    // Far enough apart that a remainder rounded to whole seconds would show.
    const Sleep sleep = sleepInAStorm(2, milliseconds(300));
    EXPECT_GE(sleep.signals, 2);
    EXPECT_GE(sleep.elapsed, milliseconds(2'000));
    EXPECT_LT(sleep.elapsed, milliseconds(3'500));
}

void* sleepLong(void* argument) {
    *static_cast<std::atomic<pid_t>*>(argument) = thisTask();
    pthread_cleanup_push([](void* /*unused*/) { forgetDeadFrames(); }, nullptr);
    sleepWholeSeconds(100);
    pthread_cleanup_pop(0);
    return nullptr;
}

TEST(SleepWholeSeconds, CanBeCancelled) {
    std::atomic<pid_t> task{0};
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, sleepLong, &task), 0);
    EXPECT_TRUE(eventually([&] { return task != 0 && isAsleep(task); }));
    const auto start = Clock::now();
    pthread_cancel(thread);
    void* result = nullptr;
    EXPECT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
}

}  // namespace
}  // namespace com_tesk::test
