#include <cmath>
#include <ctime>
#include <set>

#include "host/FrameReader.h"
#include "host/OutputQueue.h"
#include "host/Registrations.h"
#include "host/Requests.h"
#include "tests/host/HostTest.h"

namespace com_tesk::host_test {
namespace {

using host::Frame;
using host::FrameReader;
using host::IdSource;
using host::OutputQueue;
using host::Registrations;

TEST(HostValue, KeepsItsBitsAndItsKind) {
    const HostValue integer = HostValue::integer(-2);
    EXPECT_TRUE(integer.isInteger());
    EXPECT_EQ(integer.bits(), 0xFFFFFFFEU);
    EXPECT_EQ(integer.asInteger(), -2);
    EXPECT_FALSE(HostValue::real(1.0F).isInteger());
    EXPECT_EQ(HostValue::real(1.0F).bits(), 0x3F800000U);
    EXPECT_FLOAT_EQ(HostValue::fromBits(0x40490FDB, false).asReal(), 3.1415927F);
    EXPECT_NE(HostValue::integer(0), HostValue::real(0.0F));
    EXPECT_NE(HostValue::real(0.0F), HostValue::real(-0.0F));
    EXPECT_EQ(HostValue::real(NAN), HostValue::real(NAN));
}

TEST(HostValue, PrintsAsAStreamDoes) {
    EXPECT_EQ(HostValue::real(12.5F).text(), "12.5");
    EXPECT_EQ(HostValue::real(1e10F).text(), "1e+10");
    EXPECT_EQ(HostValue::integer(-2147483647 - 1).text(), "-2147483648");
}

TEST(HostValue, IsReadFromText) {
    EXPECT_EQ(HostValue::fromText("1.5"), HostValue::real(1.5F));
    EXPECT_EQ(HostValue::fromText("-3"), HostValue::real(-3.0F));
    EXPECT_EQ(HostValue::fromText("1e3"), HostValue::real(1000.0F));
    EXPECT_EQ(HostValue::fromText("i:3"), HostValue::integer(3));
    EXPECT_EQ(HostValue::fromText("i:-2147483648"), HostValue::integer(-2147483647 - 1));
    EXPECT_EQ(HostValue::fromText("i:2147483647"), HostValue::integer(2147483647));
    for (const char* text : {"", "i:", "abc", "1.5x", " 1", "i:1.5", "i:2147483648", "1e99", "x:1"}) {
        EXPECT_FALSE(HostValue::fromText(text).has_value()) << text;
    }
}

HostEvent published(const std::string& name, HostValue value) {
    HostEvent event;
    event.kind = HostEvent::Kind::PUBLISHED;
    event.client = 2;
    event.name = name;
    event.id = 4;
    event.value = value;
    return event;
}

TEST(HostEvent, IsDescribedInOneLine) {
    HostEvent listening;
    listening.text = "127.0.0.1:55580";
    EXPECT_EQ(describe(listening), "host listening on 127.0.0.1:55580");
    EXPECT_EQ(describe(published("ALT", HostValue::real(12.5F))), "client 2 published ALT = 12.5 (float, output id 4)");
    const std::pair<const char*, const char*> names[] = {{"GEAR", "GEAR"},
                                                         {"A\nB\x1B\xFF", "\"A\\x0AB\\x1B\\xFF\""},
                                                         {"A B", "\"A B\""},
                                                         {"A\"\\", "\"A\\x22\\x5C\""},
                                                         {"", "\"\""}};
    for (const auto& [name, printed] : names) {
        EXPECT_EQ(describe(published(name, HostValue::integer(-3))),
                  std::string("client 2 published ") + printed + " = -3 (integer, output id 4)");
    }
}

TEST(HostEvent, LineBeginsWithTheLocalTimeToTheMillisecond) {
    std::tm local{};
    local.tm_year = 126;
    local.tm_mon = 6;
    local.tm_mday = 1;
    local.tm_hour = 12;
    local.tm_isdst = -1;
    HostEvent event;
    event.kind = HostEvent::Kind::STOPPED;
    event.time = std::chrono::system_clock::from_time_t(std::mktime(&local)) + std::chrono::milliseconds(7);
    EXPECT_EQ(lineOf(event), "2026-07-01T12:00:00.007 host stopped");
}

TEST(IdSource, SkipsZeroAndTheIdOfUnconfirmedNames) {
    IdSource ids;
    EXPECT_EQ(ids.next(), 1U);
    EXPECT_EQ(ids.next(), 2U);
    IdSource beforeUnconfirmed(0xFFFFD);
    EXPECT_EQ(beforeUnconfirmed.next(), 0xFFFFEU);
    EXPECT_EQ(beforeUnconfirmed.next(), 0x100000U);
    IdSource beforeZero(0xFFFFFFFE);
    EXPECT_EQ(beforeZero.next(), 0xFFFFFFFFU);
    EXPECT_EQ(beforeZero.next(), 1U);
}

TEST(Registrations, RegisteringAgainKeepsTheIdAndChangesTheType) {
    IdSource ids;
    Registrations outputs;
    const std::uint32_t id = outputs.add("A", false, ids).id;
    outputs.add("B", false, ids);
    EXPECT_EQ(outputs.add("A", true, ids).id, id);
    EXPECT_TRUE(outputs.byId(id)->isInteger);
    EXPECT_EQ(outputs.all().size(), 2U);
}

TEST(Registrations, ARemovedNameGetsANewIdNextTime) {
    IdSource ids;
    Registrations outputs;
    const std::uint32_t id = outputs.add("A", true, ids).id;
    EXPECT_EQ(outputs.remove(id)->name, "A");
    EXPECT_EQ(outputs.byId(id), nullptr);
    EXPECT_EQ(outputs.byName("A"), nullptr);
    EXPECT_FALSE(outputs.remove(id).has_value());
    EXPECT_NE(outputs.add("A", true, ids).id, id);
}

TEST(OutputQueue, AcceptsFramesUpToItsBoundInTheirOrder) {
    OutputQueue queue(100);
    EXPECT_TRUE(queue.push(Bytes(60, 1)));
    EXPECT_TRUE(queue.push(Bytes(39, 2)));
    EXPECT_TRUE(queue.push(Bytes(1, 3)));
    EXPECT_FALSE(queue.push(Bytes(1, 4)));
    EXPECT_EQ(queue.bytes(), 100U);
    EXPECT_EQ(queue.front(), Bytes(60, 1));
    queue.pop();
    EXPECT_EQ(queue.front(), Bytes(39, 2));
    EXPECT_EQ(queue.bytes(), 40U);
    queue.pop();
    EXPECT_EQ(queue.front(), Bytes(1, 3));
    queue.pop();
    EXPECT_TRUE(queue.empty());
}

TEST(OutputQueue, AcceptsAFrameAboveItsBoundOnlyWhenEmpty) {
    OutputQueue queue(100);
    EXPECT_TRUE(queue.push(Bytes(1000)));
    EXPECT_FALSE(queue.push(Bytes(1)));
    queue.clear();
    EXPECT_TRUE(queue.empty());
    EXPECT_EQ(queue.bytes(), 0U);
    EXPECT_TRUE(queue.push(Bytes(1)));
    EXPECT_TRUE(queue.push(Bytes(99)));
}

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
    std::vector<std::string> bodies{
        requestBody("03", "00050000 00000000 00000000"),
        requestBody("01", "00050000 00000001 00002EE0 00002EE0 00000000" + hexField("A")),
        requestBody("02", "00050000 00000001 000004B0 00000000" + hexField("A")),
        requestBody("03", "00050000 00000000 00000001 00000007 00000000 3F800000"),
        requestBody("04", "00050000 00000001 00000007"),
        requestBody("05", "00050000 00000001 00000007"),
    };
    for (const char* code : {"01", "02", "04", "05", "06"}) {
        bodies.push_back(requestBody(code, "00050000 00000000"));
    }
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
    };
    for (const auto& [body, reason] : rows) {
        EXPECT_EQ(reasonAgainst(hex(body)), reason);
    }
}

