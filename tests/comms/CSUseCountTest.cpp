#include "comms/CSUseCount.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "tests/support/Waiting.h"

namespace com_tesk::test {
namespace {

using Use = CSUseCount::Use;

class CSUseCountTest : public testing::Test {
  protected:
    ~CSUseCountTest() override {
        for (std::thread& waiter : waiters) {
            waiter.join();
        }
    }

    std::unique_ptr<Use> use() { return std::make_unique<Use>(count); }

    void startToWait() {
        waiters.emplace_back([this] {
            count.waitForUsers();
            ++ended;
        });
    }
    bool hasAnyEnded() {
        return waitUntil([this] { return ended > 0; }, std::chrono::milliseconds(50));
    }
    bool haveAllEnded() {
        return waitUntil([this] { return ended == static_cast<int>(waiters.size()); });
    }

    CSUseCount count;
    std::atomic<int> ended{0};
    std::vector<std::thread> waiters;
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
    std::vector<std::thread> users;
    for (int i = 0; i < 3; ++i) {
        users.emplace_back([&] {
            while (!isOver) {
                const Use inUse(count);
                const int seen = handle;
                if (seen != 0) {
                    std::this_thread::yield();
                    misuses += closed == seen ? 1 : 0;
                }
            }
        });
    }
    for (int round = 1; round <= kRounds; ++round) {
        handle = round;
        std::this_thread::yield();
        handle = 0;
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
