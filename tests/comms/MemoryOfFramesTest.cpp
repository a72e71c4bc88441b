#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <future>

#include "tests/comms/BufferedPair.h"
#include "tests/comms/SystemCalls.h"
#include "tests/comms/TaskStatus.h"
#include "tests/message/AllocationLimit.h"

namespace com_tesk::test {
namespace {

using std::chrono::milliseconds;
using Bounds = CSCommsInterfaceTCPBuffered::Bounds;

constexpr unsigned int kAnnounced = 15'000'000;
constexpr std::size_t kArrived = 2U << 20U;

/// Far more than sockets, lines and threads need, far less than what has arrived of the frame.
constexpr std::size_t kLittle = 300'000;

Bounds quickBounds() {
    Bounds bounds;
    bounds.writeTimeout = milliseconds(1'000);
    return bounds;
}

CSCommsInterfaceTCP::Options withASmallSendBufferOnly() {
    CSCommsInterfaceTCP::Options options;
    options.sendBufferSize = 4'096;
    return options;
}

/// A connection on which a large frame has arrived in part.
class MemoryOfAFrame : public testing::Test {
  protected:
    /// Lets the reader read what has arrived.
    void receivePart() {
        Bytes header = frameOf(Bytes());
        for (int i = 0; i < 4; ++i) {
            header[static_cast<std::size_t>(i)] = static_cast<unsigned char>((kAnnounced + 32) >> (24 - 8 * i));
        }
        pair.peer->send(header);
        ASSERT_EQ(readOnce(pair.transport, 32).result, 32);
        auto sent = std::async(std::launch::async, [this] { pair.peer->send(part); });
        while (sent.wait_for(milliseconds(0)) != std::future_status::ready) {
            ASSERT_EQ(readOnce(pair.transport, kAnnounced).result, -2);
        }
        ASSERT_EQ(readOnce(pair.transport, kAnnounced).result, -2);
        ASSERT_GT(allocatedBytes(), before + kArrived) << "the test could not fail";
    }

    ReadResult readOn() { return readOnce(pair.transport, kAnnounced); }

    void expectGivenBack() { EXPECT_LT(allocatedBytes(), before + kLittle); }

    const Bytes part = patternedBytes(kArrived);
    BufferedPair pair{quickBounds(), withASmallSendBufferOnly()};
    const std::size_t before = allocatedBytes();
};

TEST_F(MemoryOfAFrame, IsGivenBackAtTheEndOfTheStream) {
    receivePart();
    pair.peer->close();
    EXPECT_EQ(readOn().result, 0);
    expectGivenBack();
}

TEST_F(MemoryOfAFrame, IsGivenBackAfterAReset) {
    receivePart();
    pair.peer->reset();
    const ReadResult read = readOn();
    EXPECT_EQ(read.result, -1);
    EXPECT_EQ(read.error, ECONNRESET);
    expectGivenBack();
}

TEST_F(MemoryOfAFrame, IsGivenBackAfterAnInterruption) {
    receivePart();
    pair.transport.setInterrupted(true);
    EXPECT_EQ(readOn().error, ECANCELED);
    expectGivenBack();
}

TEST_F(MemoryOfAFrame, IsGivenBackAfterTooLongASilence) {
    receivePart();
    ReadResult read;
    for (read.result = -2; read.result == -2;) {
        read = readOn();
    }
    EXPECT_EQ(read.error, ETIMEDOUT);
    expectGivenBack();
}

TEST_F(MemoryOfAFrame, IsGivenBackWhenThePeerIsGone) {
    receivePart();
    tcp_info gone{};
    gone.tcpi_retransmits = 10;
    gone.tcpi_last_ack_recv = 60'000;
    SystemCalls calls;
    calls.pretendTcpInfo(gone);
    EXPECT_EQ(readOn().error, ETIMEDOUT);
    expectGivenBack();
}

TEST_F(MemoryOfAFrame, IsGivenBackByClose) {
    receivePart();
    EXPECT_EQ(pair.transport.close(), 0);
    expectGivenBack();
}

TEST_F(MemoryOfAFrame, IsGivenBackByCloseOfAnotherThread) {
    receivePart();
    EXPECT_EQ(std::async(std::launch::async, [this] { return pair.transport.close(); }).get(), 0);
    expectGivenBack();
}

TEST_F(MemoryOfAFrame, IsGivenBackByAReadThatAnotherThreadsCloseEnds) {
    receivePart();
    std::atomic<pid_t> task{0};
    auto reading = std::async(std::launch::async, [&] {
        task = thisTask();
        return readOn();
    });
    EXPECT_TRUE(eventually([&] { return task != 0 && isAsleep(task); }));
    EXPECT_EQ(pair.transport.close(), 0);
    EXPECT_NE(reading.get().result, static_cast<int>(kAnnounced));
    expectGivenBack();
}

/// A connection on which a write that waited for room has taken in what the peer sent.
class MemoryOfTheBacklog : public MemoryOfAFrame {
  protected:
    void takeIn() {
        auto sent = std::async(std::launch::async, [this] { pair.peer->send(part); });
        EXPECT_EQ(pair.transport.writeMessage(messageOfBytes(Bytes(8U << 20U))), -1) << "the peer does not read";
        sent.get();
        ASSERT_GT(allocatedBytes(), before + kArrived / 2) << "the test could not fail";
    }
};

TEST_F(MemoryOfTheBacklog, IsGivenBackByClose) {
    takeIn();
    EXPECT_EQ(pair.transport.close(), 0);
    expectGivenBack();
}

TEST_F(MemoryOfTheBacklog, IsGivenBackOnceItHasBeenRead) {
    takeIn();
    RawMessage read(RawMessage::DATA);
    read.reserve(kArrived + 4'096);
    int result = 1'024;
    while (result == 1'024 && read.size() < kArrived) {
        result = pair.transport.readMessage(1'024, read);
    }
    EXPECT_TRUE(bytesOf(read) == Bytes(part.begin(), part.begin() + static_cast<std::ptrdiff_t>(read.size())));
    EXPECT_GT(read.size(), kArrived / 2);
    EXPECT_EQ(readOnce(pair.transport, 1).result, 0);
    EXPECT_LT(allocatedBytes() - read.capacity(), before + kLittle);
}

TEST_F(MemoryOfTheBacklog, IsGivenBackAfterAnInterruptionAndAClose) {
    takeIn();
    pair.transport.setInterrupted(true);
    EXPECT_EQ(readOnce(pair.transport, 32).result, -2);
    EXPECT_EQ(pair.transport.close(), 0);
    expectGivenBack();
}

}  // namespace
}  // namespace com_tesk::test
