// A write that waits for space receives what the peer sends meanwhile, so that a peer that sends before it reads continues.

#include <sys/ioctl.h>

#include <atomic>
#include <cerrno>
#include <exception>
#include <random>
#include <vector>

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

class BufferedReceivingInWrites : public testing::Test {
  protected:
    static Bounds boundsOf(milliseconds writeTimeout, std::uint32_t largestFrame = 16U << 20U) {
        Bounds bounds;
        bounds.writeTimeout = writeTimeout;
        bounds.largestFrame = largestFrame;
        return bounds;
    }

    explicit BufferedReceivingInWrites(const Bounds& bounds = boundsOf(milliseconds(10'000)))
        : pair(bounds, bufferSizes(4'096, 4'096)) {}

    /// Returns frames of 100,000 bytes, together `size` bytes or little more.
    static Bytes framesOf(std::size_t size) {
        Bytes stream;
        for (std::uint32_t number = 1; stream.size() < size; ++number) {
            const Bytes frame = frameOf(patternedBytes(99'968, number));
            stream.insert(stream.end(), frame.begin(), frame.end());
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
        all.insert(all.end(), some.begin(), some.end());
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

class BufferedReceivingInWritesWithLimit : public BufferedReceivingInWrites {
  protected:
    static constexpr std::uint32_t kLimit = 200'000;

    BufferedReceivingInWritesWithLimit() : BufferedReceivingInWrites(boundsOf(milliseconds(1'000), kLimit)) {}
};

TEST_F(BufferedReceivingInWritesWithLimit, ReceivesNoMoreThanTheLargestFrame) {
    auto peerDoes = std::async(std::launch::async, [&] {
        try {
            pair.peer->send(Bytes(kMoreThanSocketsHold));
        } catch (const std::exception&) {
            // The client has closed.
        }
    });
    std::size_t received = 0;
    {
        const SystemCalls calls;
        EXPECT_EQ(write(), -1);
        EXPECT_EQ(errno, EAGAIN);
        for (const std::string& line : calls.lines()) {
            received += line.compare(0, 8, "recv #? ") == 0 ? std::stoul(line.substr(8)) : 0;
        }
    }
    pair.transport.close();
    peerDoes.get();
    EXPECT_EQ(received, kLimit);
}

/// The parameter is the read-ahead of a reader at the same time.
class BufferedReceivingInWritesAndReads : public testing::TestWithParam<std::size_t> {
  protected:
    static Bounds bounds() {
        Bounds bounds;
        bounds.writeTimeout = milliseconds(10'000);
        bounds.readAhead = GetParam();
        return bounds;
    }

    BufferedPair pair{bounds(), bufferSizes(4'096, 4'096)};
};

INSTANTIATE_TEST_SUITE_P(ReadAhead, BufferedReceivingInWritesAndReads, testing::Values(32U, 1'000U, 16'384U),
                         testing::PrintToStringParamName());

TEST_P(BufferedReceivingInWritesAndReads, KeepsEveryFrameWholeAndInOrder) {
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

}  // namespace
}  // namespace com_tesk::test
