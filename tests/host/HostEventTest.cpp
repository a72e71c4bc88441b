#include "host/HostEvent.h"

#include <gtest/gtest.h>

#include <ctime>

namespace com_tesk::host_test {
namespace {

HostEvent published(const std::string& name, HostValue value) {
    HostEvent event;
    event.kind = HostEvent::Kind::PUBLISHED;
    event.client = 2;
    event.name = name;
    event.id = 4;
    event.value = value;
    return event;
}

TEST(DescribeEvent, SaysWhoAndWhatWithNameAndValue) {
    EXPECT_EQ(describe(published("ALT", HostValue::real(12.5F))), "client 2 published ALT = 12.5 (float, output id 4)");
    EXPECT_EQ(describe(published("GEAR", HostValue::integer(-3))),
              "client 2 published GEAR = -3 (integer, output id 4)");
}

TEST(DescribeEvent, ClientNumberZeroIsTheHostItself) {
    HostEvent event;
    event.kind = HostEvent::Kind::LISTENING;
    event.text = "127.0.0.1:55580";
    EXPECT_EQ(describe(event), "host listening on 127.0.0.1:55580");
}

TEST(DescribeEvent, ANameCannotBreakItsLine) {
    EXPECT_EQ(describe(published("A\nB\x1B\xFF", HostValue::integer(1))),
              "client 2 published \"A\\x0AB\\x1B\\xFF\" = 1 (integer, output id 4)");
    EXPECT_EQ(describe(published("A B", HostValue::integer(1))),
              "client 2 published \"A B\" = 1 (integer, output id 4)");
    EXPECT_EQ(describe(published("A\"\\", HostValue::integer(1))),
              "client 2 published \"A\\x22\\x5C\" = 1 (integer, output id 4)");
    EXPECT_EQ(describe(published("", HostValue::integer(1))), "client 2 published \"\" = 1 (integer, output id 4)");
}

TEST(LineOfEvent, BeginsWithTheLocalTimeToTheMillisecond) {
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

}  // namespace
}  // namespace com_tesk::host_test
