#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <atomic>
#include <cerrno>
#include <exception>
#include <future>
#include <random>
#include <string>
#include <vector>

#include "tests/comms/BufferedPair.h"
#include "tests/comms/SystemCalls.h"
#include "tests/support/Seed.h"
#include "tests/support/TestSize.h"

namespace com_tesk::test {
namespace {

using std::chrono::milliseconds;
using Bounds = CSCommsInterfaceTCPBuffered::Bounds;

/// More than the buffers of both sides' sockets hold together: sent without a reader, it does not all leave.
constexpr std::size_t kMoreThanSocketsHold = 12U << 20U;

/// More than this side's send buffer and the peer's receive buffer hold.
constexpr std::size_t kLongWrite = 8U << 20U;

/// Both sockets hold little, so writes and the peer wait soon.
CSCommsInterfaceTCP::Options withTwoSmallBuffers() {
    CSCommsInterfaceTCP::Options options;
    options.sendBufferSize = 4'096;
    options.receiveBufferSize = 4'096;
    return options;
}

Bounds patientBounds() {
    Bounds bounds;
    bounds.writeTimeout = milliseconds(10'000);
    return bounds;
}

/// A peer that sends all that it has to say before it reads, and a write to it.
class BufferedTakingIn : public testing::Test {
  protected:
    explicit BufferedTakingIn(const Bounds& bounds = patientBounds()) : pair(bounds, withTwoSmallBuffers()) {}

    /// Frames of 100,000 bytes, together `size` bytes or little more.
    static Bytes framesOf(std::size_t size) {
        Bytes stream;
        for (std::uint32_t number = 1; stream.size() < size; ++number) {
            const Bytes frame = frameOf(patternedBytes(99'968, number));
            stream.insert(stream.end(), frame.begin(), frame.end());
        }
        return stream;
    }

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
        const RawMessage message = messageOfBytes(written);
        const int result = pair.transport.writeMessage(message);
        EXPECT_EQ(result, static_cast<int>(kLongWrite));
        if (result < 0) {
            pair.transport.close();  // Lets the peer out.
        }
        EXPECT_TRUE(peerDoes.get() == written);
    }

    /// Waits until the socket has been empty for a while: a reset drops what is still in it.
    void waitUntilAllIsTakenIn() const {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        for (int empty = 0; empty < 20 && std::chrono::steady_clock::now() < deadline;) {
            int available = 0;
            ioctl(pair.transport.descriptor(), FIONREAD, &available);
            empty = available == 0 ? empty + 1 : 0;
            std::this_thread::sleep_for(milliseconds(20));
        }
    }

    /// Reads the next `count` bytes as header and body of frames, in reads of `step` bytes.
    Bytes readBytes(std::size_t count, unsigned int step) {
        RawMessage read(RawMessage::DATA);
        while (read.size() < count) {
            const auto next = static_cast<unsigned int>(std::min<std::size_t>(step, count - read.size()));
            int result = -2;
            while (result == -2) {
                result = pair.transport.readMessage(next, read);
            }
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

TEST_F(BufferedTakingIn, LetsAPeerGoOnThatSendsBeforeItReads) {
    const Bytes stream = framesOf(kMoreThanSocketsHold);
    exchange(stream);
    EXPECT_TRUE(readBytes(stream.size(), 100'000) == stream);
    EXPECT_EQ(readOnce(pair.transport, 1).result, -2) << "nothing more has come";
}

TEST_F(BufferedTakingIn, KeepsTheOrderForReadsSmallerThanTheReadAhead) {
    const Bytes stream = framesOf(kMoreThanSocketsHold);
    exchange(stream);
    EXPECT_TRUE(readBytes(stream.size(), 9'973) == stream);
}

TEST_F(BufferedTakingIn, KeepsTheOrderForReadsOfManySizes) {
    std::mt19937_64 random(newSeed());
    const Bytes stream = framesOf(kMoreThanSocketsHold);
    exchange(stream);
    Bytes all;
    while (all.size() < stream.size()) {
        const std::size_t size = 1 + static_cast<std::size_t>(random() % (std::size_t{1} << (4 + random() % 17)));
        const Bytes some = readBytes(std::min(size, stream.size() - all.size()), 16U << 20U);
        ASSERT_FALSE(some.empty());
        all.insert(all.end(), some.begin(), some.end());
    }
    EXPECT_TRUE(all == stream);
}

TEST_F(BufferedTakingIn, FollowsWhatTheReaderHasAlready) {
    // The reader has a header and a part of a large body; the rest is taken in.
    const Bytes body = patternedBytes(kMoreThanSocketsHold);
    const Bytes frame = frameOf(body);
    pair.peer->send(Bytes(frame.begin(), frame.begin() + 50'000));
    EXPECT_EQ(readOnce(pair.transport, 32).result, 32);
    EXPECT_EQ(readOnce(pair.transport, kMoreThanSocketsHold).result, -2);
    exchange(Bytes(frame.begin() + 50'000, frame.end()));
    EXPECT_TRUE(readBytes(body.size(), kMoreThanSocketsHold) == body);
}

TEST_F(BufferedTakingIn, IsFollowedByWhatComesLater) {
    const Bytes stream = framesOf(kMoreThanSocketsHold);
    exchange(stream);
    pair.peer->send("0A 0B 0C");
    EXPECT_TRUE(readBytes(stream.size(), 100'000) == stream);
    EXPECT_EQ(readOnce(pair.transport, 3).bytes, "0A 0B 0C");
}

TEST_F(BufferedTakingIn, LeavesTheEndOfTheStreamToTheReader) {
    const Bytes stream = framesOf(200'000);
    auto peerDoes = std::async(std::launch::async, [&] {
        pair.peer->send(stream);
        pair.peer->endSending();
        std::this_thread::sleep_for(milliseconds(300));
        return pair.peer->receive(kLongWrite);
    });
    EXPECT_EQ(pair.transport.writeMessage(messageOfBytes(written)), static_cast<int>(kLongWrite));
    EXPECT_TRUE(peerDoes.get() == written);
    EXPECT_TRUE(readBytes(stream.size(), 100'000) == stream);
    EXPECT_EQ(readOnce(pair.transport, 32).result, 0);
}

TEST_F(BufferedTakingIn, IsReadAlsoAfterAReset) {
    const Bytes stream = framesOf(200'000);
    auto peerDoes = std::async(std::launch::async, [&] {
        pair.peer->send(stream);
        waitUntilAllIsTakenIn();
        pair.peer->reset();
    });
    EXPECT_EQ(pair.transport.writeMessage(messageOfBytes(written)), -1);
    peerDoes.get();
    EXPECT_TRUE(readBytes(stream.size(), 100'000) == stream);
    const ReadResult read = readOnce(pair.transport, 32);
    EXPECT_TRUE(read.result == 0 || read.result == -1) << read.result;
}

TEST_F(BufferedTakingIn, OfAnEarlierConnectionIsNotRead) {
    auto peerDoes = std::async(std::launch::async, [&] {
        pair.peer->send(framesOf(200'000));
        std::this_thread::sleep_for(milliseconds(300));
        pair.peer->reset();
    });
    EXPECT_EQ(pair.transport.writeMessage(messageOfBytes(written)), -1);
    peerDoes.get();
    pair.connect();
    pair.peer->send("0A 0B");
    EXPECT_EQ(readOnce(pair.transport, 2).bytes, "0A 0B");
}

class BufferedTakingInUpToALimit : public BufferedTakingIn {
  protected:
    static constexpr std::uint32_t kLimit = 200'000;

    static Bounds tightBounds() {
        Bounds bounds;
        bounds.largestFrame = kLimit;
        bounds.writeTimeout = milliseconds(1'000);
        return bounds;
    }

    BufferedTakingInUpToALimit() : BufferedTakingIn(tightBounds()) {}
};

TEST_F(BufferedTakingInUpToALimit, TakesInNoMoreThanTheLargestFrame) {
    auto peerDoes = std::async(std::launch::async, [&] {
        try {
            pair.peer->send(Bytes(kMoreThanSocketsHold));
        } catch (const std::exception&) {
            // The client has closed.
        }
    });
    const RawMessage message = messageOfBytes(written);
    std::size_t takenIn = 0;
    {
        const SystemCalls calls;
        EXPECT_EQ(pair.transport.writeMessage(message), -1);
        EXPECT_EQ(errno, EAGAIN);
        for (const std::string& line : calls.lines()) {
            if (line.compare(0, 8, "recv #? ") == 0) {
                takenIn += std::stoul(line.substr(8));
            }
        }
    }
    pair.transport.close();
    peerDoes.get();
    EXPECT_EQ(takenIn, kLimit);
}

/// A reader, and a writer to a peer that sends as much as it has read before it reads on.
class BufferedTakingInWhileReading : public testing::TestWithParam<std::size_t> {
  protected:
    static Bounds boundsWith(std::size_t readAhead) {
        Bounds bounds = patientBounds();
        bounds.readAhead = readAhead;
        return bounds;
    }

    BufferedPair pair{boundsWith(GetParam()), withTwoSmallBuffers()};
};

INSTANTIATE_TEST_SUITE_P(ReadAhead, BufferedTakingInWhileReading, testing::Values(32U, 1'000U, 16'384U),
                         testing::PrintToStringParamName());

TEST_P(BufferedTakingInWhileReading, KeepsEveryFrameWholeAndInOrder) {
    const std::uint64_t seed = newSeed();
    const unsigned int frames = sized(300U, 3'000U);
    std::vector<Bytes> bodies;
    std::mt19937_64 random(seed);
    for (unsigned int number = 0; number < frames; ++number) {
        const std::size_t size = 1 + static_cast<std::size_t>(random() % (std::size_t{1} << (1 + random() % 17)));
        bodies.push_back(patternedBytes(size, number));
    }
    // Reads for a moment and pauses for a moment, so that some bytes reach the reader and some the writer.
    auto reading = std::async(std::launch::async, [&] {
        std::mt19937_64 readersRandom(seed + 1);
        for (unsigned int number = 0; number < frames; ++number) {
            if (readBodyOfFrame(pair.transport) != hexText(bodies[number])) {
                return number;
            }
            if (readersRandom() % 8 == 0) {
                std::this_thread::sleep_for(std::chrono::microseconds(readersRandom() % 3'000));
            }
        }
        return frames;
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
            pair.transport.close();  // Lets the peer and the reader out.
            break;
        }
    }
    EXPECT_TRUE(echoing.get());
    pair.peer->endSending();
    EXPECT_EQ(reading.get(), frames);
}

}  // namespace
}  // namespace com_tesk::test
