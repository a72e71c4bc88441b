#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <future>

#include "tests/comms/SystemCalls.h"
#include "tests/comms/Transports.h"
#include "tests/message/AllocationLimit.h"

namespace com_tesk::test {
namespace {

constexpr unsigned int kAnnounced = 15'000'000;
constexpr std::size_t kArrived = 2U << 20U;

/// Far more than sockets, lines and threads need, and far less than what has arrived.
constexpr std::size_t kLittle = 300'000;

/// A connection on which a large frame arrives in part.
class PartOfAFrame {
  public:
    /// Makes the reader receive what has arrived.
    void receive() {
        pair.peer->send(headerOf(kAnnounced));
        ASSERT_EQ(readOnce(pair.transport, 32).result, 32);
        auto sent = std::async(std::launch::async, [this] { pair.peer->send(part); });
        while (sent.wait_for(milliseconds(0)) != std::future_status::ready) {
            ASSERT_EQ(read().result, -2);
        }
        ASSERT_EQ(read().result, -2);
        ASSERT_GT(allocatedBytes(), before + kArrived) << "the test could not fail";
    }

    /// Makes a write that waits receive what the peer sends.
    void receiveInAWrite() {
        auto sent = std::async(std::launch::async, [this] { pair.peer->send(part); });
        EXPECT_EQ(pair.transport.writeMessage(messageOfBytes(Bytes(8U << 20U))), -1) << "the peer does not read";
        sent.get();
        ASSERT_GT(allocatedBytes(), before + kArrived / 2) << "the test could not fail";
    }

    CallResult read() { return readOnce(pair.transport, kAnnounced); }

    static Bounds quickBounds() {
        Bounds bounds;
        bounds.writeTimeout = milliseconds(1'000);
        return bounds;
    }

    const Bytes part = patternedBytes(kArrived);
    BufferedPair pair{quickBounds(), bufferSizes(4'096)};
    const std::size_t before = allocatedBytes();
};

/// A way in which a connection ends.
struct EndOfConnection {
    const char* name;
    void (*end)(PartOfAFrame& frame);
};

constexpr EndOfConnection kEndings[] = {
    {"EndOfStream",
     [](PartOfAFrame& frame) {
         frame.pair.peer->close();
         EXPECT_EQ(frame.read().result, 0);
     }},
    {"Reset",
     [](PartOfAFrame& frame) {
         frame.pair.peer->reset();
         EXPECT_EQ(frame.read().error, ECONNRESET);
     }},
    {"Interruption",
     [](PartOfAFrame& frame) {
         frame.pair.transport.setInterrupted(true);
         EXPECT_EQ(frame.read().error, ECANCELED);
     }},
    {"Silence",
     [](PartOfAFrame& frame) {
         RawMessage message(RawMessage::DATA);
         EXPECT_EQ(readFully(frame.pair.transport, kAnnounced, message), -1);
         EXPECT_EQ(errno, ETIMEDOUT);
     }},
    {"DeadPeer",
     [](PartOfAFrame& frame) {
         tcp_info gone{};
         gone.tcpi_retransmits = 10;
         gone.tcpi_last_ack_recv = 60'000;
         SystemCalls calls;
         calls.pretendTcpInfo(gone);
         EXPECT_EQ(frame.read().error, ETIMEDOUT);
     }},
    {"Close", [](PartOfAFrame& frame) { EXPECT_EQ(frame.pair.transport.close(), 0); }},
    {"CloseDuringARead",
     [](PartOfAFrame& frame) {
         BackgroundCall reading([&frame] { return frame.read(); });
         EXPECT_TRUE(reading.waitUntilItBlocks());
         EXPECT_EQ(frame.pair.transport.close(), 0);
         EXPECT_NE(reading.get().result, static_cast<int>(kAnnounced));
     }},
};

class MemoryOfAFrame : public testing::TestWithParam<EndOfConnection>, protected PartOfAFrame {};

INSTANTIATE_TEST_SUITE_P(After, MemoryOfAFrame, testing::ValuesIn(kEndings), nameOfRow<EndOfConnection>);

TEST_P(MemoryOfAFrame, IsFreedWhenItsConnectionEnds) {
    receive();
    GetParam().end(*this);
    EXPECT_LT(allocatedBytes(), before + kLittle);
}

class MemoryOfTheBacklog : public testing::Test, protected PartOfAFrame {};

TEST_F(MemoryOfTheBacklog, IsFreedByCloseAlsoAfterAnInterruption) {
    for (const bool isInterrupted : {false, true}) {
        receiveInAWrite();
        if (isInterrupted) {
            pair.transport.setInterrupted(true);
            EXPECT_EQ(readOnce(pair.transport, 32).result, -2);
        }
        EXPECT_EQ(pair.transport.close(), 0);
        EXPECT_LT(allocatedBytes(), before + kLittle);
        pair.transport.setInterrupted(false);
        pair.connect();
    }
}

TEST_F(MemoryOfTheBacklog, IsFreedOnceItHasBeenRead) {
    receiveInAWrite();
    RawMessage read(RawMessage::DATA);
    read.reserve(kArrived + 4'096);
    int result = 1'024;
    while (result == 1'024 && read.size() < kArrived) {
        result = pair.transport.readMessage(1'024, read);
    }
    EXPECT_TRUE(bytesOf(read) == slice(part, 0, read.size()));
    EXPECT_GT(read.size(), kArrived / 2);
    EXPECT_EQ(readOnce(pair.transport, 1).result, 0);
    EXPECT_LT(allocatedBytes() - read.capacity(), before + kLittle);
}

}  // namespace
}  // namespace com_tesk::test
