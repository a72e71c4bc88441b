#include <atomic>
#include <cerrno>
#include <random>
#include <thread>
#include <vector>

#include "tests/comms/SystemCalls.h"
#include "tests/comms/Transports.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/Seed.h"
#include "tests/support/TestSize.h"

namespace com_tesk::test {
namespace {

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

TEST_P(TransportWriting, WithoutAConnectionIsMinusOneAndWorksAgainAfterReopening) {
    transport->close();
    const auto unopened = newTransport();
    for (CSCommsInterfaceTCP* closed : {transport.get(), unopened.get()}) {
        for (const char* bytes : {"01", ""}) {
            const RawMessage message = messageOf(bytes);
            const SystemCalls calls;
            const CallResult result = writeOnce(*closed, message);
            EXPECT_EQ(result.result, -1);
            EXPECT_EQ(result.error, EBADF);
            EXPECT_EQ(calls.text(), "");
        }
    }
    connect();
    EXPECT_EQ(write("A1 A2"), 2);
    EXPECT_EQ(hexText(peer->receive(2)), "A1 A2");
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
    struct Row {
        int result;
        int error;
    };
    StandardPair pair;
    const CapturedStreams streams;
    const RawMessage message = messageOf("01 02 03 04");
    for (const Row& row : {Row{3, 0}, Row{-1, EINTR}, Row{-1, EAGAIN}, Row{-1, EIO}}) {
        SystemCalls calls;
        calls.answer("write", row.result, row.error);
        const CallResult write = writeOnce(pair.transport, message);
        EXPECT_EQ(write.result, row.result);
        EXPECT_EQ(write.error, row.error);
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
    EXPECT_EQ(write.result, -1);
    EXPECT_EQ(write.error, EAGAIN);
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
    auto first = std::async(std::launch::async, [&] { return pair.transport.writeMessage(message); });
    EXPECT_EQ(first.wait_for(milliseconds(200)), std::future_status::timeout);
    const CallResult second = writeOnce(pair.transport, message);
    EXPECT_EQ(second.result, -1);
    EXPECT_LT(second.seconds, 1.8) << "it does not wait for a time-out of its own";
    EXPECT_EQ(first.get(), -1);
}

/// Frames of several writers. A body holds the writer's number, the frame's number and a pattern that follows from both.
struct WritersFrames {
    WritersFrames(unsigned int writers, unsigned int frames, std::uint64_t seed) : sizes(writers) {
        for (unsigned int writer = 0; writer < writers; ++writer) {
            std::mt19937_64 random(seed + writer);
            for (unsigned int number = 0; number < frames; ++number) {
                const std::size_t any =
                    1 + static_cast<std::size_t>(random() % (std::uint64_t{1} << (1 + random() % 18)));
                sizes[writer].push_back(number == 0 ? 1 : number == 1 && writer < 2 ? 1U << 20U : any);
            }
        }
    }

    Bytes frame(unsigned int writer, unsigned int number) const {
        Bytes body = patternedBytes(sizes[writer][number], writer * 1'000 + number);
        body[0] = static_cast<unsigned char>(writer);
        if (body.size() > 1) {
            body[1] = static_cast<unsigned char>(number);
        }
        return frameOf(body);
    }

    std::vector<std::vector<std::size_t>> sizes;
};

TEST(BufferedWriting, OfEightThreadsToASlowReaderKeepsEveryFrameWhole) {
    constexpr unsigned int kWriters = 8;
    const unsigned int frames = sized(12U, 60U);
    const WritersFrames expected(kWriters, frames, newSeed());
    BufferedPair pair(Bounds(), bufferSizes(4'096));
    std::vector<std::thread> writers;
    for (unsigned int writer = 0; writer < kWriters; ++writer) {
        writers.emplace_back([&, writer] {
            for (unsigned int number = 0; number < frames; ++number) {
                const RawMessage message = messageOfBytes(expected.frame(writer, number));
                EXPECT_EQ(pair.transport.writeMessage(message), static_cast<int>(message.size()));
            }
        });
    }
    std::vector<unsigned int> next(kWriters, 0);
    for (unsigned int received = 0; received < kWriters * frames; ++received) {
        Bytes frame = pair.peer->receive(33);
        const unsigned int writer = frame.size() == 33 ? frame[32] : kWriters;
        const Bytes whole = writer < kWriters && next[writer] < frames ? expected.frame(writer, next[writer]) : Bytes();
        const Bytes rest = pair.peer->receive(whole.size() - std::min<std::size_t>(33, whole.size()));
        frame.insert(frame.end(), rest.begin(), rest.end());
        if (whole.empty() || frame != whole) {
            ADD_FAILURE() << "each writer's frames arrive whole and in its order";
            pair.transport.close();  // So that the writers do not wait for a reader.
            break;
        }
        ++next[writer];
        std::this_thread::sleep_for(std::chrono::microseconds(300));
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    EXPECT_TRUE(pair.peer->isQuietFor(milliseconds(20)));
}

}  // namespace
}  // namespace com_tesk::test
