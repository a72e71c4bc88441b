#include <sys/wait.h>

#include <optional>
#include <set>

#include "tests/comms/SystemCalls.h"
#include "tests/comms/Transports.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

/// Below the second that a read takes by itself.
constexpr double kBelowASecond = 0.8;

/// The most that a close, and the end of the calls that it wakes, may take. A write takes 30 s by itself.
constexpr double kMaxEnding = 2.0;

class TransportClosing : public BothTransports {};

INSTANTIATE_TEST_SUITE_P(Of, TransportClosing, testing::Bool(), nameOfTransport);

TEST_P(TransportClosing, ReturnsZeroOnceAndMinusOneWithoutASocket) {
    const CapturedStreams streams;
    auto unopened = newTransport();
    connect();
    const int closed = descriptor();
    EXPECT_EQ(transport->writeMessage(messageOf("A1 A2 A3")), 3);
    EXPECT_EQ(transport->close(), 0);
    EXPECT_EQ(descriptor(), -1);
    EXPECT_EQ(fcntl(closed, F_GETFD), -1);
    {
        const SystemCalls calls;
        EXPECT_EQ(transport->close(), -1);
        EXPECT_EQ(unopened->close(), -1);
        unopened.reset();
        EXPECT_EQ(calls.text(), "");
    }
    EXPECT_EQ(hexText(peer->receive(10)), "A1 A2 A3");
    EXPECT_TRUE(peer->waitForEnd());
    EXPECT_EQ(streams.out() + streams.err(), "");
}

TEST_P(TransportClosing, SucceedsForExactlyOneOfManyThreads) {
    for (int round = 0; round < 20; ++round) {
        connect();
        std::vector<std::future<int>> closers;
        for (int i = 0; i < 4; ++i) {
            closers.push_back(std::async(std::launch::async, [this] { return transport->close(); }));
        }
        std::multiset<int> results;
        for (std::future<int>& closer : closers) {
            results.insert(closer.get());
        }
        EXPECT_EQ(results, (std::multiset<int>{-1, -1, -1, 0}));
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
        const Stopwatch elapsed;
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
        EXPECT_LT(elapsed.seconds(), kMaxEnding);
    }

    /// Calls an operation by name, because a destructor changes the virtual ones at once.
    std::function<CallResult()> writing() {
        return [this, used = transport.get()] {
            const int result =
                isBuffered() ? static_cast<VisibleBuffered*>(used)->CSCommsInterfaceTCPBuffered::writeMessage(large)
                             : used->CSCommsInterfaceTCP::writeMessage(large);
            return CallResult{result, errno, "", 0.0};
        };
    }
    std::function<CallResult()> reading(unsigned int count) {
        return [count, used = transport.get()] {
            RawMessage message(RawMessage::DATA);
            const int result =
                isBuffered()
                    ? static_cast<VisibleBuffered*>(used)->CSCommsInterfaceTCPBuffered::readMessage(count, message)
                    : used->CSCommsInterfaceTCP::readMessage(count, message);
            return CallResult{result, errno, isBuffered() ? hexText(message) : "", 0.0};
        };
    }

    static void expectEndOfRead(const CallResult& read, Ending ending, bool isInBody = false) {
        EXPECT_EQ(read.bytes, "");
        if (!isBuffered()) {
            EXPECT_TRUE(read.result == 0 || read.result == -1) << read.result;
            return;
        }
        EXPECT_EQ(read.outcome(), ending != Ending::INTERRUPTION ? Outcome(-1, EBADF)
                                  : isInBody                     ? Outcome(-1, ECANCELED)
                                                                 : Outcome(-2, EAGAIN));
    }

    const RawMessage large = messageOfBytes(Bytes(kMoreThanFits));
};

INSTANTIATE_TEST_SUITE_P(Of, TransportEnding, testing::Bool(), nameOfTransport);

