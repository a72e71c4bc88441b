#include "comms/ReceiveBacklog.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <random>
#include <system_error>

#include "tests/comms/BufferedPair.h"
#include "tests/message/AllocationLimit.h"
#include "tests/support/Seed.h"

namespace com_tesk::test {
namespace {

constexpr std::size_t kNoLimit = 1U << 20U;

/// A backlog, and a stream from which it takes in.
class ReceiveBacklogOfAStream : public testing::Test {
  protected:
    ReceiveBacklogOfAStream() {
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
            throw std::system_error(errno, std::generic_category(), "socketpair");
        }
    }
    ~ReceiveBacklogOfAStream() override {
        ::close(ends[0]);
        closePeer();
    }

    void closePeer() {
        if (ends[1] >= 0) {
            ::close(ends[1]);
            ends[1] = -1;
        }
    }

    void arrive(const Bytes& bytes) {
        ASSERT_EQ(send(ends[1], bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }

    bool takeIn(std::size_t limit = kNoLimit) { return backlog.takeIn(ends[0], limit); }

    /// Up to `count` bytes out of the backlog.
    Bytes deliver(std::size_t count) {
        Bytes bytes(count + 1);
        bytes.resize(backlog.deliver(reinterpret_cast<char*>(bytes.data()), count));
        return bytes;
    }

    /// What is left in the stream itself.
    Bytes leftInStream() {
        Bytes bytes(kNoLimit);
        const ssize_t count = recv(ends[0], bytes.data(), bytes.size(), MSG_DONTWAIT);
        bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        return bytes;
    }

    ReceiveBacklog backlog;
    int ends[2] = {-1, -1};
};

using ReceiveBacklogTest = ReceiveBacklogOfAStream;

TEST_F(ReceiveBacklogTest, IsEmptyAtFirst) {
    EXPECT_TRUE(backlog.isEmpty());
    EXPECT_EQ(hexText(deliver(10)), "");
}

TEST_F(ReceiveBacklogTest, TakesInNothingFromAQuietStream) {
    EXPECT_FALSE(takeIn());
    EXPECT_TRUE(backlog.isEmpty());
}

TEST_F(ReceiveBacklogTest, DeliversWhatItHasTakenIn) {
    arrive(hex("01 02 03"));
    EXPECT_TRUE(takeIn());
    EXPECT_FALSE(backlog.isEmpty());
    EXPECT_EQ(hexText(deliver(10)), "01 02 03");
    EXPECT_TRUE(backlog.isEmpty());
}

TEST_F(ReceiveBacklogTest, DeliversNoMoreThanThereIsRoomFor) {
    arrive(hex("01 02 03"));
    EXPECT_TRUE(takeIn());
    EXPECT_EQ(hexText(deliver(0)), "");
    EXPECT_EQ(hexText(deliver(2)), "01 02");
    EXPECT_EQ(hexText(deliver(2)), "03");
}

TEST_F(ReceiveBacklogTest, KeepsTheOrderOfSeveralTakings) {
    arrive(hex("01 02"));
    EXPECT_TRUE(takeIn());
    EXPECT_EQ(hexText(deliver(1)), "01");
    arrive(hex("03 04"));
    EXPECT_TRUE(takeIn());
    EXPECT_EQ(hexText(deliver(9)), "02 03 04");
}

TEST_F(ReceiveBacklogTest, KeepsEveryByteInAnyMixOfTakingAndDelivering) {
    std::mt19937_64 random(newSeed());
    const auto upTo = [&random](std::size_t most) { return static_cast<std::size_t>(random() % (most + 1)); };
    const Bytes stream = patternedBytes(400'000);
    Bytes delivered;
    std::size_t arrived = 0;
    while (delivered.size() < stream.size()) {
        const std::size_t next = std::min(upTo(20'000), stream.size() - arrived);
        const auto from = stream.begin() + static_cast<std::ptrdiff_t>(arrived);
        arrive(Bytes(from, from + static_cast<std::ptrdiff_t>(next)));
        arrived += next;
        EXPECT_EQ(takeIn(), next > 0);
        const Bytes some = deliver(arrived < stream.size() ? upTo(30'000) : stream.size());
        delivered.insert(delivered.end(), some.begin(), some.end());
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
    EXPECT_TRUE(takeIn(8));
    EXPECT_EQ(deliver(20).size(), 8U);
    EXPECT_EQ(leftInStream().size(), 2U);
}

TEST_F(ReceiveBacklogTest, CountsOnlyWhatIsInItAgainstTheLimit) {
    arrive(Bytes(10));
    EXPECT_TRUE(takeIn(5));
    EXPECT_EQ(deliver(4).size(), 4U);
    EXPECT_TRUE(takeIn(5));
    EXPECT_EQ(deliver(20).size(), 5U);
}

TEST_F(ReceiveBacklogTest, TakesInNothingAtTheEndOfTheStream) {
    arrive(hex("01"));
    closePeer();
    EXPECT_TRUE(takeIn());
    EXPECT_FALSE(takeIn());
    EXPECT_EQ(hexText(deliver(9)), "01");
    char byte = 0;
    EXPECT_EQ(recv(ends[0], &byte, 1, 0), 0) << "the reader still finds the end";
}

TEST_F(ReceiveBacklogTest, LeavesTheErrorOfAConnectionToTheReader) {
    BufferedPair pair;
    pair.peer->reset();
    char byte = 0;
    EXPECT_FALSE(backlog.takeIn(pair.transport.descriptor(), kNoLimit));
    EXPECT_EQ(recv(pair.transport.descriptor(), &byte, 1, 0), -1);
    EXPECT_EQ(errno, ECONNRESET);
}

TEST_F(ReceiveBacklogTest, TakesInNothingFromADescriptorThatIsNone) {
    EXPECT_FALSE(backlog.takeIn(-1, kNoLimit));
    EXPECT_TRUE(backlog.isEmpty());
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

TEST_F(ReceiveBacklogTest, GivesItsMemoryBackWhenAllIsDelivered) {
    const std::size_t before = allocatedBytes();
    arrive(Bytes(60'000));
    EXPECT_TRUE(takeIn());
    EXPECT_GE(allocatedBytes(), before + 60'000);
    EXPECT_EQ(deliver(60'000).size(), 60'000U);
    EXPECT_EQ(allocatedBytes(), before);
}

TEST_F(ReceiveBacklogTest, GivesItsMemoryBackOnRelease) {
    const std::size_t before = allocatedBytes();
    arrive(Bytes(60'000));
    EXPECT_TRUE(takeIn());
    backlog.release();
    EXPECT_TRUE(backlog.isEmpty());
    EXPECT_EQ(allocatedBytes(), before);
    arrive(hex("01 02"));
    EXPECT_TRUE(takeIn());
    EXPECT_EQ(hexText(deliver(9)), "01 02") << "it goes on after it";
}

TEST_F(ReceiveBacklogTest, NeedsLittleMoreMemoryThanItsLimit) {
    // A reader that is always a little behind must not let the space in front of its bytes grow.
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
