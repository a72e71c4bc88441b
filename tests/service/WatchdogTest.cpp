#include "tools/service/Watchdog.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tests/service/NotifySocket.h"

namespace com_tesk::service_test {
namespace {

using service::Notifier;
using service::Watchdog;
using namespace std::chrono_literals;

/// A manager that wants a notification every four seconds. Times are those of the test.
class Watchdogs : public testing::Test {
  protected:
    /// Reports, and returns true when the manager is notified.
    bool reports(Watchdog& watchdog, std::size_t loop, std::chrono::milliseconds time) {
        watchdog.report(loop, start + time);
        const std::string message = manager.next(0ms);
        EXPECT_TRUE(message.empty() || message == "WATCHDOG=1") << message;
        return !message.empty();
    }

    const NotifySocket manager;
    const Variable place{"NOTIFY_SOCKET", manager.address()};
    const Variable limit{"WATCHDOG_USEC", "4000000"};
    const Notifier notifier;
    const Watchdog::Clock::time_point start = Watchdog::Clock::now() + 1s;
};

TEST_F(Watchdogs, NotifyOnceInHalfTheLimit) {
    Watchdog watchdog(notifier, 1);
    EXPECT_TRUE(reports(watchdog, 0, 10'000ms));
    EXPECT_FALSE(reports(watchdog, 0, 10'001ms));
    EXPECT_FALSE(reports(watchdog, 0, 11'999ms));
    EXPECT_TRUE(reports(watchdog, 0, 12'000ms));
}

TEST_F(Watchdogs, ALoopThatHangsEndsTheNotifications) {
    Watchdog watchdog(notifier, 2);
    EXPECT_FALSE(reports(watchdog, 0, 2'000ms)) << "loop 1 has not reported yet";
    EXPECT_TRUE(reports(watchdog, 1, 2'001ms));
    for (int i = 0; i < 100; ++i) {
        EXPECT_FALSE(reports(watchdog, 0, 10s + i * 1s));
    }
    EXPECT_TRUE(reports(watchdog, 1, 200s));
    EXPECT_FALSE(reports(watchdog, 1, 300s)) << "loop 0 has not reported since";
    EXPECT_TRUE(reports(watchdog, 0, 301s));
}

TEST_F(Watchdogs, TheLoopsReportWithinAQuarterOfTheLimit) {
    EXPECT_EQ(Watchdog(notifier, 2).reportInterval(), std::chrono::seconds(1));
}

TEST_F(Watchdogs, AnotherNumberOfALoopDoesNothing) {
    Watchdog watchdog(notifier, 2);
    EXPECT_FALSE(reports(watchdog, 2, 3s));
    EXPECT_FALSE(reports(watchdog, Watchdog::kMaxLoops, 3s));
    EXPECT_FALSE(reports(watchdog, 1, 3s));
    EXPECT_TRUE(reports(watchdog, 0, 3s));
}

TEST_F(Watchdogs, TakeTheMaximumOfLoopsFromManyThreads) {
    Watchdog watchdog(notifier, Watchdog::kMaxLoops);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < Watchdog::kMaxLoops; ++i) {
        threads.emplace_back([&watchdog, i, this] { watchdog.report(i, start + 10s); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(manager.next(), "WATCHDOG=1");
    EXPECT_TRUE(manager.isEmpty());
}

TEST(Watchdog, DoesNothingWithoutALimit) {
    const NotifySocket manager;
    const Variable place("NOTIFY_SOCKET", manager.address());
    const Notifier notifier;
    Watchdog watchdog(notifier, 1);
    EXPECT_EQ(watchdog.reportInterval(), std::nullopt);
    watchdog.report(0, Watchdog::Clock::now() + 1h);
    EXPECT_TRUE(manager.isEmpty());
}

}  // namespace
}  // namespace com_tesk::service_test
