#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <limits>
#include <thread>

#include "tests/comms/BufferedPair.h"
#include "tests/comms/SystemCalls.h"
#include "tests/message/AllocationLimit.h"
#include "tests/message/MessageOf.h"

namespace com_tesk::test {
namespace {

using std::chrono::milliseconds;
using Bounds = CSCommsInterfaceTCPBuffered::Bounds;

constexpr unsigned int kHeader = 32;

constexpr char kFrameOfTen[] =
    "00 00 00 2A 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
    "00 01 02 03 04 05 06 07 08 09";

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

TEST(BufferedLargestFrame, AndOneByteLessAreAcceptedAndOneByteMoreIsNot) {
    Bounds bounds;
    bounds.largestFrame = 100'000;
    BufferedPair pair(bounds);
    for (const unsigned int size : {99'999U, 100'000U}) {
        const Bytes body = patternedBytes(size - kHeader);
        pair.peer->send(frameOf(body));
        EXPECT_TRUE(readBodyOfFrame(pair.transport) == hexText(body)) << size;
    }
    pair.peer->send(frameOf(Bytes(100'001 - kHeader)));
    EXPECT_EQ(readBodyOfFrame(pair.transport), "body: -1 error " + std::to_string(EMSGSIZE));
}

TEST(BufferedLargestFrame, IsSixteenMebibytesByDefault) {
    constexpr unsigned int kLargest = 16U << 20U;
    BufferedPair pair;
    const Bytes part = patternedBytes(kLargest / 16);
    Bytes body;
    for (int i = 0; i < 16; ++i) {
        body.insert(body.end(), part.begin(), part.end());
    }
    body.resize(kLargest - kHeader);
    const std::string restOfHeader = " 00 00 00 20 " + hexText(Bytes(24));
    std::thread sender([&] {
        pair.peer->send(hexWord(kLargest) + restOfHeader);
        pair.peer->send(body);
        pair.peer->send(hexWord(kLargest + 1) + restOfHeader);
    });
    RawMessage message(RawMessage::DATA);
    while (pair.transport.readMessage(kHeader, message) == -2) {
    }
    message.clear();
    int result = -2;
    while (result == -2) {
        result = pair.transport.readMessage(kLargest - kHeader, message);
    }
    EXPECT_EQ(message.size(), body.size());
    EXPECT_TRUE(std::memcmp(message.data(), body.data(), std::min(message.size(), body.size())) == 0);
    EXPECT_EQ(readBodyOfFrame(pair.transport), "body: -1 error " + std::to_string(EMSGSIZE));
    sender.join();
}

TEST(BufferedLargestFrame, IsCheckedBeforeAnythingIsAllocatedOrRead) {
    BufferedPair pair;
    pair.peer->send("01 02 03");
    RawMessage message = messageOf("0A");
    for (const unsigned int count :
         {(16U << 20U) - kHeader + 1, 1U << 31U, std::numeric_limits<unsigned int>::max() - kHeader,
          std::numeric_limits<unsigned int>::max()}) {
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
        Bounds bounds;
        bounds.largestFrame = largest;
        BufferedPair pair(bounds);
        pair.peer->send(hexFrame("0A"));
        EXPECT_EQ(readOnce(pair.transport, kHeader).result, 32) << largest;
    }
}

TEST(BufferedLargestFrame, OfALargeBodyTakesMemoryOnlyAsItArrives) {
    // The body is announced and does not come: pages that nobody has written to cost nothing.
    BufferedPair pair;
    pair.peer->send(hexWord(16U << 20U) + " 00 00 00 20 " + hexText(Bytes(24)) + " 01");
    EXPECT_EQ(readOnce(pair.transport, kHeader).result, 32);
    const ReadResult read = readOnce(pair.transport, (16U << 20U) - kHeader);
    EXPECT_EQ(read.result, -2);
}

// Silence inside a frame.

TEST(BufferedSilence, AtEveryByteOfAFrameIsAReadErrorAfterItsTimeAndNotBefore) {
    const Bytes frame = hex(kFrameOfTen);
    BufferedPair pair(impatient());
    for (std::size_t sent = 1; sent < frame.size(); ++sent) {
        pair.peer->send(Bytes(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(sent)));
        const StopwatchSince watch;
        ReadResult read = readOnce(pair.transport, kHeader);
        if (sent >= kHeader) {
            ASSERT_EQ(read.result, 32);
            read = readOnce(pair.transport, 10);
        }
        ASSERT_EQ(read.result, -1) << "after " << sent;
        ASSERT_EQ(read.error, ETIMEDOUT) << "after " << sent;
        ASSERT_EQ(read.bytes, "");
        ASSERT_GE(watch.seconds(), 0.099) << "after " << sent;
        pair.connect();
    }
}

TEST(BufferedSilence, BetweenFramesIsNoError) {
    BufferedPair pair(impatient());
    EXPECT_EQ(readOnce(pair.transport, kHeader).result, -2);
    pair.peer->send(kFrameOfTen);
    EXPECT_EQ(readBodyOfFrame(pair.transport), "00 01 02 03 04 05 06 07 08 09");
    EXPECT_EQ(readOnce(pair.transport, kHeader).result, -2);
}

TEST(BufferedSilence, IsCountedOverSeveralReads) {
    BufferedPair pair(impatient(milliseconds(1'500)));
    pair.peer->send("00 00 00 2A");
    const StopwatchSince watch;
    ReadResult read;
    int reads = 0;
    do {
        read = readOnce(pair.transport, kHeader);
        ++reads;
    } while (read.result == -2 && reads < 5);
    EXPECT_EQ(read.result, -1);
    EXPECT_EQ(read.error, ETIMEDOUT);
    EXPECT_LE(reads, 2);
    EXPECT_GE(watch.seconds(), 1.49);
}

TEST(BufferedSilence, InALargeBodyIsAReadErrorToo) {
    BufferedPair pair(impatient());
    pair.peer->send(hexWord(100'032) + " 00 00 00 20 " + hexText(Bytes(24)));
    pair.peer->send(patternedBytes(60'000));
    EXPECT_EQ(readBodyOfFrame(pair.transport), "body: -1 error " + std::to_string(ETIMEDOUT));
}

TEST(BufferedSilence, IsBrokenByASingleByte) {
    // The whole frame takes twice as long as a silence may.
    BufferedPair pair(impatient(milliseconds(2'000)));
    std::thread trickle([&] {
        for (const unsigned char byte : hex(kFrameOfTen)) {
            pair.peer->send(Bytes{byte});
            std::this_thread::sleep_for(milliseconds(110));
        }
    });
    const StopwatchSince watch;
    EXPECT_EQ(readBodyOfFrame(pair.transport), "00 01 02 03 04 05 06 07 08 09");
    EXPECT_GT(watch.seconds(), 4.0);
    trickle.join();
}

TEST(BufferedSilence, DoesNotCountTheTimeThatTheReaderSpendsElsewhere) {
    BufferedPair pair(impatient(milliseconds(1'200)));
    const Bytes frame = hex(kFrameOfTen);
    pair.peer->send(Bytes(frame.begin(), frame.begin() + kHeader));
    EXPECT_EQ(readOnce(pair.transport, kHeader).result, 32);
    std::this_thread::sleep_for(milliseconds(1'500));
    std::thread late([&] {
        std::this_thread::sleep_for(milliseconds(100));
        pair.peer->send(Bytes(frame.begin() + kHeader, frame.end()));
    });
    EXPECT_EQ(readOnce(pair.transport, 10).bytes, "00 01 02 03 04 05 06 07 08 09");
    late.join();
}

TEST(BufferedSilence, OfAnEarlierConnectionDoesNotCount) {
    BufferedPair pair(impatient(milliseconds(1'700)));
    pair.peer->send("00 00 00 2A");
    EXPECT_EQ(readOnce(pair.transport, kHeader).result, -2);
    pair.connect();
    pair.peer->send("00 00 00 2A");
    EXPECT_EQ(readOnce(pair.transport, kHeader).result, -2);
}

TEST(BufferedSilence, InABodyThatWasNeverReadEndsWithItsConnection) {
    BufferedPair pair(impatient());
    pair.peer->send(kFrameOfTen);
    EXPECT_EQ(readOnce(pair.transport, kHeader).result, 32);
    pair.connect();
    EXPECT_EQ(readOnce(pair.transport, kHeader).result, -2) << "nothing has begun on this one";
}

TEST(BufferedSilence, OfZeroAllowsNoGapButDeliversWhatIsThere) {
    BufferedPair pair(impatient(milliseconds(0)));
    pair.peer->send(kFrameOfTen);
    EXPECT_EQ(readBodyOfFrame(pair.transport), "00 01 02 03 04 05 06 07 08 09");
    pair.peer->send("00 00");
    EXPECT_EQ(readOnce(pair.transport, kHeader).error, ETIMEDOUT);
}

}  // namespace
}  // namespace com_tesk::test
