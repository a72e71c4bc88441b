// Writes that wait for space: they receive what the peer sends meanwhile, and keep the frames of many writers whole.

#include <random>

#include "tests/comms/SystemCalls.h"
#include "tests/comms/Transports.h"
#include "tests/support/Seed.h"
#include "tests/support/TestSize.h"

namespace com_tesk::test {
namespace {

/// More than the buffers of both sides' sockets hold together.
constexpr std::size_t kMoreThanSocketsHold = 12U << 20U;

/// More than this side's send buffer and the peer's receive buffer hold.
constexpr std::size_t kLongWrite = 8U << 20U;

/// Smaller than what the peer sends, and larger than a segment of the loopback device: into less than a segment, TCP can
/// send some kilobytes only each time its persist timer expires, which is every 200 ms.
constexpr std::uint32_t kReceiveBuffer = 128U << 10U;

Bounds boundsOf(milliseconds writeTimeout) {
    Bounds bounds;
    bounds.writeTimeout = writeTimeout;
    return bounds;
}

class BufferedReceivingInWrites : public testing::Test {
  protected:
    explicit BufferedReceivingInWrites(const Bounds& bounds = boundsOf(milliseconds(60'000)))
        : pair(bounds, bufferSizes(4'096, kReceiveBuffer)) {}

    /// Returns frames of 100,000 bytes, together `size` bytes or little more.
    static Bytes framesOf(std::size_t size) {
        Bytes stream;
        for (std::uint32_t number = 1; stream.size() < size; ++number) {
            append(stream, frameOf(patternedBytes(99'968, number)));
        }
        return stream;
    }

    int write() { return pair.transport.writeMessage(messageOfBytes(written)); }

    /// The peer sends `stream`, and reads only then. This side writes meanwhile.
    void exchange(const Bytes& stream) {
        auto peerDoes = std::async(std::launch::async, [&] {
            try {
                pair.peer->send(stream);
            } catch (const std::exception&) {
                return Bytes();
            }
            return pair.peer->receive(kLongWrite);
        });
        const int result = write();
        EXPECT_EQ(result, static_cast<int>(kLongWrite));
        if (result < 0) {
            pair.transport.close();  // So that the peer ends.
        }
        EXPECT_TRUE(peerDoes.get() == written);
    }

    /// Waits until the socket has been empty for a while, because a reset drops its contents.
    void waitUntilAllIsReceived() const {
        int empty = 0;
        EXPECT_TRUE(waitUntil([&] {
            int available = 0;
            ioctl(pair.transport.descriptor(), FIONREAD, &available);
            empty = available == 0 ? empty + 1 : 0;
            return empty == 400;
        }));
    }

    /// Reads the next `count` bytes in reads of `step` bytes.
    Bytes readBytes(std::size_t count, unsigned int step) {
        RawMessage read(RawMessage::DATA);
        while (read.size() < count) {
            const auto next = static_cast<unsigned int>(std::min<std::size_t>(step, count - read.size()));
            const int result = readFully(pair.transport, next, read);
            if (result != static_cast<int>(next)) {
                ADD_FAILURE() << "a read gives " << result << " after " << read.size() << " bytes";
                break;
            }
        }
        return bytesOf(read);
    }

    const Bytes written = patternedBytes(kLongWrite, 77);
    BufferedPair pair;
};

/// The parameter is the size of the reads that follow: 9,973 is less than the read-ahead, 0 is random sizes.
class BufferedReceivingInWritesThenReads : public BufferedReceivingInWrites,
                                           public testing::WithParamInterface<unsigned int> {};

INSTANTIATE_TEST_SUITE_P(Of, BufferedReceivingInWritesThenReads, testing::Values(100'000U, 9'973U, 0U),
                         testing::PrintToStringParamName());

TEST_P(BufferedReceivingInWritesThenReads, KeepsTheOrderForAPeerThatSendsBeforeItReads) {
    std::mt19937_64 random(newSeed());
    const Bytes stream = framesOf(kMoreThanSocketsHold);
    exchange(stream);
    Bytes all;
    while (all.size() < stream.size()) {
        const std::size_t any = 1 + static_cast<std::size_t>(random() % (std::uint64_t{1} << (4 + random() % 17)));
        const std::size_t size = std::min(GetParam() == 0 ? any : GetParam(), stream.size() - all.size());
        const Bytes some = readBytes(size, kMoreThanSocketsHold);
        ASSERT_EQ(some.size(), size);
        append(all, some);
    }
    EXPECT_TRUE(all == stream);
    EXPECT_EQ(readOnce(pair.transport, 1).result, -2) << "nothing more has arrived";
    pair.peer->send("0A 0B 0C");
    EXPECT_EQ(readOnce(pair.transport, 3).bytes, "0A 0B 0C");
}

TEST_F(BufferedReceivingInWrites, FollowsWhatTheReaderHasAlready) {
    // The reader has a header and a part of a large body. A write receives the rest.
    const Bytes frame = frameOf(patternedBytes(kMoreThanSocketsHold));
    pair.peer->send(slice(frame, 0, 50'000));
    EXPECT_EQ(readOnce(pair.transport, 32).result, 32);
    EXPECT_EQ(readOnce(pair.transport, kMoreThanSocketsHold).result, -2);
    exchange(slice(frame, 50'000, frame.size()));
    EXPECT_TRUE(readBytes(frame.size() - 32, kMoreThanSocketsHold) == slice(frame, 32, frame.size()));
}

TEST_F(BufferedReceivingInWrites, LeavesTheEndOfTheStreamToTheReader) {
    const Bytes stream = framesOf(200'000);
    auto peerDoes = std::async(std::launch::async, [&] {
        pair.peer->send(stream);
        pair.peer->endSending();
        std::this_thread::sleep_for(milliseconds(300));
        return pair.peer->receive(kLongWrite);
    });
    EXPECT_EQ(write(), static_cast<int>(kLongWrite));
    EXPECT_TRUE(peerDoes.get() == written);
    EXPECT_TRUE(readBytes(stream.size(), 100'000) == stream);
    EXPECT_EQ(readOnce(pair.transport, 32).result, 0);
}

TEST_F(BufferedReceivingInWrites, IsReadAfterAResetButNotByTheNextConnection) {
    const Bytes stream = framesOf(200'000);
    for (const bool isReadBefore : {true, false}) {
        auto peerDoes = std::async(std::launch::async, [&] {
            pair.peer->send(stream);
            waitUntilAllIsReceived();
            pair.peer->reset();
        });
        EXPECT_EQ(write(), -1);
        peerDoes.get();
        if (isReadBefore) {
            EXPECT_TRUE(readBytes(stream.size(), 100'000) == stream);
            const CallResult read = readOnce(pair.transport, 32);
            EXPECT_TRUE(read.result == 0 || read.result == -1) << read.result;
        }
        pair.connect();
        pair.peer->send("0A 0B");
        EXPECT_EQ(readOnce(pair.transport, 2).bytes, "0A 0B");
    }
}

TEST(BufferedReceivingInWritesWithLimit, ReceivesNoMoreThanTheLargestFrame) {
    Bounds bounds = boundsOf(milliseconds(1'000));
    bounds.largestFrame = 200'000;
    BufferedPair pair(bounds, bufferSizes(4'096, kReceiveBuffer));
    auto peerDoes = std::async(std::launch::async, [&] {
        // The client closes before all is sent.
        EXPECT_THROW(pair.peer->send(Bytes(kMoreThanSocketsHold)), std::exception);
    });
    std::size_t received = 0;
    {
        const SystemCalls calls;
        EXPECT_EQ(writeOnce(pair.transport, messageOfBytes(Bytes(kLongWrite))).outcome(), Outcome(-1, EAGAIN));
        for (const std::string& line : calls.lines()) {
            received += line.compare(0, 8, "recv #? ") == 0 ? std::stoul(line.substr(8)) : 0;
        }
    }
    pair.transport.close();
    peerDoes.get();
    EXPECT_EQ(received, bounds.largestFrame);
}

/// The parameter is the read-ahead of a reader at the same time.
class BufferedReceivingInWritesAndReads : public testing::TestWithParam<std::size_t> {};

INSTANTIATE_TEST_SUITE_P(ReadAhead, BufferedReceivingInWritesAndReads, testing::Values(32U, 1'000U, 16'384U),
                         testing::PrintToStringParamName());

TEST_P(BufferedReceivingInWritesAndReads, KeepsEveryFrameWholeAndInOrder) {
    Bounds bounds = boundsOf(milliseconds(10'000));
    bounds.readAhead = GetParam();
    BufferedPair pair(bounds, bufferSizes(4'096, kReceiveBuffer));
    const std::uint64_t seed = newSeed();
    std::mt19937_64 random(seed);
    std::vector<Bytes> bodies(sized(300U, 3'000U));
    for (std::uint32_t number = 0; number < bodies.size(); ++number) {
        const std::size_t size = 1 + static_cast<std::size_t>(random() % (std::size_t{1} << (1 + random() % 17)));
        bodies[number] = patternedBytes(size, number);
    }
    // Pauses sometimes, so that some bytes reach the reader and some the writer.
    auto reading = std::async(std::launch::async, [&] {
        std::mt19937_64 readersRandom(seed + 1);
        for (std::size_t number = 0; number < bodies.size(); ++number) {
            if (readBodyOfFrame(pair.transport) != hexText(bodies[number])) {
                return number;
            }
            if (readersRandom() % 8 == 0) {
                std::this_thread::sleep_for(std::chrono::microseconds(readersRandom() % 3'000));
            }
        }
        return bodies.size();
    });
    auto echoing = std::async(std::launch::async, [&] {
        try {
            for (const Bytes& body : bodies) {
                pair.peer->send(frameOf(body));
                if (pair.peer->receive(body.size() + 32) != frameOf(body)) {
                    return false;
                }
            }
        } catch (const std::exception&) {
            return false;
        }
        return true;
    });
    for (const Bytes& body : bodies) {
        const RawMessage message = messageOfBytes(frameOf(body));
        if (pair.transport.writeMessage(message) != static_cast<int>(message.size())) {
            ADD_FAILURE() << "a write fails with " << errno;
            pair.transport.close();  // So that the peer and the reader end.
            break;
        }
    }
    EXPECT_TRUE(echoing.get());
    pair.peer->endSending();
    EXPECT_EQ(reading.get(), bodies.size());
}

/// Returns a frame of one of several writers. Its body holds both numbers and a pattern that follows from them.
Bytes frameOfWriter(unsigned int writer, unsigned int number, std::uint64_t seed) {
    std::mt19937_64 random(seed + writer * 1'000 + number);
    const std::size_t any = 1 + static_cast<std::size_t>(random() % (std::uint64_t{1} << (1 + random() % 18)));
    const std::size_t size = number == 0 ? 1 : number == 1 && writer < 2 ? 1U << 20U : any;
    Bytes body = patternedBytes(size, writer * 1'000 + number);
    body[0] = static_cast<unsigned char>(writer);
    if (size > 1) {
        body[1] = static_cast<unsigned char>(number);
    }
    return frameOf(body);
}

TEST(BufferedWriting, OfEightThreadsToASlowReaderKeepsEveryFrameWhole) {
    constexpr unsigned int kWriters = 8;
    const unsigned int frames = sized(12U, 60U);
    const std::uint64_t seed = newSeed();
    BufferedPair pair(Bounds(), bufferSizes(4'096));
    std::vector<std::future<void>> writers;
    for (unsigned int writer = 0; writer < kWriters; ++writer) {
        writers.push_back(std::async(std::launch::async, [&, writer] {
            for (unsigned int number = 0; number < frames; ++number) {
                const RawMessage message = messageOfBytes(frameOfWriter(writer, number, seed));
                EXPECT_EQ(pair.transport.writeMessage(message), static_cast<int>(message.size()));
            }
        }));
    }
    std::vector<unsigned int> next(kWriters, 0);
    for (unsigned int received = 0; received < kWriters * frames; ++received) {
        Bytes frame = pair.peer->receive(33);
        const unsigned int writer = frame.size() == 33 ? frame[32] : kWriters;
        const Bytes whole = writer < kWriters ? frameOfWriter(writer, next[writer], seed) : Bytes();
        append(frame, pair.peer->receive(whole.size() - std::min<std::size_t>(33, whole.size())));
        if (whole.empty() || frame != whole) {
            ADD_FAILURE() << "each writer's frames arrive whole and in its order";
            pair.transport.close();  // So that the writers do not wait for a reader.
            break;
        }
        ++next[writer];
        std::this_thread::sleep_for(std::chrono::microseconds(300));
    }
    writers.clear();
    EXPECT_EQ(next, std::vector<unsigned int>(kWriters, frames));
    EXPECT_TRUE(pair.peer->isQuietFor(milliseconds(20)));
}

}  // namespace
}  // namespace com_tesk::test
