#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <future>
#include <map>
#include <random>
#include <thread>
#include <vector>

#include "tests/comms/BufferedPair.h"
#include "tests/comms/SystemCalls.h"
#include "tests/comms/TaskStatus.h"
#include "tests/message/MessageOf.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/Seed.h"
#include "tests/support/TestSize.h"

namespace com_tesk::test {
namespace {

using std::chrono::milliseconds;
using Bounds = CSCommsInterfaceTCPBuffered::Bounds;

/// A socket whose writes block soon, and more than both sides' buffers hold then.
CSCommsInterfaceTCP::Options smallSendBuffer() {
    CSCommsInterfaceTCP::Options options;
    options.sendBufferSize = 64U << 10U;
    return options;
}
constexpr std::size_t kMoreThanFits = 3U << 20U;

Bounds quickWriter(milliseconds timeout) {
    Bounds bounds;
    bounds.writeTimeout = timeout;
    return bounds;
}

TEST(BufferedWriting, SendsAllBytesAndReturnsTheirNumber) {
    BufferedPair pair;
    EXPECT_EQ(pair.transport.writeMessage(messageOf("00 01 7F 80 FF")), 5);
    EXPECT_EQ(pair.transport.writeMessage(messageOf("")), 0);
    EXPECT_EQ(pair.transport.writeMessage(messageOf("A1")), 1);
    EXPECT_EQ(hexText(pair.peer->receive(6)), "00 01 7F 80 FF A1");
}

TEST(BufferedWriting, OfASmallFrameCostsOneCall) {
    BufferedPair pair;
    const RawMessage message = messageOf("01 02 03 04");
    SystemCalls calls;
    EXPECT_EQ(pair.transport.writeMessage(message), 4);
    EXPECT_EQ(calls.text(), "send #? 4\n");
}

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

TEST(BufferedWriting, OfMoreThanTheSocketHoldsIsCompletedWhenThePeerReads) {
    BufferedPair pair(Bounds(), smallSendBuffer());
    const Bytes frame = patternedBytes(kMoreThanFits);
    std::future<int> written =
        std::async(std::launch::async, [&] { return pair.transport.writeMessage(messageOfBytes(frame)); });
    EXPECT_EQ(written.wait_for(milliseconds(100)), std::future_status::timeout);
    EXPECT_TRUE(pair.peer->receive(frame.size()) == frame);
    EXPECT_EQ(written.get(), static_cast<int>(frame.size()));
}

TEST(BufferedWriting, WithoutAConnectionIsEBADF) {
    VisibleBuffered transport;
    EXPECT_EQ(transport.writeMessage(messageOf("01")), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(transport.writeMessage(messageOf("")), -1);
}

TEST(BufferedWriting, ToAPeerThatDoesNotReadEndsTheConnectionAfterTheWriteTimeout) {
    BufferedPair pair(quickWriter(milliseconds(300)), smallSendBuffer());
    const StopwatchSince watch;
    EXPECT_EQ(pair.transport.writeMessage(messageOfBytes(Bytes(kMoreThanFits))), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GE(watch.seconds(), 0.29);
    EXPECT_LT(watch.seconds(), 5.0);
    EXPECT_EQ(pair.transport.writeMessage(messageOf("01")), -1) << "nothing follows half a frame";
    EXPECT_EQ(readOnce(pair.transport, 1).result, 0);
    EXPECT_TRUE(pair.peer->waitForEnd());
}

TEST(BufferedWriting, ThatHasFailedIsOverWithTheNextConnection) {
    BufferedPair pair(quickWriter(milliseconds(50)), smallSendBuffer());
    EXPECT_EQ(pair.transport.writeMessage(messageOfBytes(Bytes(kMoreThanFits))), -1);
    pair.connect();
    EXPECT_EQ(pair.transport.writeMessage(messageOf("01 02")), 2);
    EXPECT_EQ(hexText(pair.peer->receive(2)), "01 02");
}

TEST(BufferedWriting, TakesNoLongerThanItsTimeAlsoWhenThePeerReadsALittle) {
    CSCommsInterfaceTCP::Options small;
    small.sendBufferSize = 1;
    BufferedPair pair(quickWriter(milliseconds(500)), small);
    std::atomic<bool> isOver{false};
    std::thread slowReader([&] {
        while (!isOver) {
            pair.peer->receive(4'000, milliseconds(1));
            std::this_thread::sleep_for(milliseconds(5));
        }
    });
    const StopwatchSince watch;
    EXPECT_EQ(pair.transport.writeMessage(messageOfBytes(Bytes(kMoreThanFits))), -1);
    EXPECT_GE(watch.seconds(), 0.49);
    EXPECT_LT(watch.seconds(), 5.0);
    isOver = true;
    slowReader.join();
}

TEST(BufferedWriting, ToAResetPeerIsMinusOneAndRaisesNoSignal) {
    struct sigaction deadly {};
    deadly.sa_handler = SIG_DFL;
    ASSERT_EQ(sigaction(SIGPIPE, &deadly, nullptr), 0);
    BufferedPair pair;
    pair.peer->reset();
    EXPECT_TRUE(eventually([&] { return pair.transport.writeMessage(messageOf("01")) == -1; }));
    EXPECT_EQ(pair.transport.writeMessage(messageOf("01")), -1);
    EXPECT_EQ(errno, EPIPE);
    struct sigaction now {};
    ASSERT_EQ(sigaction(SIGPIPE, nullptr, &now), 0);
    EXPECT_TRUE(now.sa_handler == SIG_DFL) << "the process's settings are its own";
}

TEST(BufferedWriting, ToAPeerThatHasClosedIsMinusOneAndRaisesNoSignal) {
    struct sigaction deadly {};
    deadly.sa_handler = SIG_DFL;
    ASSERT_EQ(sigaction(SIGPIPE, &deadly, nullptr), 0);
    BufferedPair pair;
    pair.peer->close();
    EXPECT_TRUE(eventually([&] { return pair.transport.writeMessage(messageOf("01")) == -1; }));
}

TEST(BufferedWriting, LeavesTheApplicationsSignalHandlerInPlace) {
    struct sigaction own {};
    own.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGPIPE, &own, nullptr), 0);
    BufferedPair pair;
    SystemCalls calls;
    pair.connect();
    EXPECT_EQ(calls.textOf("sigaction"), "");
    struct sigaction now {};
    ASSERT_EQ(sigaction(SIGPIPE, nullptr, &now), 0);
    EXPECT_TRUE(now.sa_handler == own.sa_handler);
}

TEST(BufferedWriting, GoesOnAfterSignals) {
    struct sigaction harmless {};
    harmless.sa_handler = [](int) {};  // And no SA_RESTART.
    ASSERT_EQ(sigaction(SIGUSR1, &harmless, nullptr), 0);
    BufferedPair pair(Bounds(), smallSendBuffer());
    const Bytes frame = patternedBytes(kMoreThanFits);
    std::atomic<bool> isOver{false};
    std::thread writer([&] {
        EXPECT_EQ(pair.transport.writeMessage(messageOfBytes(frame)), static_cast<int>(frame.size()));
        isOver = true;
        std::this_thread::sleep_for(milliseconds(20));
    });
    std::thread signaller([&, thread = writer.native_handle()] {
        for (int i = 0; i < 100; ++i) {
            if (!isOver) {
                pthread_kill(thread, SIGUSR1);
            }
            std::this_thread::sleep_for(milliseconds(1));
        }
    });
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_TRUE(pair.peer->receive(frame.size()) == frame);
    signaller.join();
    writer.join();
}

TEST(BufferedWriting, OfEightThreadsToASlowReaderKeepsEveryFrameWhole) {
    CSCommsInterfaceTCP::Options small;
    small.sendBufferSize = 4'096;
    BufferedPair pair(Bounds(), small);
    const std::uint64_t seed = newSeed();
    constexpr unsigned int kWriters = 8;
    const unsigned int frames = sized(12U, 60U);

    // A body: the writer's number, the frame's number, and a pattern that follows from both.
    const auto bodyOf = [](unsigned int writer, unsigned int number, std::size_t size) {
        Bytes body = patternedBytes(size, writer * 1'000 + number);
        body[0] = static_cast<unsigned char>(writer);
        if (size > 1) {
            body[1] = static_cast<unsigned char>(number);
        }
        return body;
    };
    std::vector<std::vector<std::size_t>> sizes(kWriters);
    std::size_t total = 0;
    for (unsigned int writer = 0; writer < kWriters; ++writer) {
        std::mt19937_64 random(seed + writer);
        for (unsigned int number = 0; number < frames; ++number) {
            const std::size_t any = 1 + static_cast<std::size_t>(random()) % (std::size_t{1} << (1 + random() % 18));
            const std::size_t size = number == 0 ? 1 : number == 1 && writer < 2 ? 1U << 20U : any;
            sizes[writer].push_back(size);
            total += size + 32;
        }
    }
    std::vector<std::thread> writers;
    for (unsigned int writer = 0; writer < kWriters; ++writer) {
        writers.emplace_back([&, writer] {
            for (unsigned int number = 0; number < frames; ++number) {
                const Bytes frame = frameOf(bodyOf(writer, number, sizes[writer][number]));
                EXPECT_EQ(pair.transport.writeMessage(messageOfBytes(frame)), static_cast<int>(frame.size()));
            }
        });
    }
    std::vector<unsigned int> next(kWriters, 0);
    std::size_t received = 0;
    unsigned int broken = 0;
    while (received < total && broken == 0) {
        const Bytes header = pair.peer->receive(32);
        const std::size_t size =
            header.size() < 32 ? 0
                               : (static_cast<std::size_t>(header[1]) << 16U |
                                  static_cast<std::size_t>(header[2]) << 8U | static_cast<std::size_t>(header[3])) -
                                     32;
        const Bytes body = pair.peer->receive(size);
        const unsigned int writer = body.empty() ? kWriters : body[0];
        if (writer >= kWriters || next[writer] >= frames || sizes[writer][next[writer]] != size ||
            body != bodyOf(writer, next[writer], size)) {
            ++broken;
            pair.transport.close();  // The writers must not wait for a reader that has gone.
            break;
        }
        ++next[writer];
        received += size + 32;
        std::this_thread::sleep_for(std::chrono::microseconds(300));
    }
    EXPECT_EQ(broken, 0U) << "each writer's frames arrive whole and in its order";
    for (std::thread& writer : writers) {
        writer.join();
    }
    EXPECT_TRUE(pair.peer->isQuietFor(milliseconds(20)));
}

TEST(BufferedWriting, ThatWaitsBehindAFailedOneFailsAtOnce) {
    BufferedPair pair(quickWriter(milliseconds(1'000)), smallSendBuffer());
    const RawMessage message = messageOfBytes(Bytes(kMoreThanFits));
    std::future<int> first = std::async(std::launch::async, [&] { return pair.transport.writeMessage(message); });
    EXPECT_EQ(first.wait_for(milliseconds(200)), std::future_status::timeout);
    const StopwatchSince watch;
    EXPECT_EQ(pair.transport.writeMessage(message), -1);
    EXPECT_LT(watch.seconds(), 1.8) << "it does not wait for a time-out of its own";
    EXPECT_EQ(first.get(), -1);
}

}  // namespace
}  // namespace com_tesk::test
