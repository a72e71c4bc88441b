#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <new>

#include "tests/comms/SystemCalls.h"
#include "tests/comms/Transports.h"
#include "tests/message/AllocationLimit.h"

namespace com_tesk::test {
namespace {

constexpr char kTwenty[] = "01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12 13 14";

void waitForInput(int descriptor) {
    pollfd waiting{descriptor, POLLIN, 0};
    ASSERT_EQ(poll(&waiting, 1, 10'000), 1);
}

class TransportReading : public BothTransports {
  protected:
    void SetUp() override { connect(); }

    void arrive(const std::string& hexBytes) {
        peer->send(hexBytes);
        waitForInput(descriptor());
    }

    /// A read that gives nothing leaves zeros in the standard transport, and the message as it was in the buffered one.
    void expectNothingRead() { EXPECT_EQ(hexText(message), isBuffered() ? "01 02" : "01 02 00 00 00 00"); }

    RawMessage message = messageOf("01 02");
};

INSTANTIATE_TEST_SUITE_P(Of, TransportReading, testing::Bool(), nameOfTransport);

TEST_P(TransportReading, AppendsTheBytesAskedForAndLeavesTheRest) {
    arrive("A1 A2 A3 A4");
    EXPECT_EQ(transport->readMessage(0, message), 0);
    EXPECT_EQ(hexText(message), "01 02");
    EXPECT_EQ(transport->readMessage(3, message), 3);
    EXPECT_EQ(hexText(message), "01 02 A1 A2 A3");
    EXPECT_EQ(transport->readMessage(1, message), 1);
    EXPECT_EQ(hexText(message), "01 02 A1 A2 A3 A4");
    EXPECT_EQ(transport->readMessage(0, message), 0) << "at once";
}

TEST_P(TransportReading, KeepsTheTypeOfTheMessage) {
    arrive("A1");
    RawMessage control(RawMessage::CONTROL);
    EXPECT_EQ(transport->readMessage(1, control), 1);
    EXPECT_EQ(hexText(control), "A1");
    EXPECT_EQ(control.getType(), RawMessage::CONTROL);
}

TEST_P(TransportReading, ReturnsMinusTwoWhenNothingArrivesForASecond) {
    const ElapsedTime elapsed;
    EXPECT_EQ(transport->readMessage(4, message), -2);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GE(elapsed.seconds(), 0.95);
    EXPECT_LT(elapsed.seconds(), 1.9);
    expectNothingRead();
}

TEST_P(TransportReading, ReturnsZeroRepeatedlyAfterThePeerHasClosed) {
    peer->send("A1 A2");
    peer->close();
    waitForInput(descriptor());
    EXPECT_EQ(transport->readMessage(2, message), 2);
    for (int i = 0; i < 3; ++i) {
        message = messageOf("01 02");
        EXPECT_EQ(transport->readMessage(4, message), 0);
        EXPECT_EQ(hexText(message), isBuffered() ? "01 02" : "01 02 00 00");
    }
    EXPECT_GE(descriptor(), 0);
    EXPECT_EQ(transport->close(), 0);
}

TEST_P(TransportReading, ReturnsMinusOneAfterAReset) {
    if (isBuffered()) {
        peer->send("A1");  // A part of a frame.
    }
    peer->reset();
    waitForInput(descriptor());
    EXPECT_EQ(transport->readMessage(4, message), -1);
    EXPECT_EQ(errno, ECONNRESET);
    expectNothingRead();
    EXPECT_GE(descriptor(), 0);
}

TEST_P(TransportReading, ReturnsMinusOneWithoutAConnection) {
    transport->close();
    const auto unopened = newTransport();
    for (CSCommsInterfaceTCP* closed : {transport.get(), unopened.get()}) {
        message = messageOf("01 02");
        const SystemCalls calls;
        EXPECT_EQ(closed->readMessage(4, message), -1);
        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(calls.text(), "");
        expectNothingRead();
    }
}

// The standard transport only: one call of the system for each read, whatever it gives.

class StandardReading : public testing::Test {
  protected:
    StandardPair pair;
};

TEST_F(StandardReading, OfLessThanAskedCutsTheMessageToTheCountAndFillsItWithZeros) {
    struct Row {
        const char* before;
        const char* sent;
        unsigned int count;
        int result;
        const char* after;
    };
    constexpr Row kRows[] = {
        {"", "A1 A2 A3 A4 A5 A6 A7 A8 A9 AA", 32, 10,
         "A1 A2 A3 A4 A5 A6 A7 A8 A9 AA 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"},
        {"01 02", "A1 A2 A3", 4, 3, "01 02 A1 A2"},
        {"01 02 03", "A1 A2", 8, 2, "01 02 03 A1 A2 00 00 00"},
        {kTwenty, "A1 A2 A3", 8, 3, "01 02 03 04 05 06 07 08"},
        {kTwenty, "", 8, 0, "01 02 03 04 05 06 07 08"},  // The peer has closed.
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.after);
        if (row.result > 0) {
            pair.peer->send(row.sent);
        } else {
            pair.peer->close();
        }
        waitForInput(pair.transport.descriptor());
        RawMessage message = messageOf(row.before);
        const SystemCalls calls;
        EXPECT_EQ(pair.transport.readMessage(row.count, message), row.result);
        EXPECT_EQ(calls.text(), "read #? " + std::to_string(row.count) + "\n");
        EXPECT_EQ(hexText(message), row.after);
    }
}

// Where there is space, a few bytes are appended in another way than many.
TEST_F(StandardReading, FillsAMessageWithSpaceLikeAnyOther) {
    for (const unsigned int count : {1U, 2U, 4U, 32U, 36U, 63U, 64U, 65U, 100U}) {
        for (const unsigned int before : {0U, 1U, 32U}) {
            for (const unsigned int sent : {count, 1U}) {
                SCOPED_TRACE(std::to_string(sent) + " of " + std::to_string(count) + " after " +
                             std::to_string(before));
                pair.peer->send(Bytes(sent, 0xA1));
                waitForInput(pair.transport.descriptor());
                RawMessage message(RawMessage::DATA);
                message.assign(300, '\xEE');
                message.resize(before);
                EXPECT_EQ(pair.transport.readMessage(count, message), static_cast<int>(sent));
                std::string expected = std::string(before, '\xEE') + std::string(sent, '\xA1');
                // A short read leaves as many bytes as were asked for.
                expected.resize(sent == count ? before + count : count, '\0');
                EXPECT_EQ(std::string(message.begin(), message.end()), expected);
            }
        }
    }
}

TEST_F(StandardReading, KeepsTheGrownSizeAfterAnErrorAndDoesNotTryAgain) {
    pair.peer->send("A1");
    for (const int error : {EAGAIN, EIO, EINTR}) {
        RawMessage message = messageOf("01 02");
        SystemCalls calls;
        calls.fail("read", error);
        EXPECT_EQ(pair.transport.readMessage(4, message), error == EAGAIN ? -2 : -1);
        EXPECT_EQ(errno, error);
        EXPECT_EQ(calls.text(), "read #? 4\n");
        EXPECT_EQ(hexText(message), "01 02 00 00 00 00");
    }
}

TEST_F(StandardReading, RefusesASizeThatDoesNotFitThirtyTwoBits) {
    pair.peer->send("A1 A2");
    RawMessage message = messageOf("01 02");
    {
        const SystemCalls calls;
        // With the limit, a message that grows nevertheless is noticed soon.
        const AllocationLimit limit(1'000'000);
        for (const unsigned int count : {0xFFFFFFFEU, 0xFFFFFFFFU}) {
            EXPECT_EQ(pair.transport.readMessage(count, message), -1);
            EXPECT_EQ(errno, EMSGSIZE);
        }
        // The largest size that does fit: only the memory is missing.
        const std::size_t largest = std::min(std::size_t{0xFFFFFFFFU}, message.max_size());
        EXPECT_THROW(pair.transport.readMessage(static_cast<unsigned int>(largest - 2), message), std::bad_alloc);
        EXPECT_EQ(calls.lines().size(), 0U);
    }
    EXPECT_EQ(hexText(message), "01 02");
    waitForInput(pair.transport.descriptor());
    EXPECT_EQ(pair.transport.readMessage(2, message), 2);
    EXPECT_EQ(hexText(message), "01 02 A1 A2");
}

}  // namespace
}  // namespace com_tesk::test
