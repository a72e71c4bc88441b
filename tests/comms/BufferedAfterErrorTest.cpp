#include <gtest/gtest.h>

#include <cerrno>
#include <functional>

#include "tests/comms/BufferedPair.h"
#include "tests/comms/SystemCalls.h"

namespace com_tesk::test {
namespace {

/// A header that announces `bodySize` bytes.
Bytes headerOf(std::size_t bodySize) {
    Bytes frame = frameOf(Bytes(bodySize));
    frame.resize(32);
    return frame;
}

/// A connection that has ended with too long a silence after a part of a frame.
class BufferedAfterSilence : public testing::Test {
  protected:
    void stallInHeader(const Bytes& part) {
        pair.peer->send(part);
        expectTimeout(32);
    }

    void stallInBody(std::size_t bodySize, const Bytes& part) {
        pair.peer->send(headerOf(bodySize));
        pair.peer->send(part);
        ASSERT_EQ(readOnce(pair.transport, 32).result, 32);
        expectTimeout(static_cast<unsigned int>(bodySize));
    }

    void expectTimeout(unsigned int count) {
        const ReadResult read = readOnce(pair.transport, count);
        ASSERT_EQ(read.result, -1);
        ASSERT_EQ(read.error, ETIMEDOUT);
    }

    /// Later reads of any size give the end of the stream or an error.
    void expectNothingMore() {
        for (const unsigned int count : {1U, 10U, 32U, 50'000U, 1U}) {
            const ReadResult read = readOnce(pair.transport, count);
            EXPECT_TRUE(read.result == 0 || read.result == -1) << "a read of " << count << " gives " << read.result;
            EXPECT_EQ(read.bytes, "") << "a read of " << count;
        }
    }

    BufferedPair pair{impatient()};
};

TEST_F(BufferedAfterSilence, NothingOfAHalfHeaderIsRead) {
    stallInHeader(Bytes(20));
    expectNothingMore();
}

TEST_F(BufferedAfterSilence, NothingOfAHalfBodyIsRead) {
    stallInBody(100, Bytes(50));
    expectNothingMore();
}

TEST_F(BufferedAfterSilence, NothingOfAHalfLargeBodyIsRead) {
    stallInBody(100'000, Bytes(60'000));
    expectNothingMore();
}

TEST_F(BufferedAfterSilence, NothingThatComesLaterIsRead) {
    stallInBody(100, Bytes(50));
    try {
        pair.peer->send(Bytes(50));
        pair.peer->send(frameOf(Bytes(10)));
    } catch (const std::exception&) {
        // Reset already.
    }
    expectNothingMore();
}

TEST_F(BufferedAfterSilence, NothingThatComesInTheLastMomentIsRead) {
    pair.peer->send(headerOf(100));
    pair.peer->send(Bytes(50));
    ASSERT_EQ(readOnce(pair.transport, 32).result, 32);
    {
        SystemCalls calls;
        calls.before("shutdown", [this] {
            pair.peer->send(Bytes(50));
            pair.peer->send(frameOf(Bytes(10)));
        });
        expectTimeout(100);
    }
    expectNothingMore();
}

TEST_F(BufferedAfterSilence, ThePeerSeesTheEnd) {
    stallInBody(100, Bytes(50));
    EXPECT_TRUE(pair.peer->waitForEnd());
}

TEST_F(BufferedAfterSilence, WritesFail) {
    stallInBody(100, Bytes(50));
    EXPECT_EQ(pair.transport.writeMessage(messageOfBytes(Bytes(1))), -1);
    EXPECT_EQ(errno, EPIPE);
}

TEST_F(BufferedAfterSilence, TheNextConnectionBeginsAnew) {
    stallInBody(100'000, Bytes(60'000));
    pair.connect();
    pair.peer->send(frameOf(hex("0A 0B")));
    EXPECT_EQ(readBodyOfFrame(pair.transport), "0A 0B");
}

}  // namespace
}  // namespace com_tesk::test
