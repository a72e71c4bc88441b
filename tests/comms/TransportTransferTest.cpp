#include <algorithm>
#include <limits>
#include <new>

#include "tests/comms/SystemCalls.h"
#include "tests/comms/Transports.h"
#include "tests/support/Allocations.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

constexpr char kTwenty[] = "01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12 13 14";

class TransportReading : public BothTransports {
  protected:
    void SetUp() override { connect(); }

    /// A read that gives nothing leaves zeros in the standard transport, and the message as it was in the buffered one.
    void expectNothingRead() { EXPECT_EQ(hexText(message), isBuffered() ? "01 02" : "01 02 00 00 00 00"); }

    RawMessage message = messageOf("01 02");
};

INSTANTIATE_TEST_SUITE_P(Of, TransportReading, testing::Bool(), nameOfTransport);

TEST_P(TransportReading, AppendsTheBytesAskedForLeavesTheRestAndKeepsTheType) {
    peer->send("A1 A2 A3 A4 A5");
    waitForInput(descriptor());
    EXPECT_EQ(transport->readMessage(0, message), 0);
    EXPECT_EQ(hexText(message), "01 02");
    EXPECT_EQ(transport->readMessage(3, message), 3);
    EXPECT_EQ(hexText(message), "01 02 A1 A2 A3");
    EXPECT_EQ(transport->readMessage(1, message), 1);
    EXPECT_EQ(hexText(message), "01 02 A1 A2 A3 A4");
    RawMessage control(RawMessage::CONTROL);
    EXPECT_EQ(transport->readMessage(1, control), 1);
    EXPECT_EQ(hexText(control), "A5");
    EXPECT_EQ(control.getType(), RawMessage::CONTROL);
    EXPECT_EQ(transport->readMessage(0, message), 0) << "at once";
}

TEST_P(TransportReading, ReturnsMinusTwoWhenNothingArrivesForASecond) {
    const Stopwatch elapsed;
    EXPECT_EQ(transport->readMessage(4, message), -2);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GE(elapsed.seconds(), 0.95);
    EXPECT_LT(elapsed.seconds(), 1.9);
    expectNothingRead();
}

