#include <algorithm>
#include <set>

#include "host/FrameReader.h"
#include "host/Requests.h"
#include "tests/host/HostTest.h"

namespace com_tesk::host_test {
namespace {

using host::Frame;
using host::FrameReader;

const char* const kRestOfHeader = "00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF";

/// Returns kinds and bodies, such as "0: 0A 0B, 3: ".
std::string textOf(const std::vector<Frame>& frames) {
    std::string all;
    for (const Frame& one : frames) {
        all += (all.empty() ? "" : ", ") + std::to_string(one.kind) + ": " + hexText(one.body);
    }
    return all;
}

std::vector<Frame> feed(FrameReader& reader, const std::string& text) {
    const Bytes bytes = hex(text);
    return reader.feed(bytes.data(), bytes.size());
}

TEST(FrameReader, ReturnsTheSameFramesAtEverySplit) {
    const Bytes stream =
        hex("00000023 00000020 00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF 0A0B0C"
            "00000021 00000020 00000003 00000002 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFE 77"
            "00000020 00000020 00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF");
    const std::set<std::size_t> frameEnds{0, 35, 68, 100};
    for (std::size_t split = 0; split <= stream.size(); ++split) {
        SCOPED_TRACE(split);
        FrameReader reader;
        std::vector<Frame> frames = reader.feed(stream.data(), split);
        EXPECT_EQ(reader.inMidFrame(), frameEnds.count(split) == 0);
        EXPECT_EQ(frames.size() + 1,
                  static_cast<std::size_t>(std::distance(frameEnds.begin(), frameEnds.upper_bound(split))));
        const std::vector<Frame> others = reader.feed(stream.data() + split, stream.size() - split);
        frames.insert(frames.end(), others.begin(), others.end());
        EXPECT_EQ(textOf(frames), "0: 0A 0B 0C, 3: 77, 0: ");
        EXPECT_EQ(reader.error(), "");
    }
}

TEST(FrameReader, ReadsNothingAfterABadHeader) {
    const std::pair<const char*, const char*> rows[] = {
        {"00000000 00000020", "frame length 0 is less than its header"},
        {"0000001F 00000020", "frame length 31 is less than its header"},
        {"01000001 00000020", "frame length 16777217 is more than 16 MiB"},
        {"80000000 00000020", "frame length 2147483648 is more than 16 MiB"},
        {"FFFFFFFF 00000020", "frame length 4294967295 is more than 16 MiB"},
        {"00000024 00000000", "header length is 0, not 32"},
        {"00000024 0000001F", "header length is 31, not 32"},
        {"00000024 00000021", "header length is 33, not 32"},
        {"00000024 20000000", "header length is 536870912, not 32"},
    };
    for (const auto& [lengths, error] : rows) {
        FrameReader reader;
        const std::string header = std::string(lengths) + kRestOfHeader;
        EXPECT_EQ(textOf(feed(reader, frame("01") + header.substr(0, header.size() - 2))), "0: 01") << lengths;
        EXPECT_EQ(reader.error(), "");
        EXPECT_TRUE(feed(reader, header.substr(header.size() - 2) + frame("02")).empty()) << lengths;
        EXPECT_EQ(reader.error(), error);
        EXPECT_TRUE(feed(reader, frame("03")).empty()) << lengths;
    }
}

TEST(FrameReader, AcceptsSixteenMebibytesAndReservesNoMore) {
    FrameReader reader;
    feed(reader, std::string("01000000 00000020") + kRestOfHeader);
    const Bytes piece(65536, 0);
    std::vector<Frame> frames;
    for (std::size_t left = 16777216 - 32; left > 0; left -= std::min(left, piece.size())) {
        ASSERT_TRUE(frames.empty());
        frames = reader.feed(piece.data(), std::min(left, piece.size()));
    }
    ASSERT_EQ(frames.size(), 1U);
    EXPECT_EQ(frames[0].body.size(), 16777216U - 32);
    EXPECT_EQ(frames[0].body.capacity(), 16777216U - 32);
}

/// Returns why the body is no request, or "".
std::string reasonAgainst(const Bytes& body) {
    const host::Request request = host::parseRequest(body);
    const auto* const bad = std::get_if<host::BadRequest>(&request);
    return bad == nullptr ? "" : bad->why;
}

TEST(ParseRequest, AcceptsNoRecordsAndRefusesEveryPrefix) {
    const std::string bodies[] = {
        requestBody("01", "00050000 00000000"),
        requestBody("02", "00050000 00000000"),
        requestBody("03", "00050000 00000000 00000000"),
        requestBody("04", "00050000 00000000"),
        requestBody("05", "00050000 00000000"),
        requestBody("06", "00050000 00000000"),
        requestBody("01", "00050000 00000001 00002EE0 00002EE0 00000000" + hexField("A")),
        requestBody("02", "00050000 00000001 000004B0 00000000" + hexField("A")),
        requestBody("03", "00050000 00000000 00000001 00000007 00000000 3F800000"),
        requestBody("04", "00050000 00000001 00000007"),
        requestBody("05", "00050000 00000001 00000007"),
    };
    for (const std::string& body : bodies) {
        const Bytes whole = hex(body);
        ASSERT_EQ(reasonAgainst(whole), "") << body;
        for (std::size_t size = 0; size < whole.size(); ++size) {
            Bytes prefix(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_NE(reasonAgainst(prefix), "") << hexText(prefix);
            if (size > 7) {
                prefix[7] = static_cast<std::uint8_t>(size);  // The sub-header then states the length of the prefix.
                EXPECT_NE(reasonAgainst(prefix), "") << hexText(prefix);
            }
        }
    }
}

TEST(ParseRequest, RefusesAMalformedBodyAndSaysWhy) {
    const std::pair<std::string, const char*> rows[] = {
        {"", "body of 0 bytes is too short for a request"},
        {"04", "body of 1 bytes is too short for a request"},
        {"04027FFF 0000000B 007F00", "body of 11 bytes is too short for a request"},
        {"05027FFF 00000014 007F0006 00050000 00000000", "protocol bytes 0x05 0x02 are not 0x04 0x02"},
        {"04037FFF 00000014 007F0006 00050000 00000000", "protocol bytes 0x04 0x03 are not 0x04 0x02"},
        {"04027FFF 00000000 007F0006 00050000 00000000", "sub-header states a body of 0 bytes, it has 20"},
        {"04027FFF 00000013 007F0006 00050000 00000000", "sub-header states a body of 19 bytes, it has 20"},
        {"04027FFF 00000015 007F0006 00050000 00000000", "sub-header states a body of 21 bytes, it has 20"},
        {requestBody("00", "00050000 00000000"), "unknown message code 0x0000"},
        {requestBody("07", "00050000 00000000"), "unknown message code 0x0007"},
        {"04027FFF 00000014 007F0106 00050000 00000000", "unknown message code 0x0106"},
        {requestBody("06", ""), "version request of 12 bytes, not 20"},
        {requestBody("06", "00050000"), "version request of 16 bytes, not 20"},
        {requestBody("06", "00050000 00000000 00000000"), "version request of 24 bytes, not 20"},
        {requestBody("01", "00050000"), "input subscription: body of 16 bytes is too short for its count"},
        {requestBody("03", "00050000 00000000"), "publish: body of 20 bytes is too short for its count"},
        {requestBody("01", "00050000 00000002 00000000 00000000 00000000" + hexField("A")),
         "input subscription: count 2 does not fit its body: 44 bytes of records of 44"},
        {requestBody("01", "00050000 FFFFFFFF"),
         "input subscription: count 4294967295 does not fit its body: 0 bytes of records of 44"},
        {requestBody("02", "00050000 FFFFFFFF"),
         "output registration: count 4294967295 does not fit its body: 0 bytes of records of 40"},
        {requestBody("02", "00050000 00000001 000004B0 00000000 41"),
         "output registration: count 1 does not fit its body: 9 bytes of records of 40"},
        {requestBody("03", "00050000 00000000 FFFFFFFF"),
         "publish: count 4294967295 does not fit its body: 0 bytes of records of 12"},
        // A record without its value makes the following ones unreadable.
        {requestBody("03", "00050000 00000000 00000002 00000007 00000000 3F800000 00000008"),
         "publish: count 2 does not fit its body: 16 bytes of records of 12"},
        {requestBody("03", "00050000 00000000 00000001 00000007 00000000 3F800000 00000008"),
         "publish: count 1 does not fit its body: 16 bytes of records of 12"},
        {requestBody("04", "00050000 00000002 00000007"),
         "input unsubscription: count 2 does not fit its body: 4 bytes of records of 4"},
        {requestBody("04", "00050000 00000000 00000007"),
         "input unsubscription: count 0 does not fit its body: 4 bytes of records of 4"},
        {requestBody("04", "00050000 FFFFFFFF"),
         "input unsubscription: count 4294967295 does not fit its body: 0 bytes of records of 4"},
        {requestBody("05", "00050000 FFFFFFFF 00000007"),
         "output unregistration: count 4294967295 does not fit its body: 4 bytes of records of 4"},
        // 2^30 + 1 records of 4 bytes are 4 bytes modulo 2^32.
        {requestBody("05", "00050000 40000001 00000007"),
         "output unregistration: count 1073741825 does not fit its body: 4 bytes of records of 4"},
    };
    for (const auto& [body, reason] : rows) {
        EXPECT_EQ(reasonAgainst(hex(body)), reason);
    }
}

}  // namespace
}  // namespace com_tesk::host_test
