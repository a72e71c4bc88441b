#include "comms/ReceiveBacklog.h"

#include <random>
#include <system_error>

#include "tests/comms/Transports.h"
#include "tests/support/Allocations.h"
#include "tests/support/Seed.h"

namespace com_tesk::test {
namespace {

constexpr std::size_t kNoLimit = 1U << 20U;

/// A backlog, and the stream from which it receives.
class ReceiveBacklogTest : public testing::Test {
  protected:
    ReceiveBacklogTest() {
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
            throw std::system_error(errno, std::generic_category(), "socketpair");
        }
    }
    ~ReceiveBacklogTest() override {
        ::close(ends[0]);
        ::close(ends[1]);
    }

    void arrive(const Bytes& bytes) {
        ASSERT_EQ(send(ends[1], bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }

    bool takeIn(std::size_t limit = kNoLimit) { return backlog.takeIn(ends[0], limit); }

    /// Returns up to `count` bytes of the backlog.
    Bytes deliver(std::size_t count) {
        Bytes bytes(count + 1);
        bytes.resize(backlog.deliver(reinterpret_cast<char*>(bytes.data()), count));
        return bytes;
    }

    /// Returns the bytes that are left in the stream.
    Bytes leftInStream() {
        Bytes bytes(kNoLimit);
        const ssize_t count = recv(ends[0], bytes.data(), bytes.size(), MSG_DONTWAIT);
        bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        return bytes;
    }

    ReceiveBacklog backlog;
    int ends[2] = {-1, -1};
};

TEST_F(ReceiveBacklogTest, DeliversInOrderNoMoreThanAskedFor) {
    EXPECT_TRUE(backlog.isEmpty());
    EXPECT_EQ(hexText(deliver(10)), "");
    EXPECT_FALSE(takeIn()) << "the stream is quiet";
    EXPECT_TRUE(backlog.isEmpty());
    arrive(hex("01 02 03"));
    EXPECT_TRUE(takeIn());
    EXPECT_FALSE(backlog.isEmpty());
    EXPECT_EQ(hexText(deliver(0)), "");
    EXPECT_EQ(hexText(deliver(2)), "01 02");
    arrive(hex("04 05"));
    EXPECT_TRUE(takeIn());
    EXPECT_EQ(hexText(deliver(9)), "03 04 05");
    EXPECT_TRUE(backlog.isEmpty());
}

TEST_F(ReceiveBacklogTest, KeepsEveryByteInAnyMixOfTakingAndDelivering) {
    std::mt19937_64 random(newSeed());
    const auto upTo = [&random](std::size_t most) { return static_cast<std::size_t>(random() % (most + 1)); };
    const Bytes stream = patternedBytes(400'000);
    Bytes delivered;
    std::size_t arrived = 0;
    while (delivered.size() < stream.size()) {
        const std::size_t next = std::min(upTo(20'000), stream.size() - arrived);
        arrive(slice(stream, arrived, arrived + next));
        arrived += next;
        EXPECT_EQ(takeIn(), next > 0);
        append(delivered, deliver(arrived < stream.size() ? upTo(30'000) : stream.size()));
    }
    EXPECT_TRUE(delivered == stream);
    EXPECT_TRUE(backlog.isEmpty());
}

TEST_F(ReceiveBacklogTest, TakesInExactlyUpToItsLimit) {
    arrive(Bytes(10, 0xAB));
    EXPECT_FALSE(takeIn(0));
    EXPECT_TRUE(takeIn(7));
    EXPECT_FALSE(takeIn(7));
    EXPECT_FALSE(takeIn(6)) << "less than it has already";
    EXPECT_EQ(deliver(6).size(), 6U);
    EXPECT_TRUE(takeIn(3)) << "delivered bytes do not count";
    EXPECT_EQ(deliver(20).size(), 3U);
    EXPECT_EQ(leftInStream().size(), 1U);
}

TEST_F(ReceiveBacklogTest, TakesInNothingAtTheEndOfTheStream) {
    arrive(hex("01"));
    shutdown(ends[1], SHUT_WR);
    EXPECT_TRUE(takeIn());
    EXPECT_FALSE(takeIn());
    EXPECT_EQ(hexText(deliver(9)), "01");
    char byte = 0;
    EXPECT_EQ(recv(ends[0], &byte, 1, 0), 0) << "the reader still finds the end";
}

TEST_F(ReceiveBacklogTest, LeavesTheErrorOfAConnectionToTheReader) {
    EXPECT_FALSE(backlog.takeIn(-1, kNoLimit)) << "without a descriptor";
    BufferedPair pair;
    pair.peer->reset();
    char byte = 0;
    EXPECT_FALSE(backlog.takeIn(pair.transport.descriptor(), kNoLimit));
    EXPECT_EQ(recv(pair.transport.descriptor(), &byte, 1, 0), -1);
    EXPECT_EQ(errno, ECONNRESET);
}

TEST_F(ReceiveBacklogTest, LosesNothingWithoutMemory) {
    arrive(hex("01 02"));
    EXPECT_TRUE(takeIn());
    arrive(Bytes(5'000, 0xAB));
    {
        const AllocationLimit little(1'000);
        EXPECT_FALSE(takeIn());
    }
    EXPECT_EQ(hexText(deliver(9)), "01 02");
    EXPECT_EQ(leftInStream().size(), 5'000U);
}

TEST_F(ReceiveBacklogTest, FreesItsMemoryWhenAllIsDeliveredAndOnRelease) {
    const std::size_t before = allocatedBytes();
    for (const bool isReleased : {false, true}) {
        arrive(Bytes(60'000));
        EXPECT_TRUE(takeIn());
        EXPECT_GE(allocatedBytes(), before + 60'000);
        if (isReleased) {
            backlog.release();
        } else {
            EXPECT_EQ(deliver(60'000).size(), 60'000U);
        }
        EXPECT_TRUE(backlog.isEmpty());
        EXPECT_EQ(allocatedBytes(), before);
    }
    arrive(hex("01 02"));
    EXPECT_TRUE(takeIn());
    EXPECT_EQ(hexText(deliver(9)), "01 02") << "it works after a release";
}

TEST_F(ReceiveBacklogTest, NeedsLittleMoreMemoryThanItsLimit) {
    // The space before the bytes must not grow when the reader never delivers all.
    constexpr std::size_t kLimit = 50'000;
    const Bytes some(10'000);
    const std::size_t before = allocatedBytes();
    for (int i = 0; i < 200; ++i) {
        arrive(some);
        takeIn(kLimit);
        ASSERT_LE(allocatedBytes(), before + 4 * kLimit);
        ASSERT_LE(deliver(i < 5 ? 1'000 : 10'000).size(), 10'000U);
    }
}

}  // namespace
}  // namespace com_tesk::test
