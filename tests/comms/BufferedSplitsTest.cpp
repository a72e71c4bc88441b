#include <algorithm>
#include <random>

#include "tests/comms/SystemCalls.h"
#include "tests/comms/Transports.h"
#include "tests/support/Seed.h"
#include "tests/support/TestSize.h"

namespace com_tesk::test {
namespace {

using Strings = std::vector<std::string>;
using Ends = std::vector<std::size_t>;

/// Delivers a stream in given pieces: each call to receive finds one piece, and nothing of the next.
class BufferedSplits : public testing::Test {
  protected:
    /// Returns the bodies that the reader reads when the stream arrives in pieces that end at `ends`.
    Strings bodiesOf(std::size_t frames, const Bytes& stream, const Ends& ends) {
        std::size_t sent = 0;
        std::size_t next = 0;
        SystemCalls calls;
        calls.before("recv", [&] {
            pollfd waiting{pair.transport.descriptor(), POLLIN, 0};
            if (poll(&waiting, 1, 0) > 0 || sent == stream.size()) {
                return;
            }
            const std::size_t end = next < ends.size() ? ends[next] : stream.size();
            ++next;
            pair.peer->send(slice(stream, sent, end));
            sent = end;
            poll(&waiting, 1, 10'000);
        });
        Strings bodies;
        for (std::size_t i = 0; i < frames; ++i) {
            bodies.push_back(readBodyOfFrame(pair.transport));
        }
        return bodies;
    }

    BufferedPair pair;
};

Bytes streamOf(const Strings& bodies) {
    Bytes stream;
    for (const std::string& body : bodies) {
        append(stream, hex(hexFrame(body)));
    }
    return stream;
}

/// The messages of a host in a short session: its version, a confirmed input, a confirmed output, two updates.
Strings sessionBodies() {
    const std::string head = "04 02 7F FF 00 00 00 ";
    return {
        head + "2C 00 7F 01 06 00 01 00 00 00 00 00 01 " + hexField("4.4.1", 24),
        head + "48 00 7F 01 01 00 01 00 00 00 00 00 01 00 00 00 07 00 00 00 00 00 00 00 00 00 00 00 00 3F C0 00 00 " +
            hexField("SPEED"),
        head + "44 00 7F 01 02 00 01 00 00 00 00 00 01 00 00 00 09 00 00 04 B0 00 00 00 00 00 00 00 00 " +
            hexField("RUDDER"),
        head + "1C 00 7F 01 03 00 01 00 00 00 00 00 01 00 00 00 07 3F C0 00 00",
        head + "1C 00 7F 01 03 00 01 00 00 00 00 00 01 00 00 00 07 40 20 00 00",
    };
}

TEST_F(BufferedSplits, EverySplitPointOfASessionIsInvisible) {
    const Strings bodies = sessionBodies();
    const Bytes stream = streamOf(bodies);
    Ends everyByte;
    for (std::size_t split = 1; split < stream.size(); ++split) {
        ASSERT_EQ(bodiesOf(bodies.size(), stream, {split}), bodies) << "split at " << split;
        everyByte.push_back(split);
    }
    EXPECT_EQ(bodiesOf(bodies.size(), stream, everyByte), bodies) << "byte by byte";
    EXPECT_EQ(bodiesOf(bodies.size(), stream, {}), bodies) << "all together";
}

TEST_F(BufferedSplits, EveryPairOfSplitPointsOfShortStreamsIsInvisible) {
    std::vector<Strings> streams{{"0A", "01 02 03 04 05 06 07 08 09 0A"}};
    for (const std::string& body : sessionBodies()) {
        streams.push_back({body});
    }
    std::size_t step = 1;
    for (const Strings& bodies : streams) {
        const Bytes stream = streamOf(bodies);
        for (std::size_t first = 1; first < stream.size(); first += step) {
            for (std::size_t second = first + 1; second < stream.size(); ++second) {
                ASSERT_EQ(bodiesOf(bodies.size(), stream, {first, second}), bodies) << first << " and " << second;
            }
        }
        step = sized<std::size_t>(3, 1);  // For the messages of the session.
    }
}

TEST_F(BufferedSplits, RandomPiecesOfRandomFramesAreInvisible) {
    std::mt19937_64 random(newSeed());
    // From one byte to 2^max, small ones more often.
    const auto randomLength = [&random](unsigned int max) {
        return 1 + static_cast<std::size_t>(random()) % (std::size_t{1} << (1 + random() % max));
    };
    const int rounds = sized(60, 2'000);
    for (int round = 0; round < rounds; ++round) {
        Strings bodies;
        Bytes stream;
        for (std::size_t i = 0; i < 8; ++i) {
            // Up to twice the read-ahead.
            const Bytes body = patternedBytes(randomLength(15), static_cast<std::uint32_t>(random()));
            bodies.push_back(hexText(body));
            append(stream, frameOf(body));
        }
        Ends ends;
        for (std::size_t end = 0; end < stream.size();) {
            end = std::min(stream.size(), end + randomLength(14));
            ends.push_back(end);
        }
        ASSERT_TRUE(bodiesOf(bodies.size(), stream, ends) == bodies) << "round " << round;
    }
}

/// Bodies around the sizes at which the transport changes its way of reading.
class BufferedSizes : public BufferedSplits, public testing::WithParamInterface<std::size_t> {};

TEST_P(BufferedSizes, OneLessAndOneMoreAreDeliveredExactlyHoweverTheyAreSplit) {
    for (const std::size_t size : {GetParam() - 1, GetParam(), GetParam() + 1}) {
        const Bytes large = patternedBytes(size);
        const Bytes small = patternedBytes(5, 77);
        Bytes stream = frameOf(large);
        const std::size_t end = stream.size();
        append(stream, frameOf(small));
        const Strings expected{hexText(large), hexText(small)};
        const std::vector<Ends> cuts{{},    {1},       {31},       {32},       {33},      {end - 1},
                                     {end}, {end + 1}, {end + 31}, {end + 32}, {32, end}, {end / 2, end + 5}};
        for (const Ends& cut : cuts) {
            ASSERT_TRUE(bodiesOf(2, stream, cut) == expected) << size << " cut at " << (cut.empty() ? 0 : cut[0]);
        }
    }
}

constexpr std::size_t kReadAhead = 16U << 10U;
INSTANTIATE_TEST_SUITE_P(Around, BufferedSizes,
                         testing::Values(2, 32, 64, kReadAhead - 64, kReadAhead - 32, kReadAhead, kReadAhead + 32,
                                         2 * kReadAhead, 64U << 10U, (64U << 10U) + kReadAhead - 32, 128U << 10U),
                         [](const testing::TestParamInfo<std::size_t>& size) {
                             return "Bytes" + std::to_string(size.param);
                         });

TEST(BufferedReadAhead, OfAnySizeDeliversExactly) {
    for (const std::size_t readAhead : {0U, 1U, 31U, 32U, 33U, 64U, 1'000U, 1U << 20U}) {
        Bounds bounds;
        bounds.readAhead = readAhead;
        BufferedPair pair(bounds);
        for (const std::size_t size : {1U, 31U, 32U, 33U, 63U, 64U, 65U, 999U, 1'000U, 1'001U, 20'000U}) {
            const Bytes body = patternedBytes(size);
            pair.peer->send(frameOf(body));
            pair.peer->send(hexFrame("0A"));
            ASSERT_TRUE(readBodyOfFrame(pair.transport) == hexText(body)) << readAhead << ", " << size;
            ASSERT_EQ(readBodyOfFrame(pair.transport), "0A") << readAhead << ", " << size;
        }
    }
}

}  // namespace
}  // namespace com_tesk::test
