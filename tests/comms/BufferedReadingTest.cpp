#include <gtest/gtest.h>

#include <cerrno>
#include <new>
#include <thread>

#include "tests/comms/BufferedPair.h"
#include "tests/comms/SystemCalls.h"
#include "tests/message/AllocationLimit.h"
#include "tests/message/MessageOf.h"

namespace com_tesk::test {
namespace {

constexpr char kHeaderOfTen[] =
    "00 00 00 2A 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF";

std::size_t linesOf(const SystemCalls& calls, const std::string& part) {
    std::size_t count = 0;
    for (const std::string& line : calls.lines()) {
        count += line.find(part) != std::string::npos ? 1 : 0;
    }
    return count;
}

struct BufferedReading : testing::Test {
    BufferedPair pair;
};

TEST_F(BufferedReading, AppendsExactlyTheBytesAskedFor) {
    pair.peer->send("A1 A2 A3 A4");
    RawMessage message = messageOf("01 02");
    EXPECT_EQ(pair.transport.readMessage(3, message), 3);
    EXPECT_EQ(hexText(message), "01 02 A1 A2 A3");
    EXPECT_EQ(pair.transport.readMessage(1, message), 1);
    EXPECT_EQ(hexText(message), "01 02 A1 A2 A3 A4");
}

TEST_F(BufferedReading, KeepsTheTypeOfTheMessage) {
    const Bytes large = patternedBytes(100'000);
    pair.peer->send("A1");
    pair.peer->send(large);
    RawMessage message(RawMessage::CONTROL);
    EXPECT_EQ(pair.transport.readMessage(1, message), 1);
    EXPECT_EQ(message.getType(), RawMessage::CONTROL);
    message.clear();
    EXPECT_EQ(pair.transport.readMessage(100'000, message), 100'000);
    EXPECT_EQ(message.getType(), RawMessage::CONTROL);
}

TEST_F(BufferedReading, OfNothingReturnsZeroAtOnceAndLeavesTheMessage) {
    RawMessage message = messageOf("01 02");
    EXPECT_EQ(pair.transport.readMessage(0, message), 0);
    EXPECT_EQ(hexText(message), "01 02");
}

TEST_F(BufferedReading, GivesMinusTwoWithEagainAfterASecondOfNothing) {
    RawMessage message = messageOf("01 02");
    const StopwatchSince watch;
    EXPECT_EQ(pair.transport.readMessage(4, message), -2);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GE(watch.seconds(), 0.99);
    EXPECT_LT(watch.seconds(), 1.9);
    EXPECT_EQ(hexText(message), "01 02");
}

TEST_F(BufferedReading, GivesMinusTwoAfterASecondWithPartOfTheBytesAndKeepsThem) {
    pair.peer->send("A1 A2 A3");
    RawMessage message = messageOf("01 02");
    const StopwatchSince watch;
    EXPECT_EQ(pair.transport.readMessage(4, message), -2);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GE(watch.seconds(), 0.99);
    EXPECT_LT(watch.seconds(), 1.9);
    EXPECT_EQ(hexText(message), "01 02");
    pair.peer->send("A4");
    EXPECT_EQ(pair.transport.readMessage(4, message), 4);
    EXPECT_EQ(hexText(message), "01 02 A1 A2 A3 A4");
}

TEST_F(BufferedReading, BlocksForNoMoreThanASecondAlsoWhenBytesComeLate) {
    std::thread late([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(700));
        pair.peer->send("A1");
    });
    const ReadResult read = readOnce(pair.transport, 32);
    late.join();
    EXPECT_EQ(read.result, -2);
    EXPECT_GE(read.seconds, 0.99);
    EXPECT_LT(read.seconds, 1.5) << "the second does not begin again with the first byte";
}

TEST_F(BufferedReading, KeepsPartOfALargeBodyForTheNextCall) {
    const Bytes body = patternedBytes(100'000);
    pair.peer->send(Bytes(body.begin(), body.begin() + 60'000));
    RawMessage message(RawMessage::DATA);
    EXPECT_EQ(pair.transport.readMessage(100'000, message), -2);
    EXPECT_TRUE(message.empty());
    pair.peer->send(Bytes(body.begin() + 60'000, body.end()));
    EXPECT_EQ(pair.transport.readMessage(100'000, message), 100'000);
    EXPECT_TRUE(bytesOf(message) == body);
}

TEST_F(BufferedReading, GivesWhatWasKeptOfALargeBodyInOtherPiecesTooAndLosesNothing) {
    const Bytes stream = patternedBytes(300'000);
    pair.peer->send(Bytes(stream.begin(), stream.begin() + 60'000));
    RawMessage message(RawMessage::DATA);
    EXPECT_EQ(pair.transport.readMessage(100'000, message), -2);
    EXPECT_EQ(pair.transport.readMessage(10, message), 10);
    EXPECT_EQ(pair.transport.readMessage(50'000, message), 50'000);
    std::thread rest([&] { pair.peer->send(Bytes(stream.begin() + 60'000, stream.end())); });
    EXPECT_EQ(pair.transport.readMessage(200'000, message), 200'000);
    EXPECT_EQ(pair.transport.readMessage(49'990, message), 49'990);
    rest.join();
    EXPECT_TRUE(bytesOf(message) == stream);
}

TEST_F(BufferedReading, AppendsALargeBodyToAMessageThatHoldsBytes) {
    const Bytes body = patternedBytes(200'000);
    std::thread sender([&] { pair.peer->send(body); });
    RawMessage message = messageOf("01 02");
    EXPECT_EQ(pair.transport.readMessage(200'000, message), 200'000);
    sender.join();
    Bytes expected{1, 2};
    expected.insert(expected.end(), body.begin(), body.end());
    EXPECT_TRUE(bytesOf(message) == expected);
}

TEST_F(BufferedReading, GivesZeroAtTheEndOfTheStreamAndDropsAPartialFrame) {
    pair.peer->send("A1 A2 A3");
    pair.peer->close();
    EXPECT_EQ(readOnce(pair.transport, 2).bytes, "A1 A2");
    RawMessage message = messageOf("01");
    EXPECT_EQ(pair.transport.readMessage(2, message), 0);
    EXPECT_EQ(hexText(message), "01");
    EXPECT_EQ(pair.transport.readMessage(2, message), 0) << "and again";
}

TEST_F(BufferedReading, GivesZeroAtTheEndOfTheStreamInALargeBody) {
    pair.peer->send(patternedBytes(60'000));
    pair.peer->close();
    EXPECT_EQ(readOnce(pair.transport, 100'000).result, 0);
}

TEST_F(BufferedReading, GivesMinusOneWithTheErrorAfterAReset) {
    pair.peer->send("A1");
    pair.peer->reset();
    RawMessage message = messageOf("01 02");
    int result = pair.transport.readMessage(4, message);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(errno, ECONNRESET);
    EXPECT_EQ(hexText(message), "01 02");
}

TEST(BufferedReadingWithoutAConnection, IsEBADF) {
    VisibleBuffered transport;
    RawMessage message = messageOf("01 02");
    EXPECT_EQ(transport.readMessage(4, message), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(hexText(message), "01 02");
}

TEST_F(BufferedReading, AfterAClosedConnectionGivesNothingOfWhatWasReadAhead) {
    pair.peer->send("A1 A2 A3 A4");
    EXPECT_EQ(readOnce(pair.transport, 1).bytes, "A1");
    pair.transport.close();
    EXPECT_EQ(readOnce(pair.transport, 1).error, EBADF);
    pair.connect();
    pair.peer->send("B1 B2");
    EXPECT_EQ(readOnce(pair.transport, 2).bytes, "B1 B2");
}

TEST_F(BufferedReading, OfANewConnectionForgetsAHalfReadFrameOfTheOldOne) {
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
    constexpr int kFrames = 1'000;
    Bytes stream;
    for (int i = 0; i < kFrames; ++i) {
        const Bytes frame = frameOf(patternedBytes(20, static_cast<unsigned int>(i)));
        stream.insert(stream.end(), frame.begin(), frame.end());
    }
    pair.peer->send(stream);
    SystemCalls calls;
    for (int i = 0; i < kFrames; ++i) {
        ASSERT_EQ(readBodyOfFrame(pair.transport), hexText(patternedBytes(20, static_cast<unsigned int>(i))));
    }
    EXPECT_LT(linesOf(calls, ""), kFrames / 10U);
    EXPECT_EQ(linesOf(calls, "recv"), linesOf(calls, ""));
}

TEST_F(BufferedReading, OfALargeBodyCostsFewCalls) {
    const Bytes body = patternedBytes(1U << 20U);
    std::thread sender([&] { pair.peer->send(frameOf(body)); });
    SystemCalls calls;
    RawMessage message(RawMessage::DATA);
    EXPECT_EQ(pair.transport.readMessage(32, message), 32);
    message.clear();
    EXPECT_EQ(pair.transport.readMessage(1U << 20U, message), 1 << 20);
    sender.join();
    EXPECT_TRUE(bytesOf(message) == body);
    EXPECT_LT(linesOf(calls, "recv"), 200U) << "a read-ahead's worth at a time would be 64 and twice as many waits";
}

TEST_F(BufferedReading, HandsALargeBodyOverWithoutACopyOfIt) {
    const Bytes body = patternedBytes(1'000'000);
    pair.peer->send(Bytes(body.begin(), body.begin() + 20'000));
    RawMessage message(RawMessage::DATA);
    EXPECT_EQ(pair.transport.readMessage(1'000'000, message), -2);
    std::thread rest([&] { pair.peer->send(Bytes(body.begin() + 20'000, body.end())); });
    int result = 0;
    {
        const AllocationLimit noMoreMemory(0);
        result = pair.transport.readMessage(1'000'000, message);
    }
    rest.join();
    EXPECT_EQ(result, 1'000'000) << "the memory that the body has arrived in is the message's";
    EXPECT_TRUE(bytesOf(message) == body);
}

TEST_F(BufferedReading, WithoutMemoryForASmallMessageLosesNothing) {
    pair.peer->send(hexFrame("0A 0B 0C"));
    RawMessage message(RawMessage::DATA);
    {
        const AllocationLimit noMoreMemory(0);
        EXPECT_THROW(pair.transport.readMessage(32, message), std::bad_alloc);
    }
    EXPECT_TRUE(message.empty());
    EXPECT_EQ(readBodyOfFrame(pair.transport), "0A 0B 0C");
}

TEST_F(BufferedReading, WithoutMemoryForALargeBodyLosesNothing) {
    const Bytes body = patternedBytes(100'000);
    pair.peer->send(frameOf(body));
    RawMessage message(RawMessage::DATA);
    ASSERT_EQ(pair.transport.readMessage(32, message), 32);
    message.clear();
    {
        const AllocationLimit tooLittle(99'999);
        EXPECT_THROW(pair.transport.readMessage(100'000, message), std::bad_alloc);
    }
    EXPECT_TRUE(message.empty());
    EXPECT_EQ(pair.transport.readMessage(100'000, message), 100'000);
    EXPECT_TRUE(bytesOf(message) == body);
}

TEST_F(BufferedReading, WithoutMemoryForAppendingALargeBodyLosesNothing) {
    const Bytes body = patternedBytes(100'000);
    pair.peer->send(body);
    RawMessage message = messageOf("01 02");
    {
        // Enough for the body, too little for the message with the body behind its two bytes.
        const AllocationLimit tooLittle(100'001);
        EXPECT_THROW(pair.transport.readMessage(100'000, message), std::bad_alloc);
    }
    EXPECT_EQ(hexText(message), "01 02");
    message.clear();
    EXPECT_EQ(pair.transport.readMessage(100'000, message), 100'000);
    EXPECT_TRUE(bytesOf(message) == body);
}

TEST_F(BufferedReading, WithoutMemoryInTheMiddleOfAGrowingBodyLosesNothing) {
    const Bytes body = patternedBytes(200'000);
    pair.peer->send(Bytes(body.begin(), body.begin() + 60'000));
    RawMessage message(RawMessage::DATA);
    ASSERT_EQ(pair.transport.readMessage(70'000, message), -2);
    std::thread rest([&] { pair.peer->send(Bytes(body.begin() + 60'000, body.end())); });
    {
        const AllocationLimit tooLittle(70'000);
        EXPECT_THROW(pair.transport.readMessage(200'000, message), std::bad_alloc);
    }
    EXPECT_EQ(pair.transport.readMessage(200'000, message), 200'000);
    rest.join();
    EXPECT_TRUE(bytesOf(message) == body);
}

TEST_F(BufferedReading, ReadsAHeaderOfThirtyTwoBytesAndABodyOfThirtyTwoBytes) {
    const Bytes body = patternedBytes(32);
    pair.peer->send(frameOf(body));
    pair.peer->send(std::string(kHeaderOfTen) + " 00 01 02 03 04 05 06 07 08 09");
    EXPECT_EQ(readBodyOfFrame(pair.transport), hexText(body));
    EXPECT_EQ(readBodyOfFrame(pair.transport), "00 01 02 03 04 05 06 07 08 09");
}

}  // namespace
}  // namespace com_tesk::test
