#include <fcntl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <future>
#include <thread>

#include "tests/comms/BufferedPair.h"
#include "tests/comms/TaskStatus.h"
#include "tests/message/MessageOf.h"

namespace com_tesk::test {
namespace {

using std::chrono::milliseconds;

/// Well below the second that a read takes by itself.
constexpr double kAtOnce = 0.8;

/// Well below the thirty seconds that a write takes by itself.
constexpr double kSoon = 10.0;

/// A socket whose writes block soon, and a message that is more than both sides' buffers hold then.
CSCommsInterfaceTCP::Options smallSendBuffer() {
    CSCommsInterfaceTCP::Options options;
    options.sendBufferSize = 4'096;
    return options;
}
constexpr std::size_t kMoreThanFits = 1U << 20U;

constexpr char kHeaderOfTen[] =
    "00 00 00 2A 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF";

/// Something that another thread is doing when this one ends it.
class Underway {
  public:
    explicit Underway(const std::function<ReadResult()>& operation)
        : result(std::async(std::launch::async, [this, operation] {
              task = thisTask();
              return operation();
          })) {}

    /// Waits until it sleeps in the system.
    void waitUntilItBlocks() {
        ASSERT_TRUE(eventually([this] { return task != 0 && isAsleep(task); }));
        std::this_thread::sleep_for(milliseconds(20));
    }

    ReadResult get() { return result.get(); }

  private:
    std::atomic<pid_t> task{0};
    std::future<ReadResult> result;
};

ReadResult writeOnce(CSCommsInterfaceTCP& transport, const RawMessage& message) {
    ReadResult write;
    errno = 0;
    write.result = transport.writeMessage(message);
    write.error = errno;
    return write;
}

/// How a read or write is ended by another thread.
enum class Ending { CLOSE, INTERRUPTION };

class BufferedEnding : public testing::TestWithParam<Ending> {
  protected:
    void end() {
        if (GetParam() == Ending::CLOSE) {
            pair.transport.close();
        } else {
            pair.transport.setInterrupted(true);
        }
    }

    /// Ends a read of `count` bytes that has begun to wait.
    ReadResult endedRead(unsigned int count) {
        Underway reading([&] { return readOnce(pair.transport, count); });
        reading.waitUntilItBlocks();
        const StopwatchSince watch;
        end();
        ReadResult read = reading.get();
        EXPECT_LT(watch.seconds(), kAtOnce);
        EXPECT_EQ(read.bytes, "");
        return read;
    }

    /// A read that is not inside a body: after an interruption as if nothing had arrived.
    void expectEndOutsideABody(const ReadResult& read) {
        EXPECT_EQ(read.result, GetParam() == Ending::CLOSE ? -1 : -2);
        EXPECT_EQ(read.error, GetParam() == Ending::CLOSE ? EBADF : EAGAIN);
    }

    void expectEndInsideABody(const ReadResult& read) {
        EXPECT_EQ(read.result, -1);
        EXPECT_EQ(read.error, GetParam() == Ending::CLOSE ? EBADF : ECANCELED);
    }

