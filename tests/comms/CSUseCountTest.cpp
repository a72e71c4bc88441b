#include "comms/CSUseCount.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "tests/comms/TaskStatus.h"

namespace com_tesk::test {
namespace {

TEST(CSUseCount, IsUnusedAtFirst) {
    EXPECT_FALSE(CSUseCount().isInUse());
}

TEST(CSUseCount, IsInUseForTheScopeOfAUse) {
    CSUseCount count;
    {
        const CSUseCount::Use use(count);
        EXPECT_TRUE(count.isInUse());
    }
    EXPECT_FALSE(count.isInUse());
}

TEST(CSUseCount, IsInUseUntilTheLastUseEnds) {
    CSUseCount count;
    auto first = std::make_unique<CSUseCount::Use>(count);
    auto second = std::make_unique<CSUseCount::Use>(count);
    first.reset();
    EXPECT_TRUE(count.isInUse());
    second.reset();
    EXPECT_FALSE(count.isInUse());
}

TEST(CSUseCount, CountsAlsoThoseWhoComeAfterTheFirstHasLeft) {
    CSUseCount count;
    auto first = std::make_unique<CSUseCount::Use>(count);
    auto second = std::make_unique<CSUseCount::Use>(count);
    auto third = std::make_unique<CSUseCount::Use>(count);
    first.reset();
    auto fourth = std::make_unique<CSUseCount::Use>(count);
    second.reset();
    third.reset();
    EXPECT_TRUE(count.isInUse());
    fourth.reset();
    EXPECT_FALSE(count.isInUse());
    const CSUseCount::Use fifth(count);
    EXPECT_TRUE(count.isInUse());
}

TEST(CSUseCount, WaitReturnsAtOnceWhenNobodyIsCounted) {
    CSUseCount count;
    count.waitForUsers();
    EXPECT_FALSE(count.isInUse());
}

TEST(CSUseCount, WaitLastsUntilTheLastUseEnds) {
    CSUseCount count;
    auto first = std::make_unique<CSUseCount::Use>(count);
    auto second = std::make_unique<CSUseCount::Use>(count);
    std::atomic<bool> isWaiting{false};
    std::atomic<bool> hasWaited{false};
    std::thread waiter([&] {
        isWaiting = true;
        count.waitForUsers();
        hasWaited = true;
    });
    EXPECT_TRUE(eventually([&] { return isWaiting.load(); }));
    EXPECT_FALSE(eventually([&] { return hasWaited.load(); }, std::chrono::milliseconds(50)));
    first.reset();
    EXPECT_FALSE(eventually([&] { return hasWaited.load(); }, std::chrono::milliseconds(50)));
    second.reset();
    EXPECT_TRUE(eventually([&] { return hasWaited.load(); }));
    waiter.join();
}

TEST(CSUseCount, WaitIsNotProlongedByUsesThatBeginLater) {
    CSUseCount count;
    auto first = std::make_unique<CSUseCount::Use>(count);
    std::atomic<bool> hasWaited{false};
    std::thread waiter([&] {
        count.waitForUsers();
        hasWaited = true;
    });
    EXPECT_FALSE(eventually([&] { return hasWaited.load(); }, std::chrono::milliseconds(50)));
    const CSUseCount::Use later(count);
    first.reset();
    EXPECT_TRUE(eventually([&] { return hasWaited.load(); }));
    EXPECT_TRUE(count.isInUse());
    waiter.join();
}

TEST(CSUseCount, TwoWaitsAtOnceBothEnd) {
    CSUseCount count;
    auto first = std::make_unique<CSUseCount::Use>(count);
    std::atomic<int> ended{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 2; ++i) {
        waiters.emplace_back([&] {
            count.waitForUsers();
            ++ended;
        });
    }
    EXPECT_FALSE(eventually([&] { return ended > 0; }, std::chrono::milliseconds(50)));
    first.reset();
    EXPECT_TRUE(eventually([&] { return ended == 2; }));
    for (std::thread& waiter : waiters) {
        waiter.join();
    }
}

TEST(CSUseCount, NobodyUsesWhatWasTakenAway) {
    constexpr int kRounds = 200;
    CSUseCount count;
    // Not 0: there is something to use. It stands for a descriptor.
    std::atomic<int> thing{0};
    std::atomic<int> closed{0};
    std::atomic<bool> isOver{false};
    std::atomic<int> misuses{0};
    std::vector<std::thread> users;
    for (int i = 0; i < 3; ++i) {
        users.emplace_back([&] {
            while (!isOver) {
                const CSUseCount::Use use(count);
                const int seen = thing;
                if (seen != 0) {
                    std::this_thread::yield();
                    if (closed == seen) {
                        ++misuses;
                    }
                }
            }
        });
    }
    for (int round = 1; round <= kRounds; ++round) {
        thing = round;
        std::this_thread::yield();
        thing = 0;
        count.waitForUsers();
        closed = round;
    }
    isOver = true;
    for (std::thread& user : users) {
        user.join();
    }
    EXPECT_EQ(misuses, 0);
}

}  // namespace
}  // namespace com_tesk::test