TEST_P(TransportReading, ReturnsZeroRepeatedlyAfterThePeerHasClosed) {
    peer->send(isBuffered() ? "A1 A2 A3" : "A1 A2");  // The third is a part of a frame, which is dropped.
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

TEST_P(TransportReading, AndWritingFailWithoutAConnectionAndWorkAgainAfterReopening) {
    transport->close();
    const auto unopened = newTransport();
    for (CSCommsInterfaceTCP* closed : {transport.get(), unopened.get()}) {
        message = messageOf("01 02");
        const SystemCalls calls;
        EXPECT_EQ(closed->readMessage(4, message), -1);
        EXPECT_EQ(errno, EBADF);
        expectNothingRead();
        for (const RawMessage& written : {messageOf("01"), messageOf("")}) {
            EXPECT_EQ(writeOnce(*closed, written).outcome(), Outcome(-1, EBADF));
        }
        EXPECT_EQ(calls.text(), "");
    }
    connect();
    EXPECT_EQ(transport->writeMessage(messageOf("A1 A2")), 2);
    EXPECT_EQ(hexText(peer->receive(2)), "A1 A2");
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

class TransportWriting : public BothTransports {
  protected:
    void SetUp() override { connect(); }

    int write(const std::string& hexBytes) { return transport->writeMessage(messageOf(hexBytes)); }
};

INSTANTIATE_TEST_SUITE_P(Of, TransportWriting, testing::Bool(), nameOfTransport);

TEST_P(TransportWriting, SendsExactlyTheBytesAndReturnsTheirNumber) {
    const RawMessage message = messageOf("00 01 7F 80 FF");
    EXPECT_EQ(transport->writeMessage(message), 5);
    EXPECT_EQ(hexText(message), "00 01 7F 80 FF");
    EXPECT_EQ(write(""), 0);
    EXPECT_EQ(write("A1"), 1);
    transport->close();
    EXPECT_EQ(hexText(peer->receive(10)), "00 01 7F 80 FF A1");
}

TEST_P(TransportWriting, OfASmallMessageIsOneCall) {
    const RawMessage message = messageOf("01 02 03 04");
    const SystemCalls calls;
    EXPECT_EQ(transport->writeMessage(message), 4);
    EXPECT_EQ(calls.text(), isBuffered() ? "send #? 4\n" : "write #? 4\n");
}

TEST_P(TransportWriting, ToAPeerThatHasGoneFailsAndRaisesNoSignal) {
    for (const bool isReset : {false, true}) {
        const SignalHandler deadly(SIGPIPE, SIG_DFL);
        connect();
        const auto handler = SignalHandler::current(SIGPIPE);
        EXPECT_EQ(handler, isBuffered() ? SIG_DFL : SIG_IGN);
        if (isReset) {
            peer->reset();
        } else {
            peer->close();
        }
        EXPECT_TRUE(waitUntil([&] { return write("01") == -1; }));
        // The first failure reports the reset. The next write would raise SIGPIPE.
        EXPECT_EQ(write("01"), -1);
        EXPECT_EQ(errno, EPIPE);
        EXPECT_EQ(SignalHandler::current(SIGPIPE), handler);
        EXPECT_GE(descriptor(), 0);
        EXPECT_EQ(transport->close(), 0);
    }
}

// The standard transport: one call, whatever it gives.

TEST(StandardWriting, TriesOnceAndKeepsTheConnection) {
    StandardPair pair;
    const CapturedStreams streams;
    const RawMessage message = messageOf("01 02 03 04");
    for (const Outcome& outcome : {Outcome(3, 0), Outcome(-1, EINTR), Outcome(-1, EAGAIN), Outcome(-1, EIO)}) {
        SystemCalls calls;
        calls.answer("write", outcome.first, outcome.second);
        EXPECT_EQ(writeOnce(pair.transport, message).outcome(), outcome);
        EXPECT_EQ(calls.text(), "write #? 4\n");
    }
    EXPECT_EQ(streams.out() + streams.err(), "");
    EXPECT_EQ(pair.transport.writeMessage(message), 4);
    EXPECT_EQ(hexText(pair.peer->receive(4)), "01 02 03 04");
}

// The buffered transport: a whole frame, or the end of the connection.

Bounds writeWithin(milliseconds timeout) {
    Bounds bounds;
    bounds.writeTimeout = timeout;
    return bounds;
}

const Options kSmallSendBuffer = bufferSizes(64U << 10U);

TEST(BufferedWriting, CompletesShortWrites) {
    BufferedPair pair;
    const RawMessage message = messageOf("01 02 03 04");
    SystemCalls calls;
    calls.answer("send #? 4", 1, 0);
    calls.answer("send #? 3", 2, 0);
    EXPECT_EQ(pair.transport.writeMessage(message), 4);
    EXPECT_EQ(calls.text(), "send #? 4\nsend #? 3\nsend #? 1\n");
    EXPECT_EQ(hexText(pair.peer->receive(1)), "04") << "the first three were not really sent";
}

TEST(BufferedWriting, OfMoreThanTheSocketHoldsIsCompletedWhenThePeerReadsAlsoUnderSignals) {
    BufferedPair pair(Bounds(), kSmallSendBuffer);
    const Bytes frame = patternedBytes(kMoreThanFits);
    std::atomic<bool> isWritten{false};
    auto received = std::async(std::launch::async, [&] {
        EXPECT_FALSE(waitUntil([&] { return isWritten.load(); }, milliseconds(100)));
        return pair.peer->receive(frame.size());
    });
    const RepeatedSignal signals(pthread_self(), milliseconds(1));
    EXPECT_EQ(pair.transport.writeMessage(messageOfBytes(frame)), static_cast<int>(frame.size()));
    isWritten = true;
    EXPECT_TRUE(received.get() == frame);
}

TEST(BufferedWriting, ToAPeerThatDoesNotReadEndsTheConnectionAfterTheWriteTimeout) {
    BufferedPair pair(writeWithin(milliseconds(300)), kSmallSendBuffer);
    const CallResult write = writeOnce(pair.transport, messageOfBytes(Bytes(kMoreThanFits)));
    EXPECT_EQ(write.outcome(), Outcome(-1, EAGAIN));
    EXPECT_GE(write.seconds, 0.29);
    EXPECT_LT(write.seconds, 5.0);
    EXPECT_EQ(pair.transport.writeMessage(messageOf("01")), -1) << "nothing follows half a frame";
    EXPECT_EQ(readOnce(pair.transport, 1).result, 0);
    EXPECT_TRUE(pair.peer->waitForEnd());
    pair.connect();
    EXPECT_EQ(pair.transport.writeMessage(messageOf("01 02")), 2);
    EXPECT_EQ(hexText(pair.peer->receive(2)), "01 02");
}

TEST(BufferedWriting, TakesNoLongerThanItsTimeAlsoWhenThePeerReadsALittle) {
    BufferedPair pair(writeWithin(milliseconds(500)), bufferSizes(1));
    std::atomic<bool> isOver{false};
    std::thread slowReader([&] {
        while (!isOver) {
            pair.peer->receive(4'000, milliseconds(1));
            std::this_thread::sleep_for(milliseconds(5));
        }
    });
    const CallResult write = writeOnce(pair.transport, messageOfBytes(Bytes(kMoreThanFits)));
    EXPECT_EQ(write.result, -1);
    EXPECT_GE(write.seconds, 0.49);
    EXPECT_LT(write.seconds, 5.0);
    isOver = true;
    slowReader.join();
}

TEST(BufferedWriting, AfterAFailedWriteOfAnotherThreadFailsAtOnce) {
    BufferedPair pair(writeWithin(milliseconds(1'000)), kSmallSendBuffer);
    const RawMessage message = messageOfBytes(Bytes(kMoreThanFits));
    BackgroundCall first([&] { return writeOnce(pair.transport, message); });
    EXPECT_TRUE(first.waitUntilItBlocks(pair.transport.descriptor()));
    const CallResult second = writeOnce(pair.transport, message);
    EXPECT_EQ(second.result, -1);
    EXPECT_LT(second.seconds, 1.8) << "it does not wait for a time-out of its own";
    EXPECT_EQ(first.get().result, -1);
}

}  // namespace
}  // namespace com_tesk::test
