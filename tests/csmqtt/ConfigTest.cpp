#include <gtest/gtest.h>

#include <utility>

#include "tools/csmqtt/CheckReport.h"
#include "tools/csmqtt/ConfigReader.h"

namespace com_tesk::mqtt {

namespace {

constexpr const char* kMinimum = "host: h\nbroker: b\nbase: t\n";

/// Returns the flaws as "LINE: text" lines.
std::string flawsOf(const std::string& text) {
    std::vector<scenario::Flaw> flaws;
    readConfig(text, "/nonexistent", flaws);
    std::string all;
    for (const scenario::Flaw& flaw : flaws) {
        all += std::to_string(flaw.line) + ": " + flaw.text + '\n';
    }
    return all;
}

Config validConfig(const std::string& text) {
    std::vector<scenario::Flaw> flaws;
    Config config = readConfig(text, "/nonexistent", flaws);
    EXPECT_EQ(flawsOf(text), "");
    return config;
}

}  // namespace

TEST(Config, HasDefaultsForWhatIsNotSaid) {
    const Config config = validConfig(std::string(kMinimum) + "to_mqtt: [a]\nfrom_mqtt: [b]\n");
    EXPECT_EQ(config.host.text(), "h:55580");
    EXPECT_EQ(config.broker.address.text(), "b:1883");
    EXPECT_EQ(config.broker.clientId, "csmqtt-t");
    EXPECT_EQ(config.broker.protocol, ProtocolVersion::MQTT_5);
    EXPECT_EQ(config.stale, StalePolicy::KEEP);
    EXPECT_EQ(config.discovery, Discovery::NONE);
    EXPECT_EQ(config.toMqtt[0].type, NumberType::FLOAT);
    EXPECT_EQ(config.toMqtt[0].qos, 0);
    EXPECT_EQ(config.toMqtt[0].rate, 0);
    EXPECT_EQ(config.valueTopic("a/b"), "t/v/a%2Fb");
    EXPECT_EQ(config.setTopic("b"), "t/set/b");
}

TEST(Config, HasWhatTheFileSays) {
    const Config config = validConfig(R"(
host: 10.0.0.1:1
simulator-id: 32767
heartbeat: 0s
broker:
  address: '[::1]:2'
  protocol: 3.1.1
  user: u
  client-id: me
  keep-alive: 1m
base: hall/3
stale: clear
statistics: 500ms
discovery: homeassistant
discovery-prefix: ha
to_mqtt:
  - plain
  - {name: a, type: integer, rate: 2.5Hz, qos: 1, payload: json, unit: m}
  - {hex: 01ff}
from_mqtt:
  - {name: b, type: integer, payload: json, min: -1, max: 1, control: switch, unit: s}
)"
                                      "  - {hex: 'C3B6'}\n");
    EXPECT_EQ(config.host.text(), "10.0.0.1:1");
    EXPECT_EQ(config.simulatorId, 32'767U);
    EXPECT_EQ(config.heartbeat.count(), 0);
    EXPECT_EQ(config.broker.address.text(), "[::1]:2");
    EXPECT_EQ(config.broker.protocol, ProtocolVersion::MQTT_311);
    EXPECT_EQ(config.broker.keepAlive, std::chrono::minutes(1));
    EXPECT_EQ(config.toMqtt[1].rate, 2.5);
    EXPECT_EQ(config.toMqtt[1].payload, PayloadForm::JSON);
    EXPECT_EQ(config.toMqtt[1].unit, "m");
    EXPECT_EQ(config.fromMqtt[0].minimum, -1);
    EXPECT_EQ(config.fromMqtt[0].control, Control::SWITCH);
    EXPECT_EQ(config.fromMqtt[1].name, "\xc3\xb6");
}

TEST(Config, RefusesANameInBothDirections) {
    EXPECT_EQ(flawsOf(std::string(kMinimum) + "to_mqtt:\n - a\nfrom_mqtt:\n - b\n - {hex: 61}\n"),
              "8: the name a is also in to_mqtt: a value goes in one direction, or it would go in circles\n");
    EXPECT_EQ(flawsOf(std::string(kMinimum) + "to_mqtt: [a, a]\n"), "4: the name a occurs twice\n");
}

TEST(Config, ReportsEveryFlawWithItsLine) {
    const std::pair<std::string, std::string> cases[] = {
        {"to_mqtt: [{name: a, qos: 2}]\n", "4: qos is an integer from 0 to 1, not \"2\"\n"},
        {"to_mqtt: [{name: a, rate: 5}]\n", "4: a rate is at most 10000Hz, such as 50Hz, not \"5\"\n"},
        {"to_mqtt: [{name: a, rate: 1e-10Hz}, {name: b, rate: 0.0001Hz}]\n", "4: a rate is 0.0001Hz or more\n"},
        {"to_mqtt: [{name: a, typ: float}]\n", "4: unknown key \"typ\"; did you mean \"type\"?\n"},
        {"to_mqtt: [{type: float}]\n", "4: an entry has a name, or hex with the bytes of a name\n"},
        {"to_mqtt: [{name: a, hex: 61}]\n", "4: an entry has a name, or hex with the bytes of a name\n"},
        {"to_mqtt: [{hex: 6}]\n", "4: hex has two hexadecimal digits for each byte of a name, as in 616c74ff\n"},
        {"to_mqtt: [{hex: 6100}]\n", "4: a name has a zero byte: \"a\\x00\"\n"},
        {"to_mqtt: [{hex: 6g}]\n", "4: hex has two hexadecimal digits for each byte of a name, as in 616c74ff\n"},
        {"to_mqtt: a\n", "4: to_mqtt is a list, as in [a, b]\n"},
        {"from_mqtt: [{name: a, min: 2, max: 1}]\n", "4: min is not greater than max\n"},
        {"from_mqtt: [{name: a, max: -5}, {name: b, min: 5}]\n", ""},
        {"from_mqtt: [{name: a, min: nan}]\n", "4: min is a finite number\n"},
        {"from_mqtt: [{name: a, max: -inf}]\n", "4: max is a finite number\n"},
        {"to_mqtt: [a]\n---\nto_mqtt: [b]\n",
         "6: a configuration is one document; there is another one after a line ---\n"},
        {"stale: kep\nto_mqtt: [a]\n", "4: \"kep\" is no stale; did you mean \"keep\"?\n"},
        {"statistics: 1ms\nto_mqtt: [a]\n", "4: statistics is 100ms or more\n"},
        {"heartbeat: 1ms\nto_mqtt: [a]\n", "4: heartbeat is 100ms or more, or 0s for off\n"},
        {"", "1: there is nothing to do: to_mqtt and from_mqtt are missing\n"},
    };
    for (const auto& [lines, flaws] : cases) {
        EXPECT_EQ(flawsOf(kMinimum + lines), flaws) << lines;
    }
    EXPECT_EQ(flawsOf("to_mqtt: [a]\n"),
              "1: host is missing: the address of the simulation host, such as 192.168.1.20:55580\n"
              "1: broker is missing: its address, such as broker: 192.168.1.30\n"
              "1: base is missing: the beginning of all topics, such as base: hall/3\n");
}

TEST(Config, ReportsFlawsOfTheBroker) {
    const std::pair<std::string, std::string> cases[] = {
        {"{tls: true}", "a broker has an address"},
        {"{address: b, tls: {ca: missing.pem}}", "cannot read /nonexistent/missing.pem: No such file or directory"},
        {"{address: b, tls: {ca: /}}", "/ is a directory"},
        {"{address: b, tls: {cert: /etc/passwd}}", "a client's certificate needs both cert and key"},
        {"{address: b, password: secret}", "the password is not in this file but in a password-file"},
        {"{address: b, user: u, password-file: /dev/null}",
         "other users can access /dev/null; run: chmod o= /dev/null"},
        {"{address: b, keep-alive: 4s}", "keep-alive is 5s to 18h"},
        {"{address: b, client-id: ''}", "a client-id has 1 to 200 bytes of UTF-8 without control characters"},
        {"{address: b, client-id: \"a\\nb\"}", "a client-id has 1 to 200 bytes of UTF-8 without control characters"},
        {"{address: b, protocol: 4}", "\"4\" is no protocol; did you mean \"5\"?"},
        {"'b:0'", "an address is HOST or HOST:PORT, such as 192.168.1.20:1883, not \"b:0\""},
        {"'b:65536'", "an address is HOST or HOST:PORT, such as 192.168.1.20:1883, not \"b:65536\""},
        {"'[::1'", "an address is HOST or HOST:PORT, such as 192.168.1.20:1883, not \"[::1\""},
        {"mqtt://b", "an address is HOST or HOST:PORT, such as 192.168.1.20:1883, not \"mqtt://b\""},
    };
    for (const auto& [broker, flaw] : cases) {
        EXPECT_EQ(flawsOf("host: h\nbroker: " + broker + "\nbase: t\nto_mqtt: [a]\n"), "2: " + flaw + '\n') << broker;
    }
}

TEST(Config, SurvivesTextsThatAreNoYaml) {
    for (const std::string text :
         {"", "a", "[", "{", "host: [", "host: {a: b}\n", "\t", "- a\n- b\n", "host: h\nhost: h\n", "to_mqtt: {a: b}\n",
          "to_mqtt: [[a]]\n", "broker: [b]\n", "\xff\xfe", "&a [*a]"}) {
        EXPECT_NE(flawsOf(text), "") << text;
    }
}

}  // namespace com_tesk::mqtt
