#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <optional>
#include <thread>
#include <vector>

#include "tests/comms/SystemCalls.h"
#include "tests/comms/Transports.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

/// Below the second that a read takes by itself.
constexpr double kBelowASecond = 0.8;

/// Far below the 30 seconds that a write takes by itself.
constexpr double kSoon = 10.0;

class TransportClosing : public BothTransports {};

INSTANTIATE_TEST_SUITE_P(Of, TransportClosing, testing::Bool(), nameOfTransport);

TEST_P(TransportClosing, WithoutASocketReturnsMinusOneAndMakesNoCall) {
    const SystemCalls calls;
    EXPECT_EQ(transport->close(), -1);
    transport.reset();
    EXPECT_EQ(calls.text(), "");
}

TEST_P(TransportClosing, ReturnsZeroOnceAndThenMinusOne) {
    const CapturedStreams streams;
    connect();
    const int closed = descriptor();
    EXPECT_EQ(transport->writeMessage(messageOf("A1 A2 A3")), 3);
    EXPECT_EQ(transport->close(), 0);
    EXPECT_EQ(descriptor(), -1);
    EXPECT_EQ(fcntl(closed, F_GETFD), -1);
    const SystemCalls calls;
    EXPECT_EQ(transport->close(), -1);
    EXPECT_EQ(calls.text(), "");
    EXPECT_EQ(hexText(peer->receive(10)), "A1 A2 A3");
    EXPECT_TRUE(peer->waitForEnd());
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_P(TransportClosing, SucceedsForExactlyOneOfManyThreads) {
    for (int round = 0; round < 20; ++round) {
        connect();
        std::atomic<int> zeros{0};
        std::atomic<int> minusOnes{0};
        std::vector<std::thread> closers;
        for (int i = 0; i < 4; ++i) {
            closers.emplace_back([&] {
                const int result = transport->close();
                zeros += result == 0 ? 1 : 0;
                minusOnes += result == -1 ? 1 : 0;
            });
        }
        for (std::thread& closer : closers) {
            closer.join();
        }
        EXPECT_EQ(zeros, 1);
        EXPECT_EQ(minusOnes, 3);
    }
}

/// The ways in which another thread ends a read or a write. Only the buffered transport has the last one.
enum class Ending { CLOSE, DESTRUCTION, REOPENING, INTERRUPTION };

class TransportEnding : public BothTransports {
  protected:
    void SetUp() override { connectAnew(); }

    static std::vector<Ending> endings() {
        std::vector<Ending> all{Ending::CLOSE, Ending::DESTRUCTION, Ending::REOPENING};
        if (isBuffered()) {
            all.push_back(Ending::INTERRUPTION);
        }
        return all;
    }

    /// A new transport with small buffers on the way to a peer that does not read.
    void connectAnew() {
        transport = newTransport(bufferSizes(4'096));
        connect();
        peer->shrinkReceiveBuffer();
    }

    void end(Ending ending) {
        switch (ending) {
            case Ending::CLOSE:
                EXPECT_EQ(transport->close(), 0);
                break;
            case Ending::DESTRUCTION:
                transport.reset();
                break;
            case Ending::REOPENING:
                EXPECT_TRUE(open());
                break;
            case Ending::INTERRUPTION:
                transport->setInterrupted(true);
                break;
        }
    }

    // The operations are called by name, because a destructor changes the virtual ones at once.

    std::function<CallResult()> writing() {
        return [this, used = transport.get()] {
            const int result =
                isBuffered() ? static_cast<VisibleBuffered*>(used)->CSCommsInterfaceTCPBuffered::writeMessage(large)
                             : static_cast<VisibleTransport*>(used)->CSCommsInterfaceTCP::writeMessage(large);
            return CallResult{result, errno, "", 0.0};
        };
    }

    std::function<CallResult()> reading(unsigned int count) {
        return [count, used = transport.get()] {
            RawMessage message(RawMessage::DATA);
            const int result =
                isBuffered()
                    ? static_cast<VisibleBuffered*>(used)->CSCommsInterfaceTCPBuffered::readMessage(count, message)
                    : static_cast<VisibleTransport*>(used)->CSCommsInterfaceTCP::readMessage(count, message);
            return CallResult{result, errno, isBuffered() ? hexText(message) : "", 0.0};
        };
    }

    static void expectEndOfRead(const CallResult& read, Ending ending, bool isInBody = false) {
        EXPECT_EQ(read.bytes, "");
        if (!isBuffered()) {
            EXPECT_TRUE(read.result == 0 || read.result == -1) << read.result;
            return;
        }
        const bool isInterrupted = ending == Ending::INTERRUPTION;
        EXPECT_EQ(read.result, isInterrupted && !isInBody ? -2 : -1);
        EXPECT_EQ(read.error, !isInterrupted ? EBADF : isInBody ? ECANCELED : EAGAIN);
    }

    const RawMessage large = messageOfBytes(Bytes(kMoreThanFits));
};

INSTANTIATE_TEST_SUITE_P(Of, TransportEnding, testing::Bool(), nameOfTransport);

TEST_P(TransportEnding, WakesAllWritersAndAReaderTogether) {
    for (const Ending ending : endings()) {
        SCOPED_TRACE(static_cast<int>(ending));
        BackgroundCall first(writing());
        ASSERT_TRUE(first.waitUntilItBlocks());
        BackgroundCall second(writing());
        BackgroundCall third(writing());
        ASSERT_TRUE(second.waitUntilItBlocks() && third.waitUntilItBlocks());
        std::optional<BackgroundCall> read;
        if (ending != Ending::REOPENING) {  // Only the reading thread may open.
            read.emplace(reading(32));
            ASSERT_TRUE(read->waitUntilItBlocks());
        }
        const ElapsedTime elapsed;
        end(ending);
        EXPECT_LT(elapsed.seconds(), 2.0);
        for (BackgroundCall* call : {&first, &second, &third}) {
            EXPECT_LT(call->get().result, static_cast<int>(kMoreThanFits));
        }
        EXPECT_LT(elapsed.seconds(), kSoon);
        if (read) {
            expectEndOfRead(read->get(), ending);
        } else {
            const auto next = host.accept();
            ASSERT_NE(next, nullptr);
            EXPECT_TRUE(next->isQuietFor(milliseconds(50))) << "no rest of an old write";
        }
        connectAnew();
    }
}

TEST_P(TransportEnding, WakesAReadWhereverItWaits) {
    struct Position {
        Bytes sent;
        bool isHeaderRead;
        unsigned int count;
    };
    std::vector<Position> positions{{{}, false, 32}};
    if (isBuffered()) {
        positions.push_back({slice(headerOf(10), 0, 5), false, 32});
        positions.push_back({headerOf(10), true, 10});
        positions.push_back({slice(frameOf(Bytes(10)), 0, 35), true, 10});
        positions.push_back({slice(frameOf(Bytes(1'000'000)), 0, 100'000), true, 1'000'000});
    }
    for (const Ending ending : {Ending::CLOSE, Ending::DESTRUCTION, Ending::INTERRUPTION}) {
        for (const Position& position : positions) {
            if (ending == Ending::INTERRUPTION && !isBuffered()) {
                continue;
            }
            SCOPED_TRACE(std::to_string(static_cast<int>(ending)) + " at " + std::to_string(position.sent.size()));
            transport = newTransport();
            connect();
            peer->send(position.sent);
            if (position.isHeaderRead) {
                ASSERT_EQ(readOnce(*transport, 32).result, 32);
            }
            BackgroundCall read(reading(position.count));
            ASSERT_TRUE(read.waitUntilItBlocks());
            const ElapsedTime elapsed;
            end(ending);
            expectEndOfRead(read.get(), ending, position.isHeaderRead);
            EXPECT_LT(elapsed.seconds(), kBelowASecond);
        }
    }
}

TEST_P(TransportEnding, ReturnsTheSystemsErrorOfCloseAlsoWhenAWriterWasWoken) {
    BackgroundCall write(writing());
    ASSERT_TRUE(write.waitUntilItBlocks());
    {
        SystemCalls calls;
        calls.fail("close", EIO);
        EXPECT_EQ(transport->close(), -1);
        EXPECT_EQ(calls.textOf("close"), "close #?\n");
    }
    EXPECT_EQ(descriptor(), -1);
    const SystemCalls calls;
    EXPECT_EQ(transport->close(), -1);
    EXPECT_EQ(calls.text(), "");
}

TEST_P(TransportEnding, IsSeenByTheHostAlsoWhileAForkedChildHasTheSocket) {
    for (const Ending ending : endings()) {
        SCOPED_TRACE(static_cast<int>(ending));
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            pause();
            _exit(0);
        }
        end(ending);
        EXPECT_TRUE(peer->waitForEnd(std::chrono::seconds(2)));
        kill(child, SIGKILL);
        EXPECT_EQ(waitpid(child, nullptr, 0), child);
        host.accept(milliseconds(0));
        connectAnew();
    }
}

class BufferedInterruption : public testing::Test {
  protected:
    BufferedPair pair;
};

TEST_F(BufferedInterruption, HidesWhatHasArrivedAndDoesNotLetAReaderSpin) {
    pair.peer->send(hexFrame("0A") + " " + hexFrame("0B"));
    EXPECT_EQ(readBodyOfFrame(pair.transport), "0A") << "the second frame has been read ahead";
    pair.transport.setInterrupted(true);
    int reads = 0;
    for (const ElapsedTime elapsed; elapsed.seconds() < 0.2; ++reads) {
        const CallResult read = readOnce(pair.transport, 32);
        EXPECT_EQ(read.result, -2);
        EXPECT_EQ(read.error, EAGAIN);
        EXPECT_EQ(pair.transport.writeMessage(messageOf("01")), -1);
    }
    EXPECT_LE(reads, 21);
    EXPECT_GE(reads, 2);
}

TEST_F(BufferedInterruption, AndCloseEndReadsOfAHostThatNeverStopsSending) {
    for (const bool isClosed : {false, true}) {
        std::thread flood([&] {
            try {
                for (const Bytes frame = frameOf(Bytes(1'000));;) {
                    pair.peer->send(frame);
                }
            } catch (const std::exception&) {
                // The stream has ended.
            }
        });
        for (int i = 0; i < 100; ++i) {
            EXPECT_EQ(readBodyOfFrame(pair.transport).size(), 2'999U);
        }
        if (isClosed) {
            pair.transport.close();
        } else {
            pair.transport.setInterrupted(true);
        }
        const CallResult read = readOnce(pair.transport, 32);
        EXPECT_EQ(read.result, isClosed ? -1 : -2);
        EXPECT_EQ(read.error, isClosed ? EBADF : EAGAIN);
        EXPECT_LT(read.seconds, kBelowASecond);
        pair.transport.close();
        flood.join();
        pair.transport.setInterrupted(false);
        pair.connect();
    }
}

TEST_F(BufferedInterruption, InABodyThatHasArrivedIsECANCELED) {
    pair.peer->send(frameOf(Bytes(10)));
    EXPECT_EQ(readOnce(pair.transport, 32).result, 32);
    pair.transport.setInterrupted(true);
    const CallResult read = readOnce(pair.transport, 10);
    EXPECT_EQ(read.result, -1);
    EXPECT_EQ(read.error, ECANCELED);
}

TEST_F(BufferedInterruption, WithoutAConnectionDoesNothing) {
    pair.transport.close();
    pair.transport.setInterrupted(true);
    EXPECT_EQ(readOnce(pair.transport, 1).error, EBADF);
    EXPECT_EQ(pair.transport.writeMessage(messageOf("01")), -1);
}

TEST_F(BufferedInterruption, IsOverWithTheNextConnection) {
    pair.transport.setInterrupted(true);
    pair.transport.setInterrupted(false);
    pair.connect();
    pair.peer->send(hexFrame("0A"));
    EXPECT_EQ(readBodyOfFrame(pair.transport), "0A");
    EXPECT_EQ(pair.transport.writeMessage(messageOf("01")), 1);
}

}  // namespace
}  // namespace com_tesk::test
