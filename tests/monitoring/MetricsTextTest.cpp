#include "tools/csmqtt/MetricsText.h"

#include <cmath>
#include <limits>

#include "tests/monitoring/Exposition.h"

namespace com_tesk::monitoring_test {
namespace {

using namespace mqtt;
using namespace std::chrono_literals;

ValueSnapshot value(const std::string& name, std::optional<double> number) {
    ValueSnapshot result;
    result.name = name;
    result.value = number;
    result.isCurrent = number.has_value();
    result.age = 1'250ms;
    return result;
}

Snapshot someSnapshot() {
    Snapshot snapshot;
    snapshot.host = HostState::UP;
    snapshot.isBrokerUp = true;
    snapshot.values = {value("altitude", 12.5), value("speed", std::nullopt)};
    return snapshot;
}

TEST(MetricsText, HasTheValuesAndTheirAges) {
    const Exposition text(metricsText(someSnapshot()));
    EXPECT_EQ(text[R"(csmqtt_value{name="altitude"})"], "12.5");
    EXPECT_EQ(text[R"(csmqtt_value_age_seconds{name="altitude"})"], "1.25");
    EXPECT_EQ(text[R"(csmqtt_value{name="speed"})"], std::nullopt);
    EXPECT_EQ(text[R"(csmqtt_value_age_seconds{name="speed"})"], std::nullopt);
    EXPECT_EQ(text["csmqtt_host_up"], "1");
    EXPECT_EQ(text["csmqtt_broker_up"], "1");
}

TEST(MetricsText, ValuesOfAHostThatIsGoneDisappear) {
    for (const HostState state : {HostState::DOWN, HostState::UNKNOWN}) {
        Snapshot snapshot = someSnapshot();
        snapshot.host = state;
        const Exposition text(metricsText(snapshot));
        EXPECT_EQ(text[R"(csmqtt_value{name="altitude"})"], std::nullopt);
        EXPECT_EQ(text[R"(csmqtt_value_age_seconds{name="altitude"})"], std::nullopt);
        EXPECT_EQ(text["csmqtt_host_up"], "0");
    }
}

TEST(MetricsText, AValueOfAnEarlierConnectionIsLeftOut) {
    Snapshot snapshot = someSnapshot();
    snapshot.values[0].isCurrent = false;
    EXPECT_EQ(Exposition(metricsText(snapshot))[R"(csmqtt_value{name="altitude"})"], std::nullopt);
}

TEST(MetricsText, HasEveryCount) {
    Snapshot snapshot;
    Counts& counts = snapshot.counts;
    counts.received = 1;
    counts.published = 2;
    counts.conflated = 3;
    counts.dropped = 4;
    counts.accepted = 5;
    counts.ignoredRetained = 6;
    counts.ignoredUnknown = 7;
    counts.ignoredInvalid = 8;
    counts.ignoredRange = 9;
    counts.brokerConnects = 10;
    counts.brokerFailures = 11;
    counts.hostConnects = std::numeric_limits<std::uint64_t>::max();
    counts.inFlight = 12;
    counts.maxInFlight = 256;
    const Exposition text(metricsText(snapshot));
    EXPECT_EQ(text["csmqtt_received_total"], "1");
    EXPECT_EQ(text["csmqtt_published_total"], "2");
    EXPECT_EQ(text["csmqtt_conflated_total"], "3");
    EXPECT_EQ(text["csmqtt_dropped_total"], "4");
    EXPECT_EQ(text["csmqtt_commands_accepted_total"], "5");
    EXPECT_EQ(text[R"(csmqtt_commands_ignored_total{reason="retained"})"], "6");
    EXPECT_EQ(text[R"(csmqtt_commands_ignored_total{reason="unknown"})"], "7");
    EXPECT_EQ(text[R"(csmqtt_commands_ignored_total{reason="invalid"})"], "8");
    EXPECT_EQ(text[R"(csmqtt_commands_ignored_total{reason="range"})"], "9");
    EXPECT_EQ(text["csmqtt_broker_connects_total"], "10");
    EXPECT_EQ(text["csmqtt_broker_failures_total"], "11");
    EXPECT_EQ(text["csmqtt_host_connects_total"], "18446744073709551615");
    EXPECT_EQ(text["csmqtt_in_flight"], "12");
    EXPECT_EQ(text["csmqtt_in_flight_max"], "256");
    EXPECT_EQ(text["csmqtt_broker_up"], "0");
    EXPECT_EQ(text.size(), 16U);
}

TEST(MetricsText, HasTheCommandsThatWereAccepted) {
    Snapshot snapshot;
    snapshot.commands.resize(2);
    snapshot.commands[0].name = "lamp";
    snapshot.commands[0].value = 1;
    snapshot.commands[1].name = "level";
    const Exposition text(metricsText(snapshot));
    EXPECT_EQ(text[R"(csmqtt_command{name="lamp"})"], "1");
    EXPECT_EQ(text[R"(csmqtt_command{name="level"})"], std::nullopt);
}

TEST(MetricsText, AnyNameIsALabelOfItsOwn) {
    Snapshot snapshot = someSnapshot();
    snapshot.values.clear();
    for (const char* const name :
         {"a b", "a%20b", "\xFF", "%FF", "\"", "\\", "a\nb", "\\n", "\xC3\xA9", "{x=\"1\"} 2"}) {
        snapshot.values.push_back(value(name, 1));
    }
    const std::size_t without = Exposition(metricsText(Snapshot())).size();
    EXPECT_EQ(Exposition(metricsText(snapshot)).size(), without + 2 * snapshot.values.size());
}

TEST(MetricsText, EscapesLabels) {
    EXPECT_EQ(escapedLabel("a\"b\\c\nd\\n"), R"(a\"b\\c\nd\\n)");
    EXPECT_EQ(escapedLabel(""), "");
}

TEST(MetricsText, WritesNumbersAsTheFormatHasThem) {
    EXPECT_EQ(metricsNumber(std::nan("")), "NaN");
    EXPECT_EQ(metricsNumber(-std::nan("")), "NaN");
    EXPECT_EQ(metricsNumber(INFINITY), "+Inf");
    EXPECT_EQ(metricsNumber(-INFINITY), "-Inf");
    EXPECT_EQ(metricsNumber(-0.0), "-0");
    EXPECT_EQ(metricsNumber(static_cast<double>(12.1F)), "12.1");
    EXPECT_EQ(metricsNumber(12.1), "12.1");
    EXPECT_EQ(metricsNumber(2147483647), "2147483647");
    EXPECT_EQ(std::stod(metricsNumber(-2147483648.0)), -2147483648.0);
    EXPECT_EQ(metricsNumber(1e300), "1e+300");
    EXPECT_EQ(metricsNumber(1e-300), "1e-300");
    for (const double number : {1e300, 3.4e38, 1e-45, 16777217.0, 0.1, -1.5e-7, 123456789.0}) {
        Snapshot snapshot = someSnapshot();
        snapshot.values[0].value = number;
        EXPECT_EQ(std::stod(*Exposition(metricsText(snapshot))[R"(csmqtt_value{name="altitude"})"]), number);
    }
}

}  // namespace
}  // namespace com_tesk::monitoring_test
