#include <limits>

#include "tests/comms/SystemCalls.h"
#include "tests/comms/Transports.h"
#include "tests/support/Allocations.h"
#include "tests/support/BlackHole.h"

namespace com_tesk::test {
namespace {

constexpr unsigned int kHeader = 32;
constexpr char kTen[] = "00 01 02 03 04 05 06 07 08 09";

Bounds largestFrameOf(std::uint32_t size) {
    Bounds bounds;
    bounds.largestFrame = size;
    return bounds;
}

Bounds silenceOf(milliseconds silence) {
    Bounds bounds;
    bounds.silenceInFrame = silence;
    return bounds;
}

const Bounds kImpatient = silenceOf(milliseconds(100));

TEST(BufferedBounds, HaveTheDefaultsThatTheHeaderGives) {
    const Bounds bounds;
    EXPECT_EQ(bounds.largestFrame, 16'777'216U);
    EXPECT_EQ(bounds.silenceInFrame, std::chrono::seconds(5));
    EXPECT_EQ(bounds.connectTimeout, std::chrono::seconds(5));
    EXPECT_EQ(bounds.writeTimeout, std::chrono::seconds(30));
    EXPECT_EQ(bounds.deadPeerSeconds, 9U);
    EXPECT_EQ(bounds.readAhead, 16'384U);
}

// The largest frame.

TEST(BufferedLargestFrame, IsAcceptedAndOneByteMoreIsNot) {
    for (const std::uint32_t largest : {100'000U, Bounds().largestFrame}) {
        BufferedPair pair(largestFrameOf(largest));
        for (const std::uint32_t size : {largest - 1, largest}) {
            const Bytes frame = frameOf(patternedBytes(size - kHeader));
            auto sending = std::async(std::launch::async, [&] { pair.peer->send(frame); });
            RawMessage message(RawMessage::DATA);
            EXPECT_EQ(readFully(pair.transport, kHeader, message), 32);
            EXPECT_EQ(readFully(pair.transport, size - kHeader, message), static_cast<int>(size - kHeader));
            EXPECT_TRUE(bytesOf(message) == frame);
        }
        pair.peer->send(headerOf(largest + 1 - kHeader));
        EXPECT_EQ(readBodyOfFrame(pair.transport), "body: -1 error " + std::to_string(EMSGSIZE));
    }
}

TEST(BufferedLargestFrame, IsCheckedBeforeAnythingIsAllocatedOrRead) {
    constexpr unsigned int kMax = std::numeric_limits<unsigned int>::max();
    BufferedPair pair;
    pair.peer->send("01 02 03");
    RawMessage message = messageOf("0A");
    for (const unsigned int count : {(16U << 20U) - kHeader + 1, 1U << 31U, kMax - kHeader, kMax}) {
        const AllocationLimit nothing(0);
        const SystemCalls calls;
        EXPECT_EQ(pair.transport.readMessage(count, message), -1) << count;
        EXPECT_EQ(errno, EMSGSIZE);
        EXPECT_TRUE(calls.lines().empty());
    }
    EXPECT_EQ(hexText(message), "0A");
    EXPECT_EQ(readOnce(pair.transport, 3).bytes, "01 02 03");
}

TEST(BufferedLargestFrame, NeverForbidsAHeader) {
    for (const std::uint32_t largest : {0U, 1U, 31U, 32U}) {
        BufferedPair pair(largestFrameOf(largest));
        pair.peer->send(hexFrame("0A"));
        EXPECT_EQ(readOnce(pair.transport, kHeader).result, 32) << largest;
    }
}

// Silence inside a frame.

/// Sends the first bytes of a frame and reads until the silence is too long.
void expectTimeout(BufferedPair& pair, const Bytes& frame, std::size_t sent) {
    SCOPED_TRACE(std::to_string(sent) + " of " + std::to_string(frame.size()));
    pair.peer->send(slice(frame, 0, sent));
    const Stopwatch elapsed;
    CallResult read = readOnce(pair.transport, kHeader);
    if (sent >= kHeader) {
        ASSERT_EQ(read.result, 32);
        read = readOnce(pair.transport, static_cast<unsigned int>(frame.size()) - kHeader);
    }
    ASSERT_EQ(read.result, -1);
    ASSERT_EQ(read.error, ETIMEDOUT);
    ASSERT_EQ(read.bytes, "");
    ASSERT_GE(elapsed.seconds(), 0.099);
}

TEST(BufferedSilence, InAFrameIsAReadErrorAfterItsTimeAndEndsTheConnection) {
    BufferedPair pair(kImpatient);
    std::vector<std::pair<std::size_t, std::size_t>> cuts{{100, 82}, {100'000, 60'032}};
    for (std::size_t sent = 1; sent < kHeader + 10; ++sent) {
        cuts.emplace_back(10, sent);
    }
    for (const auto& [bodySize, sent] : cuts) {
        expectTimeout(pair, frameOf(Bytes(bodySize)), sent);
        if (HasFatalFailure()) {
            return;
        }
        ASSERT_TRUE(pair.peer->waitForEnd());
        EXPECT_EQ(pair.transport.writeMessage(messageOf("01")), -1);
        EXPECT_EQ(errno, EPIPE);
        for (const unsigned int count : {1U, 10U, 32U, 50'000U, 1U}) {
            const CallResult read = readOnce(pair.transport, count);
            EXPECT_TRUE(read.result == 0 || read.result == -1) << "a read of " << count << " gives " << read.result;
            EXPECT_EQ(read.bytes, "") << "a read of " << count;
        }
        pair.connect();
        pair.peer->send(hexFrame("0A 0B"));
        EXPECT_EQ(readBodyOfFrame(pair.transport), "0A 0B") << "on the next connection";
    }
}

TEST(BufferedSilence, EndsTheConnectionAlsoForBytesThatArriveInTheLastMoment) {
    BufferedPair pair(kImpatient);
    SystemCalls calls;
    calls.before("shutdown", [&pair] {
        pair.peer->send(Bytes(50));
        pair.peer->send(frameOf(Bytes(10)));
    });
    expectTimeout(pair, frameOf(Bytes(100)), 82);
    for (const unsigned int count : {1U, 32U}) {
        EXPECT_EQ(readOnce(pair.transport, count).bytes, "");
    }
}

TEST(BufferedSilence, BetweenFramesIsNoError) {
    BufferedPair pair(kImpatient);
    EXPECT_EQ(readOnce(pair.transport, kHeader).result, -2);
    pair.peer->send(hexFrame(kTen));
    EXPECT_EQ(readBodyOfFrame(pair.transport), kTen);
    EXPECT_EQ(readOnce(pair.transport, kHeader).result, -2);
}

TEST(BufferedSilence, IsCountedOverSeveralReads) {
    BufferedPair pair(silenceOf(milliseconds(1'500)));
    pair.peer->send("00 00 00 2A");
    const Stopwatch elapsed;
    EXPECT_EQ(readOnce(pair.transport, kHeader).result, -2);
    EXPECT_EQ(readOnce(pair.transport, kHeader).outcome(), Outcome(-1, ETIMEDOUT));
    EXPECT_GE(elapsed.seconds(), 1.49);
}

TEST(BufferedSilence, IsBrokenByASingleByte) {
    // The whole frame takes twice as long as a silence may.
    BufferedPair pair(silenceOf(milliseconds(2'000)));
    auto trickle = std::async(std::launch::async, [&] {
        for (const unsigned char byte : hex(hexFrame(kTen))) {
            pair.peer->send(Bytes{byte});
            std::this_thread::sleep_for(milliseconds(110));
        }
    });
    const Stopwatch elapsed;
    EXPECT_EQ(readBodyOfFrame(pair.transport), kTen);
    EXPECT_GT(elapsed.seconds(), 4.0);
}

TEST(BufferedSilence, DoesNotCountTheTimeBetweenReads) {
    BufferedPair pair(silenceOf(milliseconds(1'200)));
    pair.peer->send(headerOf(10));
    EXPECT_EQ(readOnce(pair.transport, kHeader).result, 32);
    std::this_thread::sleep_for(milliseconds(1'500));
    auto late = std::async(std::launch::async, [&] {
        std::this_thread::sleep_for(milliseconds(100));
        pair.peer->send(kTen);
    });
    EXPECT_EQ(readOnce(pair.transport, 10).bytes, kTen);
}

TEST(BufferedSilence, OfAnEarlierConnectionDoesNotCount) {
    BufferedPair pair(silenceOf(milliseconds(1'700)));
    for (int i = 0; i < 2; ++i) {
        pair.peer->send("00 00 00 2A");
        EXPECT_EQ(readOnce(pair.transport, kHeader).result, -2);
        pair.connect();
    }
    BufferedPair impatient(kImpatient);
    impatient.peer->send(hexFrame(kTen));
    EXPECT_EQ(readOnce(impatient.transport, kHeader).result, 32);
    impatient.connect();
    EXPECT_EQ(readOnce(impatient.transport, kHeader).result, -2) << "no frame has begun on this one";
}

// Extreme bounds.

/// Long after an attempt with a bound of zero has failed.
constexpr milliseconds kMoment{200};

/// Far below the default bounds of connecting and of a silence.
constexpr double kFarBelowDefaults = 3.0;

/// A connected transport, and one that finds no host, with the same bounds.
struct ExtremeBounds {
    explicit ExtremeBounds(milliseconds time)
        : pair(boundsOf(time, Bounds().connectTimeout), bufferSizes(64U << 10U)), unconnected(boundsOf(time, time)) {}

    static Bounds boundsOf(milliseconds transfer, milliseconds connect) {
        Bounds bounds = silenceOf(transfer);
        bounds.writeTimeout = transfer;
        bounds.connectTimeout = connect;
        return bounds;
    }
    bool open() { return unconnected.openConnection(BlackHole::host(), hole.port()); }

    BufferedPair pair;
    const BlackHole hole;
    VisibleBuffered unconnected;
};

TEST(BufferedEndlessBound, EndsNeitherAConnectNorASilenceNorAWrite) {
    for (const milliseconds time : {milliseconds::max(), milliseconds(std::chrono::hours(24 * 365 * 1000))}) {
        SCOPED_TRACE(time.count());
        ExtremeBounds bound(time);
        auto opened = std::async(std::launch::async, [&] { return bound.open(); });
        EXPECT_EQ(opened.wait_for(kMoment), std::future_status::timeout);
        bound.unconnected.setInterrupted(true);
        EXPECT_FALSE(opened.get());

        bound.pair.peer->send("00 00");
        EXPECT_EQ(readOnce(bound.pair.transport, 4).result, -2);
        bound.pair.peer->send("00 2A");
        EXPECT_EQ(readOnce(bound.pair.transport, 4).bytes, "00 00 00 2A");

        const Bytes frame = patternedBytes(kMoreThanFits);
        BackgroundCall written([&] { return writeOnce(bound.pair.transport, messageOfBytes(frame)); });
        EXPECT_TRUE(written.waitUntilItBlocks(bound.pair.transport.descriptor()));
        std::this_thread::sleep_for(kMoment);
        EXPECT_FALSE(written.hasEnded());
        EXPECT_TRUE(bound.pair.peer->receive(frame.size()) == frame);
        EXPECT_EQ(written.get().result, static_cast<int>(frame.size()));
    }
}

TEST(BufferedNegativeBound, EndsWhateverHasToWaitAndNothingElse) {
    for (const milliseconds time : {milliseconds(0), milliseconds(-1), milliseconds::min()}) {
        SCOPED_TRACE(time.count());
        ExtremeBounds bound(time);
        BufferedPair& pair = bound.pair;
        const Stopwatch elapsed;
        EXPECT_FALSE(bound.open());
        EXPECT_LT(elapsed.seconds(), kFarBelowDefaults);

        EXPECT_EQ(pair.transport.writeMessage(messageOf("01 02")), 2);
        pair.peer->send(hexFrame(kTen));
        EXPECT_EQ(readBodyOfFrame(pair.transport), kTen);
        pair.peer->send("00 00");
        const CallResult read = readOnce(pair.transport, 4);
        EXPECT_EQ(read.error, ETIMEDOUT);
        EXPECT_LT(read.seconds, kFarBelowDefaults);

        pair.connect();
        const CallResult write = writeOnce(pair.transport, messageOfBytes(Bytes(kMoreThanFits)));
        EXPECT_EQ(write.outcome(), Outcome(-1, EAGAIN));
        EXPECT_LT(write.seconds, kFarBelowDefaults);
    }
}

}  // namespace
}  // namespace com_tesk::test