TEST(ParseRequest, RefusesACountThatDoesNotFitItsBody) {
    struct Row {
        const char* code;
        std::string words;  // The count and what follows.
        const char* message;
        unsigned int count;
        const char* rest;
    };
    const Row rows[] = {
        {"01", "00000002 00000000 00000000 00000000" + hexField("A"), "input subscription", 2,
         "44 bytes of records of 44"},
        {"01", "FFFFFFFF", "input subscription", 4294967295U, "0 bytes of records of 44"},
        {"02", "FFFFFFFF", "output registration", 4294967295U, "0 bytes of records of 40"},
        {"02", "00000001 000004B0 00000000 41", "output registration", 1, "9 bytes of records of 40"},
        {"03", "00000000 FFFFFFFF", "publish", 4294967295U, "0 bytes of records of 12"},
        // A record without its value makes the following ones unreadable.
        {"03", "00000000 00000002 00000007 00000000 3F800000 00000008", "publish", 2, "16 bytes of records of 12"},
        {"03", "00000000 00000001 00000007 00000000 3F800000 00000008", "publish", 1, "16 bytes of records of 12"},
        {"04", "00000002 00000007", "input unsubscription", 2, "4 bytes of records of 4"},
        {"04", "00000000 00000007", "input unsubscription", 0, "4 bytes of records of 4"},
        {"04", "FFFFFFFF", "input unsubscription", 4294967295U, "0 bytes of records of 4"},
        {"05", "FFFFFFFF 00000007", "output unregistration", 4294967295U, "4 bytes of records of 4"},
        // 2^30 + 1 records of 4 bytes are 4 bytes modulo 2^32.
        {"05", "40000001 00000007", "output unregistration", 1073741825U, "4 bytes of records of 4"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(
            reasonAgainst(hex(requestBody(row.code, "00050000 " + row.words))),
            std::string(row.message) + ": count " + std::to_string(row.count) + " does not fit its body: " + row.rest);
    }
}

}  // namespace
}  // namespace com_tesk::host_test
