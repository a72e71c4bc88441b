#include <cerrno>
#include <new>
#include <thread>

#include "tests/comms/SystemCalls.h"
#include "tests/comms/Transports.h"
#include "tests/support/Allocations.h"

namespace com_tesk::test {
namespace {

class BufferedReading : public testing::Test {
  protected:
    /// Sends bytes that do not fit the socket while the test reads.
    void sendMeanwhile(const Bytes& bytes) {
        sending = std::async(std::launch::async, [this, bytes] { pair.peer->send(bytes); });
    }

    int read(unsigned int count) { return pair.transport.readMessage(count, message); }

    BufferedPair pair;
    RawMessage message{RawMessage::DATA};
    std::future<void> sending;
};

TEST_F(BufferedReading, GivesMinusTwoAfterASecondWithPartOfTheBytesAndKeepsThem) {
    pair.peer->send("A1 A2");
    std::thread late([this] {
        std::this_thread::sleep_for(milliseconds(700));
        pair.peer->send("A3");
    });
    message = messageOf("01 02");
    const Stopwatch elapsed;
    EXPECT_EQ(read(4), -2);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GE(elapsed.seconds(), 0.99);
    EXPECT_LT(elapsed.seconds(), 1.5) << "the second does not begin again with a later byte";
    late.join();
    EXPECT_EQ(hexText(message), "01 02");
    pair.peer->send("A4");
    EXPECT_EQ(read(4), 4);
    EXPECT_EQ(hexText(message), "01 02 A1 A2 A3 A4");
}

TEST_F(BufferedReading, GivesWhatWasKeptOfALargeBodyInOtherPiecesTooAndLosesNothing) {
    const Bytes stream = patternedBytes(400'000);
    pair.peer->send(slice(stream, 0, 60'000));
    EXPECT_EQ(read(100'000), -2);
    EXPECT_TRUE(message.empty());
    EXPECT_EQ(read(10), 10);
    EXPECT_EQ(read(50'000), 50'000);
    sendMeanwhile(slice(stream, 60'000, 400'000));
    EXPECT_EQ(read(200'000), 200'000);
    EXPECT_EQ(read(49'990), 49'990);
    message = RawMessage(RawMessage::CONTROL);
    EXPECT_EQ(read(100'000), 100'000);
    EXPECT_TRUE(bytesOf(message) == slice(stream, 300'000, 400'000));
    EXPECT_EQ(message.getType(), RawMessage::CONTROL);
}

TEST_F(BufferedReading, OfANewConnectionGivesNothingOfThePreviousOne) {
    pair.peer->send(hexFrame("0A 0B"));
    EXPECT_EQ(readOnce(pair.transport, 1).result, 1);
    pair.transport.close();
    EXPECT_EQ(readOnce(pair.transport, 1).error, EBADF);
    pair.connect();
    pair.peer->send(frameOf(patternedBytes(100'000)));
    EXPECT_EQ(readOnce(pair.transport, 32).result, 32);
    pair.connect();
    pair.peer->send(hexFrame("0A 0B"));
    EXPECT_EQ(readBodyOfFrame(pair.transport), "0A 0B");
    pair.peer->send(Bytes(60'000));
    EXPECT_EQ(readOnce(pair.transport, 100'000).result, -2);
    pair.connect();
    pair.peer->send(hexFrame("0C"));
    EXPECT_EQ(readBodyOfFrame(pair.transport), "0C");
}

TEST_F(BufferedReading, CostsASmallFractionOfASystemCallForEachSmallFrame) {
    constexpr std::uint32_t kFrames = 1'000;
    Bytes stream;
    for (std::uint32_t i = 0; i < kFrames; ++i) {
        append(stream, frameOf(patternedBytes(20, i)));
    }
    pair.peer->send(stream);
    const SystemCalls calls;
    for (std::uint32_t i = 0; i < kFrames; ++i) {
        ASSERT_EQ(readBodyOfFrame(pair.transport), hexText(patternedBytes(20, i)));
    }
    EXPECT_LT(calls.lines().size(), kFrames / 10U);
    EXPECT_EQ(calls.textOf("recv"), calls.text());
}

TEST_F(BufferedReading, OfALargeBodyAppendsItAndCostsFewCalls) {
    const Bytes body = patternedBytes(1U << 20U);
    sendMeanwhile(body);
    message = messageOf("01 02");
    const SystemCalls calls;
    EXPECT_EQ(read(1U << 20U), 1 << 20);
    // In steps of the read-ahead it would be 64, and twice as many waits.
    EXPECT_LT(calls.lines().size(), 200U);
    EXPECT_EQ(message.getWord(0), 0x0102U);
    EXPECT_TRUE(slice(bytesOf(message), 2, message.size()) == body);
}

TEST_F(BufferedReading, HandsALargeBodyOverWithoutACopyOfIt) {
    const Bytes body = patternedBytes(1'000'000);
    pair.peer->send(slice(body, 0, 20'000));
    EXPECT_EQ(read(1'000'000), -2);
    sendMeanwhile(slice(body, 20'000, body.size()));
    int result = 0;
    {
        const AllocationLimit noMoreMemory(0);
        result = read(1'000'000);
    }
    EXPECT_EQ(result, 1'000'000) << "the message gets the memory in which the body has arrived";
    EXPECT_TRUE(bytesOf(message) == body);
}

TEST_F(BufferedReading, WithoutMemoryForTheMessageLosesNothing) {
    struct Row {
        const char* before;
        unsigned int size;
        std::size_t largestAllocation;
    };
    // The last is enough for the body, but not for the message with the body after its two bytes.
    for (const Row& row : {Row{"", 32, 0}, Row{"", 100'000, 99'999}, Row{"01 02", 100'000, 100'001}}) {
        const Bytes body = patternedBytes(row.size);
        pair.peer->send(body);
        message = messageOf(row.before);
        message.shrink_to_fit();
        {
            const AllocationLimit tooLittle(row.largestAllocation);
            EXPECT_THROW(read(row.size), std::bad_alloc);
        }
        EXPECT_EQ(hexText(message), row.before);
        RawMessage again(RawMessage::DATA);
        EXPECT_EQ(pair.transport.readMessage(row.size, again), static_cast<int>(row.size));
        EXPECT_TRUE(bytesOf(again) == body);
    }
}

TEST_F(BufferedReading, WithoutMemoryInTheMiddleOfAGrowingBodyLosesNothing) {
    const Bytes body = patternedBytes(200'000);
    pair.peer->send(slice(body, 0, 60'000));
    ASSERT_EQ(read(70'000), -2);
    sendMeanwhile(slice(body, 60'000, body.size()));
    {
        const AllocationLimit tooLittle(70'000);
        EXPECT_THROW(read(200'000), std::bad_alloc);
    }
    EXPECT_EQ(read(200'000), 200'000);
    EXPECT_TRUE(bytesOf(message) == body);
}

// The memory of a frame that arrives in part.

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
    {"CloseByAnotherThread",
     [](PartOfAFrame& frame) { std::thread([&frame] { EXPECT_EQ(frame.pair.transport.close(), 0); }).join(); }},
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
