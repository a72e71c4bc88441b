#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <new>
#include <string>

#include "tests/comms/OpenTransport.h"
#include "tests/comms/SystemCalls.h"
#include "tests/message/AllocationLimit.h"
#include "tests/message/MessageOf.h"

namespace com_tesk::test {
namespace {

constexpr char kTwenty[] = "01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12 13 14";

/// Waits until what the peer has sent has arrived.
void waitForArrival(const OpenTransport& open) {
    pollfd waiting{open.transport.descriptor(), POLLIN, 0};
    ASSERT_EQ(poll(&waiting, 1, 10'000), 1);
}

struct TransportReading : testing::Test {
    void arrive(const std::string& hexBytes) {
        open.peer->send(hexBytes);
        waitForArrival(open);
    }

    OpenTransport open;
};

TEST_F(TransportReading, AppendsWhatArrivesToAnEmptyMessage) {
    arrive("A1 A2 A3 A4");
    RawMessage message(RawMessage::DATA);
    EXPECT_EQ(open.transport.readMessage(4, message), 4);
    EXPECT_EQ(hexText(message), "A1 A2 A3 A4");
}

TEST_F(TransportReading, AppendsAFullReadToWhatIsThere) {
    arrive("A1 A2 A3 A4");
    RawMessage message = messageOf("01 02");
    EXPECT_EQ(open.transport.readMessage(4, message), 4);
    EXPECT_EQ(hexText(message), "01 02 A1 A2 A3 A4");
}

TEST_F(TransportReading, LeavesTheRestOfTheStreamForTheNextRead) {
    arrive("A1 A2 A3 A4");
    RawMessage message(RawMessage::DATA);
    EXPECT_EQ(open.transport.readMessage(3, message), 3);
    EXPECT_EQ(hexText(message), "A1 A2 A3");
    EXPECT_EQ(open.transport.readMessage(1, message), 1);
    EXPECT_EQ(hexText(message), "A1 A2 A3 A4");
}

TEST_F(TransportReading, KeepsTheTypeOfTheMessage) {
    arrive("A1");
    RawMessage message(RawMessage::CONTROL);
    EXPECT_EQ(open.transport.readMessage(4, message), 1);
    EXPECT_EQ(message.getType(), RawMessage::CONTROL);
}

TEST_F(TransportReading, OfPartOfAHeaderLeavesAZeroTail) {
    arrive("A1 A2 A3 A4 A5 A6 A7 A8 A9 AA");
    RawMessage message(RawMessage::DATA);
    EXPECT_EQ(open.transport.readMessage(32, message), 10);
    EXPECT_EQ(hexText(message),
              "A1 A2 A3 A4 A5 A6 A7 A8 A9 AA 00 00 00 00 00 00 "
              "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
}

TEST_F(TransportReading, OfOneByteLessThanAskedCutsTheMessageToTheCount) {
    arrive("A1 A2 A3");
    RawMessage message = messageOf("01 02");
    EXPECT_EQ(open.transport.readMessage(4, message), 3);
    EXPECT_EQ(hexText(message), "01 02 A1 A2");
}

TEST_F(TransportReading, OfLessThanAskedCutsALongMessageBack) {
    arrive("A1 A2 A3");
    RawMessage message = messageOf(kTwenty);
    EXPECT_EQ(open.transport.readMessage(8, message), 3);
    EXPECT_EQ(hexText(message), "01 02 03 04 05 06 07 08");
}

TEST_F(TransportReading, OfLessThanAskedKeepsTheZerosThatFillTheCount) {
    arrive("A1 A2");
    RawMessage message = messageOf("01 02 03");
    EXPECT_EQ(open.transport.readMessage(8, message), 2);
    EXPECT_EQ(hexText(message), "01 02 03 A1 A2 00 00 00");
}

TEST_F(TransportReading, OverwritesLeftoversOfALongerMessageWithZeros) {
    arrive("A1");
    RawMessage message = messageOf(kTwenty);
    message.clear();
    EXPECT_EQ(open.transport.readMessage(4, message), 1);
    EXPECT_EQ(hexText(message), "A1 00 00 00");
}

// Where there is room to spare a few bytes are appended in another way than many.
TEST_F(TransportReading, FillsAMessageWithRoomToSpareLikeAnyOther) {
    constexpr unsigned int kCounts[] = {1, 4, 32, 36, 63, 64, 65, 100};
    for (const unsigned int count : kCounts) {
        for (const unsigned int before : {0U, 1U, 32U}) {
            SCOPED_TRACE(std::to_string(count) + " bytes behind " + std::to_string(before));
            open.peer->send(Bytes(count, 0xA1));
            waitForArrival(open);
            RawMessage message(RawMessage::DATA);
            message.assign(300, '\xEE');
            message.resize(before);
            EXPECT_EQ(open.transport.readMessage(count, message), static_cast<int>(count));
            const std::string expected = std::string(before, '\xEE') + std::string(count, '\xA1');
            EXPECT_EQ(std::string(message.begin(), message.end()), expected);
        }
    }
}

TEST_F(TransportReading, LeavesZerosBehindAShortReadIntoRoomToSpare) {
    for (const unsigned int count : {2U, 36U, 64U, 65U}) {
        arrive("A1");
        RawMessage message(RawMessage::DATA);
        message.assign(300, '\xEE');
        message.clear();
        EXPECT_EQ(open.transport.readMessage(count, message), 1);
        EXPECT_EQ(std::string(message.begin(), message.end()), '\xA1' + std::string(count - 1, '\0'));
    }
}

TEST_F(TransportReading, MakesOneCall) {
    arrive("A1 A2 A3");
    RawMessage message(RawMessage::DATA);
    SystemCalls calls;
    EXPECT_EQ(open.transport.readMessage(32, message), 3);
    EXPECT_EQ(calls.text(), "read #? 32\n");
}

TEST_F(TransportReading, OfNothingReturnsZeroAtOnceAndLeavesTheMessage) {
    RawMessage message = messageOf("01 02");
    EXPECT_EQ(open.transport.readMessage(0, message), 0);
    EXPECT_EQ(hexText(message), "01 02");
}

TEST_F(TransportReading, ReturnsMinusTwoWhenNothingArrivesForASecond) {
    RawMessage message(RawMessage::DATA);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(open.transport.readMessage(32, message), -2);
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(hexText(message), hexText(Bytes(32, 0)));
    EXPECT_GE(elapsed, std::chrono::milliseconds(950));
    EXPECT_LT(elapsed, std::chrono::milliseconds(3'000));
}

TEST_F(TransportReading, KeepsTheGrownSizeAfterATimeOut) {
    RawMessage message = messageOf("01 02");
    SystemCalls calls;
    calls.fail("read", EAGAIN);
    EXPECT_EQ(open.transport.readMessage(4, message), -2);
    EXPECT_EQ(hexText(message), "01 02 00 00 00 00");
}

TEST_F(TransportReading, KeepsTheGrownSizeAfterAnError) {
    RawMessage message = messageOf("01 02");
    SystemCalls calls;
    calls.fail("read", EIO);
    EXPECT_EQ(open.transport.readMessage(4, message), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(hexText(message), "01 02 00 00 00 00");
}

TEST_F(TransportReading, DoesNotTryAgainAfterAnInterruption) {
    arrive("A1");
    RawMessage message(RawMessage::DATA);
    SystemCalls calls;
    calls.fail("read", EINTR);
    EXPECT_EQ(open.transport.readMessage(4, message), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(calls.text(), "read #? 4\n");
}

TEST_F(TransportReading, ReturnsZeroWhenThePeerHasClosed) {
    open.peer->close();
    waitForArrival(open);
    RawMessage message(RawMessage::DATA);
    EXPECT_EQ(open.transport.readMessage(4, message), 0);
    EXPECT_EQ(hexText(message), "00 00 00 00");
}

TEST_F(TransportReading, CutsALongMessageBackWhenThePeerHasClosed) {
    open.peer->close();
    waitForArrival(open);
    RawMessage message = messageOf(kTwenty);
    EXPECT_EQ(open.transport.readMessage(8, message), 0);
    EXPECT_EQ(hexText(message), "01 02 03 04 05 06 07 08");
}

TEST_F(TransportReading, GivesWhatArrivedBeforeThePeerClosed) {
    open.peer->send("A1 A2");
    open.peer->close();
    waitForArrival(open);
    RawMessage message(RawMessage::DATA);
    EXPECT_EQ(open.transport.readMessage(2, message), 2);
    EXPECT_EQ(open.transport.readMessage(2, message), 0);
}

TEST_F(TransportReading, KeepsReturningZeroAndTheSocketUntilItIsClosed) {
    open.peer->close();
    waitForArrival(open);
    for (int i = 0; i < 3; ++i) {
        RawMessage message(RawMessage::DATA);
        EXPECT_EQ(open.transport.readMessage(4, message), 0);
    }
    EXPECT_GE(open.transport.descriptor(), 0);
    EXPECT_EQ(open.transport.close(), 0);
}

TEST_F(TransportReading, ReturnsMinusOneWhenThePeerHasReset) {
    open.peer->reset();
    waitForArrival(open);
    RawMessage message = messageOf("01");
    EXPECT_EQ(open.transport.readMessage(4, message), -1);
    EXPECT_EQ(errno, ECONNRESET);
    EXPECT_EQ(hexText(message), "01 00 00 00 00");
    EXPECT_GE(open.transport.descriptor(), 0);
}

TEST_F(TransportReading, ReturnsMinusOneAfterClose) {
    open.transport.close();
    RawMessage message = messageOf("01");
    EXPECT_EQ(open.transport.readMessage(4, message), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(hexText(message), "01 00 00 00 00");
}

TEST(TransportReadingUnopened, ReturnsMinusOneAndGrowsTheMessage) {
    VisibleTransport transport;
    RawMessage message(RawMessage::DATA);
    EXPECT_EQ(transport.readMessage(4, message), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(hexText(message), "00 00 00 00");
}

TEST_F(TransportReading, RefusesASizeThatDoesNotFitThirtyTwoBits) {
    arrive("A1 A2");
    RawMessage message = messageOf("01 02");
    SystemCalls calls;
    {
        // So that growing all the same would be noticed soon.
        const AllocationLimit limit(1'000'000);
        EXPECT_EQ(open.transport.readMessage(0xFFFFFFFEU, message), -1);
        EXPECT_EQ(open.transport.readMessage(0xFFFFFFFFU, message), -1);
        EXPECT_EQ(errno, EMSGSIZE);
    }
    EXPECT_EQ(calls.text(), "");
    EXPECT_EQ(hexText(message), "01 02");
}

TEST_F(TransportReading, ThrowsWithoutReadingWhenTheMessageCannotGrow) {
    arrive("A1 A2");
    RawMessage message = messageOf("01 02");
    SystemCalls calls;
    {
        const AllocationLimit limit(1'000'000);
        // The largest size that does fit 32 bits, and a message: nothing but the memory stands in its way.
        const std::size_t largest = std::min(std::size_t{0xFFFFFFFFU}, message.max_size());
        EXPECT_THROW(open.transport.readMessage(static_cast<unsigned int>(largest - 2), message), std::bad_alloc);
    }
    EXPECT_EQ(calls.text(), "");
    EXPECT_EQ(hexText(message), "01 02");
    EXPECT_EQ(open.transport.readMessage(2, message), 2);
    EXPECT_EQ(hexText(message), "01 02 A1 A2");
}

}  // namespace
}  // namespace com_tesk::test
