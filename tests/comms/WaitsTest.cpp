// The waits of the library: InterruptiblePause and sleepWholeSeconds.

#include <list>

#include "comms/InterruptiblePause.h"
#include "comms/WholeSeconds.h"
#include "tests/comms/ThreadRoutines.h"
#include "tests/comms/Transports.h"

namespace com_tesk::test {
namespace {

/// The length of a pause that a test interrupts, and a time far below it.
constexpr unsigned int kManySeconds = 60;
constexpr double kFarBelowMany = 20.0;

double secondsOfPause(InterruptiblePause& pause, unsigned int seconds) {
    const Stopwatch elapsed;
    pause.sleep(seconds);
    return elapsed.seconds();
}

TEST(InterruptiblePause, LastsItsSeconds) {
    InterruptiblePause pause;
    EXPECT_LT(secondsOfPause(pause, 0), kFarBelowMany);
    EXPECT_GE(secondsOfPause(pause, 1), 1.0);
    EXPECT_GE(secondsOfPause(pause, 2), 2.0);
}

TEST(InterruptiblePause, EndsForAllThreadsWhenAnotherThreadInterrupts) {
    InterruptiblePause pause;
    const Stopwatch elapsed;
    std::list<BackgroundCall> sleepers;
    for (int i = 0; i < 3; ++i) {
        sleepers.emplace_back([&pause] {
            pause.sleep(kManySeconds);
            return CallResult();
        });
        EXPECT_TRUE(sleepers.back().waitUntilItBlocks());
    }
    EXPECT_FALSE(sleepers.front().hasEnded());
    pause.interrupt();
    sleepers.clear();
    EXPECT_LT(elapsed.seconds(), kFarBelowMany);
}

TEST(InterruptiblePause, ReturnsAtOnceFromAnInterruptionToAReset) {
    InterruptiblePause pause;
    pause.interrupt();
    EXPECT_LT(secondsOfPause(pause, kManySeconds), kFarBelowMany);
    EXPECT_LT(secondsOfPause(pause, kManySeconds), kFarBelowMany) << "also the second time";
    pause.interrupt();
    pause.reset();
    EXPECT_GE(secondsOfPause(pause, 1), 1.0);
}

TEST(InterruptiblePause, IsNotEndedByAResetOrBySignals) {
    InterruptiblePause pause;
    const RepeatedSignal signals(pthread_self(), milliseconds(3));
    auto resetting = std::async(std::launch::async, [&pause] {
        for (int i = 0; i < 90; ++i) {
            pause.reset();
            std::this_thread::sleep_for(milliseconds(10));
        }
    });
    EXPECT_GE(secondsOfPause(pause, 1), 1.0);
}

struct Waiter : Shared {
    std::function<void()> wait;
};

void* runWaiter(void* argument) {
    Waiter& waiter = *static_cast<Waiter*>(argument);
    pthread_cleanup_push([](void* /*unused*/) { dropDeadFrames(); }, nullptr);
    noteStart(waiter);
    waiter.wait();
    pthread_cleanup_pop(0);
    return nullptr;
}

/// Cancels a thread that sleeps in this wait.
void expectCancellation(const std::function<void()>& wait) {
    Waiter waiter;
    waiter.wait = wait;
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, runWaiter, &waiter), 0);
    EXPECT_TRUE(waiter.waitForSleep());
    const Stopwatch elapsed;
    ASSERT_EQ(pthread_cancel(thread), 0);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_LT(elapsed.seconds(), 5.0);
}

TEST(InterruptiblePause, LeavesItsMutexFreeWhenItIsCancelled) {
    InterruptiblePause pause;
    expectCancellation([&pause] { pause.sleep(kManySeconds); });
    auto others = std::async(std::launch::async, [&pause] {
        pause.interrupt();
        pause.sleep(kManySeconds);
        pause.reset();
    });
    EXPECT_EQ(others.wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

TEST(SleepWholeSeconds, SleepsItsSeconds) {
    const Stopwatch none;
    sleepWholeSeconds(0);
    EXPECT_LT(none.seconds(), 0.5);
    const Stopwatch one;
    sleepWholeSeconds(1);
    EXPECT_GE(one.seconds(), 1.0);
    EXPECT_LT(one.seconds(), 2.0);
}

/// The parameter is the interval of signals in milliseconds. After 300, a remainder rounded to whole seconds would show.
class SleepWholeSecondsUnderSignals : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(Every, SleepWholeSecondsUnderSignals, testing::Values(1, 300),
                         testing::PrintToStringParamName());

TEST_P(SleepWholeSecondsUnderSignals, IsNeitherShortenedNorStretched) {
    RepeatedSignal signals(pthread_self(), milliseconds(GetParam()));
    const Stopwatch elapsed;
    sleepWholeSeconds(2);
    EXPECT_GE(elapsed.seconds(), 2.0);
    EXPECT_LT(elapsed.seconds(), 3.5);
    EXPECT_GE(signals.sent, GetParam() == 1 ? 21 : 2);
}

TEST(SleepWholeSeconds, CanBeCancelled) {
    expectCancellation([] { sleepWholeSeconds(100); });
}

}  // namespace
}  // namespace com_tesk::test
