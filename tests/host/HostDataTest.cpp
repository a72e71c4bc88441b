#include <cmath>
#include <ctime>

#include "host/OutputQueue.h"
#include "host/Registrations.h"
#include "tests/host/HostTest.h"

namespace com_tesk::host_test {
namespace {

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

}  // namespace
}  // namespace com_tesk::host_test