TEST_P(TransportEnding, WakesAllWritersAndAReaderTogether) {
    for (const Ending ending : endings()) {
        SCOPED_TRACE(static_cast<int>(ending));
        BackgroundCall first(writing());
        ASSERT_TRUE(first.waitUntilItBlocks(descriptor()));
        BackgroundCall second(writing());
        BackgroundCall third(writing());
        ASSERT_TRUE(second.waitUntilItBlocks(descriptor()) && third.waitUntilItBlocks(descriptor()));
        std::optional<BackgroundCall> read;
        if (ending != Ending::REOPENING) {  // Only the reading thread may open.
            read.emplace(reading(32));
            ASSERT_TRUE(read->waitUntilItBlocks());
        }
        const Stopwatch elapsed;
        end(ending);
        for (BackgroundCall* call : {&first, &second, &third}) {
            EXPECT_LT(call->get().result, static_cast<int>(kMoreThanFits));
        }
        EXPECT_LT(elapsed.seconds(), kMaxEnding);
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
    std::vector<Ending> endings{Ending::CLOSE, Ending::DESTRUCTION};
    if (isBuffered()) {
        positions.push_back({slice(headerOf(10), 0, 5), false, 32});
        positions.push_back({headerOf(10), true, 10});
        positions.push_back({slice(frameOf(Bytes(10)), 0, 35), true, 10});
        positions.push_back({slice(frameOf(Bytes(1'000'000)), 0, 100'000), true, 1'000'000});
        endings.push_back(Ending::INTERRUPTION);
    }
    for (const Ending ending : endings) {
        for (const Position& position : positions) {
            SCOPED_TRACE(std::to_string(static_cast<int>(ending)) + " at " + std::to_string(position.sent.size()));
            transport = newTransport();
            connect();
            peer->send(position.sent);
            if (position.isHeaderRead) {
                ASSERT_EQ(readOnce(*transport, 32).result, 32);
            }
            BackgroundCall read(reading(position.count));
            ASSERT_TRUE(read.waitUntilItBlocks());
            const Stopwatch elapsed;
            end(ending);
            expectEndOfRead(read.get(), ending, position.isHeaderRead);
            EXPECT_LT(elapsed.seconds(), kBelowASecond);
        }
    }
}

TEST_P(TransportEnding, ReturnsTheSystemsErrorOfCloseAlsoWhenAWriterWasWoken) {
    BackgroundCall write(writing());
    ASSERT_TRUE(write.waitUntilItBlocks(descriptor()));
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

struct BufferedInterruption : testing::Test {
    BufferedPair pair;
};

TEST_F(BufferedInterruption, HidesWhatHasArrivedUntilTheNextConnectionWithoutSpinning) {
    pair.peer->send(hexFrame("0A") + " " + hexFrame("0B"));
    EXPECT_EQ(readBodyOfFrame(pair.transport), "0A") << "the second frame has been read ahead";
    pair.transport.setInterrupted(true);
    int reads = 0;
    for (const Stopwatch elapsed; elapsed.seconds() < 0.2; ++reads) {
        EXPECT_EQ(readOnce(pair.transport, 32).outcome(), Outcome(-2, EAGAIN));
        EXPECT_EQ(pair.transport.writeMessage(messageOf("01")), -1);
    }
    EXPECT_LE(reads, 21);
    EXPECT_GE(reads, 2);
    pair.transport.setInterrupted(false);
    pair.connect();
    pair.peer->send(hexFrame("0C"));
    EXPECT_EQ(readBodyOfFrame(pair.transport), "0C");
    EXPECT_EQ(pair.transport.writeMessage(messageOf("01")), 1);
}

TEST_F(BufferedInterruption, AndCloseEndReadsOfAHostThatNeverStopsSending) {
    for (const bool isClosed : {false, true}) {
        auto flood = std::async(std::launch::async, [&] {
            for (const Bytes frame = frameOf(Bytes(1'000));;) {
                pair.peer->send(frame);  // Throws when the stream has ended.
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
        EXPECT_EQ(read.outcome(), Outcome(isClosed ? -1 : -2, isClosed ? EBADF : EAGAIN));
        EXPECT_LT(read.seconds, kBelowASecond);
        pair.transport.close();
        flood.wait();
        pair.transport.setInterrupted(false);
        pair.connect();
    }
}

TEST_F(BufferedInterruption, InABodyThatHasArrivedIsECANCELED) {
    pair.peer->send(frameOf(Bytes(10)));
    EXPECT_EQ(readOnce(pair.transport, 32).result, 32);
    pair.transport.setInterrupted(true);
    EXPECT_EQ(readOnce(pair.transport, 10).outcome(), Outcome(-1, ECANCELED));
    pair.transport.close();
    pair.transport.setInterrupted(true);
    EXPECT_EQ(readOnce(pair.transport, 1).error, EBADF) << "without a connection";
    EXPECT_EQ(pair.transport.writeMessage(messageOf("01")), -1);
}

}  // namespace
}  // namespace com_tesk::test
