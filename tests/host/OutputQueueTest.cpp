#include "host/OutputQueue.h"

#include <gtest/gtest.h>

#include "tests/host/RawBytes.h"

namespace com_tesk::host {
namespace {

using host_test::zeros;

TEST(OutputQueue, TakesFramesUpToItsBoundAndNotOneByteMore) {
    OutputQueue queue(100);
    EXPECT_TRUE(queue.push(zeros(60)));
    EXPECT_TRUE(queue.push(zeros(39)));
    EXPECT_TRUE(queue.push(zeros(1)));
    EXPECT_EQ(queue.bytes(), 100U);
    EXPECT_FALSE(queue.push(zeros(1)));
    EXPECT_EQ(queue.bytes(), 100U);
}

TEST(OutputQueue, TakesAFrameAboveItsBoundWhenEmptyAndNothingAfterIt) {
    OutputQueue queue(100);
    EXPECT_TRUE(queue.push(zeros(1000)));
    EXPECT_FALSE(queue.push(zeros(1)));
    queue.pop();
    EXPECT_TRUE(queue.push(zeros(1)));
}

TEST(OutputQueue, GivesFramesInTheOrderTheyCame) {
    OutputQueue queue(100);
    queue.push({1});
    queue.push({2, 2});
    EXPECT_EQ(queue.front(), Bytes({1}));
    queue.pop();
    EXPECT_EQ(queue.front(), Bytes({2, 2}));
    EXPECT_EQ(queue.bytes(), 2U);
    queue.pop();
    EXPECT_TRUE(queue.empty());
}

TEST(OutputQueue, HasRoomAgainAfterClear) {
    OutputQueue queue(10);
    queue.push(zeros(10));
    queue.clear();
    EXPECT_TRUE(queue.empty());
    EXPECT_EQ(queue.bytes(), 0U);
    EXPECT_TRUE(queue.push(zeros(10)));
}

}  // namespace
}  // namespace com_tesk::host