    BufferedPair pair{CSCommsInterfaceTCPBuffered::Bounds(), smallSendBuffer()};
    const RawMessage large = messageOfBytes(Bytes(kMoreThanFits));
};

INSTANTIATE_TEST_SUITE_P(By, BufferedEnding, testing::Values(Ending::CLOSE, Ending::INTERRUPTION),
                         [](const testing::TestParamInfo<Ending>& ending) {
                             return ending.param == Ending::CLOSE ? "Close" : "Interruption";
                         });

TEST_P(BufferedEnding, WakesAReadBetweenFrames) {
    expectEndOutsideABody(endedRead(32));
}

TEST_P(BufferedEnding, WakesAReadInAHeader) {
    pair.peer->send("00 00 00 2A 00");
    expectEndOutsideABody(endedRead(32));
}

TEST_P(BufferedEnding, WakesAReadBetweenHeaderAndBody) {
    pair.peer->send(kHeaderOfTen);
    EXPECT_EQ(readOnce(pair.transport, 32).result, 32);
    expectEndInsideABody(endedRead(10));
}

TEST_P(BufferedEnding, WakesAReadInABody) {
    pair.peer->send(std::string(kHeaderOfTen) + " 01 02 03");
    EXPECT_EQ(readOnce(pair.transport, 32).result, 32);
    expectEndInsideABody(endedRead(10));
}

TEST_P(BufferedEnding, WakesAReadInALargeBody) {
    pair.peer->send(hexWord(1'000'032) + " 00 00 00 20 " + hexText(Bytes(24)));
    pair.peer->send(Bytes(100'000));
    EXPECT_EQ(readOnce(pair.transport, 32).result, 32);
    expectEndInsideABody(endedRead(1'000'000));
}

TEST_P(BufferedEnding, EndsAReadOfAHostThatNeverStopsSending) {
    std::atomic<bool> isOver{false};
    std::thread flood([&] {
        try {
            const Bytes frame = frameOf(Bytes(1'000));
            while (!isOver) {
                pair.peer->send(frame);
            }
        } catch (const std::exception&) {
            // The stream has ended.
        }
    });
    for (int i = 0; i < 100; ++i) {
        ASSERT_NE(readBodyOfFrame(pair.transport).size(), 0U);
    }
    end();
    const StopwatchSince watch;
    const ReadResult read = readOnce(pair.transport, 32);
    expectEndOutsideABody(read);
    EXPECT_LT(watch.seconds(), kAtOnce);
    isOver = true;
    pair.transport.close();
    flood.join();
}

TEST_P(BufferedEnding, WakesAWriter) {
    Underway writing([&] { return writeOnce(pair.transport, large); });
    writing.waitUntilItBlocks();
    const StopwatchSince watch;
    end();
    EXPECT_EQ(writing.get().result, -1);
    EXPECT_LT(watch.seconds(), kSoon);
}

TEST_P(BufferedEnding, WakesWritersThatWaitBehindAnother) {
    Underway writing([&] { return writeOnce(pair.transport, large); });
    writing.waitUntilItBlocks();
    Underway second([&] { return writeOnce(pair.transport, messageOf("01")); });
    Underway third([&] { return writeOnce(pair.transport, large); });
    second.waitUntilItBlocks();
    third.waitUntilItBlocks();
    const StopwatchSince watch;
    end();
    EXPECT_EQ(writing.get().result, -1);
    EXPECT_EQ(second.get().result, -1);
    EXPECT_EQ(third.get().result, -1);
    EXPECT_LT(watch.seconds(), kSoon);
}

TEST_P(BufferedEnding, WakesAReaderAndAWriterTogether) {
    Underway writing([&] { return writeOnce(pair.transport, large); });
    Underway reading([&] { return readOnce(pair.transport, 32); });
    writing.waitUntilItBlocks();
    reading.waitUntilItBlocks();
    const StopwatchSince watch;
    end();
    EXPECT_EQ(writing.get().result, -1);
    expectEndOutsideABody(reading.get());
    EXPECT_LT(watch.seconds(), kSoon);
}

TEST_P(BufferedEnding, IsSeenByThePeer) {
    end();
    EXPECT_TRUE(pair.peer->waitForEnd());
}

// Interruption.

struct BufferedInterruption : testing::Test {
    BufferedPair pair{CSCommsInterfaceTCPBuffered::Bounds(), smallSendBuffer()};
};

TEST_F(BufferedInterruption, LetsNoReadAndNoWriteBegin) {
    pair.transport.setInterrupted(true);
    const StopwatchSince watch;
    for (int i = 0; i < 3; ++i) {
        const ReadResult read = readOnce(pair.transport, 32);
        EXPECT_EQ(read.result, -2);
        EXPECT_EQ(read.error, EAGAIN);
        EXPECT_EQ(pair.transport.writeMessage(messageOf("01")), -1);
    }
    EXPECT_LT(watch.seconds(), kAtOnce);
}

TEST_F(BufferedInterruption, HidesWhatHasArrivedBefore) {
    pair.peer->send(hexFrame("0A") + " " + hexFrame("0B"));
    EXPECT_EQ(readBodyOfFrame(pair.transport), "0A") << "the second frame has been read ahead";
    pair.transport.setInterrupted(true);
    const ReadResult read = readOnce(pair.transport, 32);
    EXPECT_EQ(read.result, -2) << "as if nothing had arrived";
    EXPECT_EQ(read.error, EAGAIN);
}

TEST_F(BufferedInterruption, InABodyThatHasArrivedIsECANCELED) {
    pair.peer->send(std::string(kHeaderOfTen) + " 00 01 02 03 04 05 06 07 08 09");
    EXPECT_EQ(readOnce(pair.transport, 32).result, 32);
    pair.transport.setInterrupted(true);
    const ReadResult read = readOnce(pair.transport, 10);
    EXPECT_EQ(read.result, -1);
    EXPECT_EQ(read.error, ECANCELED);
}

TEST_F(BufferedInterruption, DoesNotMakeAReaderThatAsksAgainSpin) {
    pair.transport.setInterrupted(true);
    int reads = 0;
    for (const StopwatchSince watch; watch.seconds() < 0.2; ++reads) {
        EXPECT_EQ(readOnce(pair.transport, 32).result, -2);
    }
    EXPECT_LE(reads, 21);
}

TEST_F(BufferedInterruption, WithoutAConnectionDoesNothing) {
    VisibleBuffered transport;
    transport.setInterrupted(true);
    EXPECT_EQ(readOnce(transport, 1).error, EBADF);
    EXPECT_EQ(transport.writeMessage(messageOf("01")), -1);
    transport.setInterrupted(false);
}

TEST_F(BufferedInterruption, IsOverWithTheNextConnection) {
    pair.transport.setInterrupted(true);
    pair.transport.setInterrupted(false);
    pair.connect();
    pair.peer->send(hexFrame("0A"));
    EXPECT_EQ(readBodyOfFrame(pair.transport), "0A");
    EXPECT_EQ(pair.transport.writeMessage(messageOf("01")), 1);
}

TEST_F(BufferedInterruption, NeverBlocks) {
    const RawMessage large = messageOfBytes(Bytes(kMoreThanFits));
    Underway writing([&] { return writeOnce(pair.transport, large); });
    writing.waitUntilItBlocks();
    const StopwatchSince watch;
    pair.transport.setInterrupted(true);
    EXPECT_LT(watch.seconds(), kAtOnce);
    writing.get();
}

// Closing.

TEST(BufferedClosing, ReturnsZeroOnceAndThenMinusOne) {
    BufferedPair pair;
    const int descriptor = pair.transport.descriptor();
    EXPECT_EQ(pair.transport.close(), 0);
    EXPECT_EQ(pair.transport.close(), -1);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
    EXPECT_TRUE(pair.peer->waitForEnd());
}

TEST(BufferedClosing, HappensAtDestruction) {
    ScriptedHost host;
    std::unique_ptr<CSCommsInterface> transport;
    {
        auto created = std::make_unique<VisibleBuffered>();
        ASSERT_TRUE(created->openConnection(ScriptedHost::address(), host.port()));
        transport = std::move(created);
    }
    const auto peer = host.accept();
    ASSERT_NE(peer, nullptr);
    transport.reset();
    EXPECT_TRUE(peer->waitForEnd());
}

/// A transport that is destroyed while other threads are inside its operations. They are called by name: a destructor
/// takes the virtual ones away at once.
struct BufferedDestruction : testing::Test {
    ScriptedHost host;
    std::unique_ptr<ScriptedHost::Peer> peer;
    std::unique_ptr<VisibleBuffered> transport =
        std::make_unique<VisibleBuffered>(CSCommsInterfaceTCPBuffered::Bounds(), smallSendBuffer());
    const RawMessage large = messageOfBytes(Bytes(kMoreThanFits));

    void SetUp() override {
        ASSERT_TRUE(transport->openConnection(ScriptedHost::address(), host.port()));
        peer = host.accept();
        ASSERT_NE(peer, nullptr);
    }
};

TEST_F(BufferedDestruction, EndsAReadAndWaitsForIt) {
    peer->send("00 00 00 2A");
    RawMessage message(RawMessage::DATA);
    Underway reading([&, used = transport.get()] {
        ReadResult read;
        read.result = used->CSCommsInterfaceTCPBuffered::readMessage(32, message);
        return read;
    });
    reading.waitUntilItBlocks();
    transport.reset();
    EXPECT_EQ(reading.get().result, -1);
}

TEST_F(BufferedDestruction, EndsWritesAndWaitsForThem) {
    const auto write = [this, used = transport.get()] {
        ReadResult written;
        written.result = used->CSCommsInterfaceTCPBuffered::writeMessage(large);
        return written;
    };
    Underway first(write);
    first.waitUntilItBlocks();
    Underway second(write);
    second.waitUntilItBlocks();
    const StopwatchSince watch;
    transport.reset();
    EXPECT_EQ(first.get().result, -1);
    EXPECT_EQ(second.get().result, -1);
    EXPECT_LT(watch.seconds(), kSoon);
}

}  // namespace
}  // namespace com_tesk::test
