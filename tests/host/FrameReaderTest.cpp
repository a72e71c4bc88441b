#include "host/FrameReader.h"

#include <gtest/gtest.h>

#include "tests/host/RawBytes.h"

namespace com_tesk::host {
namespace {

using host_test::hex;
using host_test::joined;
using host_test::zeros;

const Bytes kRestOfHeader = hex("00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF");

Bytes headerOf(const char* frameLengthAndHeaderLength) {
    return joined({hex(frameLengthAndHeaderLength), kRestOfHeader});
}

std::vector<Frame> feed(FrameReader& reader, const Bytes& bytes) {
    return reader.feed(bytes.data(), bytes.size());
}

TEST(FrameReader, GivesTheBodyBehindTheHeader) {
    FrameReader reader;
    const auto frames = feed(reader, joined({headerOf("00000023 00000020"), hex("0A 0B 0C")}));
    ASSERT_EQ(frames.size(), 1U);
    EXPECT_EQ(frames[0].body, hex("0A 0B 0C"));
    EXPECT_EQ(frames[0].kind, 0U);
    EXPECT_FALSE(reader.inMidFrame());
}

TEST(FrameReader, GivesTheKindAsItCame) {
    FrameReader reader;
    const auto frames = feed(reader, hex("00000021 00000020 00000003 00000002"
                                         "FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFE 77"));
    ASSERT_EQ(frames.size(), 1U);
    EXPECT_EQ(frames[0].kind, 3U);
}

TEST(FrameReader, AFrameOfExactlyItsHeaderHasAnEmptyBody) {
    FrameReader reader;
    const auto frames = feed(reader, headerOf("00000020 00000020"));
    ASSERT_EQ(frames.size(), 1U);
    EXPECT_TRUE(frames[0].body.empty());
    EXPECT_TRUE(reader.error().empty());
}

TEST(FrameReader, GivesAllFramesOfOnePiece) {
    FrameReader reader;
    const Bytes one = joined({headerOf("00000021 00000020"), hex("01")});
    const Bytes two = joined({headerOf("00000022 00000020"), hex("02 02")});
    const auto frames = feed(reader, joined({one, two, one}));
    ASSERT_EQ(frames.size(), 3U);
    EXPECT_EQ(frames[0].body, hex("01"));
    EXPECT_EQ(frames[1].body, hex("02 02"));
    EXPECT_EQ(frames[2].body, hex("01"));
}

TEST(FrameReader, GivesTheSameFramesAtEverySplit) {
    const Bytes one = joined({headerOf("00000023 00000020"), hex("01 02 03")});
    const Bytes two = joined({headerOf("00000021 00000020"), hex("04")});
    const Bytes stream = joined({one, two});
    for (std::size_t split = 0; split <= stream.size(); ++split) {
        FrameReader reader;
        auto frames = reader.feed(stream.data(), split);
        EXPECT_EQ(reader.inMidFrame(), split != 0 && split != one.size() && split != stream.size()) << split;
        for (Frame& frame : reader.feed(stream.data() + split, stream.size() - split)) {
            frames.push_back(std::move(frame));
        }
        ASSERT_EQ(frames.size(), 2U) << split;
        EXPECT_EQ(frames[0].body, hex("01 02 03")) << split;
        EXPECT_EQ(frames[1].body, hex("04")) << split;
    }
}

TEST(FrameReader, GivesTheSameFramesByteByByte) {
    const Bytes stream = joined({headerOf("00000023 00000020"), hex("01 02 03")});
    FrameReader reader;
    for (std::size_t i = 0; i + 1 < stream.size(); ++i) {
        EXPECT_TRUE(reader.feed(&stream[i], 1).empty()) << i;
    }
    const auto frames = reader.feed(&stream.back(), 1);
    ASSERT_EQ(frames.size(), 1U);
    EXPECT_EQ(frames[0].body, hex("01 02 03"));
}

struct BadHeader {
    const char* words;
    const char* error;
};

class FrameReaderBadHeader : public testing::TestWithParam<BadHeader> {};

TEST_P(FrameReaderBadHeader, LosesTheStreamAndTakesNothingMore) {
    FrameReader reader;
    const Bytes good = joined({headerOf("00000021 00000020"), hex("01")});
    EXPECT_EQ(feed(reader, joined({good, headerOf(GetParam().words), good})).size(), 1U);
    EXPECT_EQ(reader.error(), GetParam().error);
    EXPECT_TRUE(feed(reader, good).empty());
}

INSTANTIATE_TEST_SUITE_P(Limits, FrameReaderBadHeader,
                         testing::Values(BadHeader{"00000000 00000020", "frame length 0 is less than its header"},
                                         BadHeader{"0000001F 00000020", "frame length 31 is less than its header"},
                                         BadHeader{"01000001 00000020", "frame length 16777217 is more than 16 MiB"},
                                         BadHeader{"80000000 00000020", "frame length 2147483648 is more than 16 MiB"},
                                         BadHeader{"FFFFFFFF 00000020", "frame length 4294967295 is more than 16 MiB"},
                                         BadHeader{"00000024 0000001F", "header length is 31, not 32"},
                                         BadHeader{"00000024 00000021", "header length is 33, not 32"},
                                         BadHeader{"00000024 20000000", "header length is 536870912, not 32"}));

TEST(FrameReader, SaysNothingAboutAHeaderBeforeItIsWhole) {
    FrameReader reader;
    const Bytes header = headerOf("FFFFFFFF 00000020");
    reader.feed(header.data(), 31);
    EXPECT_TRUE(reader.error().empty());
    reader.feed(header.data() + 31, 1);
    EXPECT_FALSE(reader.error().empty());
}

TEST(FrameReader, TakesAFrameOfExactlySixteenMebibytesInNoMoreRoomThanAnnounced) {
    FrameReader reader;
    feed(reader, headerOf("01000000 00000020"));
    const Bytes piece = zeros(65536);
    std::size_t left = 16777216 - 32;
    std::vector<Frame> frames;
    while (left > 0) {
        ASSERT_TRUE(frames.empty());
        const std::size_t size = std::min(left, piece.size());
        frames = reader.feed(piece.data(), size);
        left -= size;
    }
    ASSERT_EQ(frames.size(), 1U);
    EXPECT_EQ(frames[0].body.size(), 16777216U - 32);
    EXPECT_EQ(frames[0].body.capacity(), 16777216U - 32);
}

}  // namespace
}  // namespace com_tesk::host
