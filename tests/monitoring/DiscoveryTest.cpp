#include "tools/csmqtt/Discovery.h"

#include "tests/monitoring/DiscoverySchema.h"

namespace com_tesk::monitoring_test {
namespace {

using namespace mqtt;

Config someConfig() {
    Config config;
    config.base = "hall/3";
    config.discovery = Discovery::HOME_ASSISTANT;
    ToMqtt speed = shown("speed");
    speed.payload = PayloadForm::JSON;
    speed.unit = "m/s";
    config.toMqtt = {shown("altitude"), speed};
    FromMqtt lamp = command("lamp");
    lamp.control = Control::SWITCH;
    FromMqtt level = command("level", NumberType::INTEGER);
    level.minimum = 0;
    level.maximum = 10;
    config.fromMqtt = {lamp, level};
    return config;
}

/// Returns the only message's payload, which fits the schema.
Json described(const Config& config) {
    const auto messages = discoveryMessages(config, "1.2");
    EXPECT_EQ(messages.size(), 1U);
    EXPECT_TRUE(messages.at(0).isRetained);
    EXPECT_EQ(messages.at(0).topic, discoveryTopic(config));
    Json payload = Json::parse(messages.at(0).payload);
    expectDescription(payload);
    return payload;
}

TEST(Discovery, DescribesTheBridgeAsOneDevice) {
    const Config config = someConfig();
    EXPECT_EQ(discoveryTopic(config), "homeassistant/device/csmqtt_hall_2F3/config");
    Json payload = described(config);
    EXPECT_EQ(payload["components"].size(), 4U);
    payload.erase("components");
    EXPECT_EQ(payload, Json::parse(R"({
        "device": {"identifiers": ["csmqtt_hall_2F3"], "name": "hall/3", "manufacturer": "csclient", "model": "csmqtt",
                   "sw_version": "1.2"},
        "origin": {"name": "csmqtt", "sw_version": "1.2"},
        "availability": [
            {"topic": "hall/3/$state", "payload_available": "online", "payload_not_available": "offline"},
            {"topic": "hall/3/$host", "payload_available": "up", "payload_not_available": "down"}],
        "availability_mode": "all",
        "qos": 1})"));
}

TEST(Discovery, DescribesValuesAsSensors) {
    const Json payload = described(someConfig());
    EXPECT_EQ(payload["components"]["v_altitude"], Json::parse(R"({
        "platform": "sensor", "unique_id": "csmqtt_hall_2F3_v_altitude", "name": "altitude",
        "state_topic": "hall/3/v/altitude", "state_class": "measurement"})"));
    EXPECT_EQ(payload["components"]["v_speed"], Json::parse(R"({
        "platform": "sensor", "unique_id": "csmqtt_hall_2F3_v_speed", "name": "speed",
        "state_topic": "hall/3/v/speed", "state_class": "measurement", "value_template": "{{ value_json.v }}",
        "unit_of_measurement": "m/s"})"));
}

TEST(Discovery, DescribesCommandsAsSwitchesAndNumbers) {
    const Json payload = described(someConfig());
    EXPECT_EQ(payload["components"]["set_lamp"], Json::parse(R"({
        "platform": "switch", "unique_id": "csmqtt_hall_2F3_set_lamp", "name": "lamp",
        "command_topic": "hall/3/set/lamp", "payload_on": "1", "payload_off": "0", "retain": false,
        "optimistic": true})"));
    EXPECT_EQ(payload["components"]["set_level"], Json::parse(R"({
        "platform": "number", "unique_id": "csmqtt_hall_2F3_set_level", "name": "level",
        "command_topic": "hall/3/set/level", "min": 0.0, "max": 10.0, "step": 1, "mode": "box", "retain": false,
        "optimistic": true})"));
}

TEST(Discovery, WritesCommandsInTheConfiguredForm) {
    Config config = someConfig();
    config.fromMqtt[0].payload = PayloadForm::JSON;
    config.fromMqtt[1].payload = PayloadForm::JSON;
    config.fromMqtt[1].unit = "l";
    const Json components = described(config)["components"];
    EXPECT_EQ(components["set_lamp"]["payload_on"], R"({"v": 1})");
    EXPECT_EQ(components["set_lamp"]["payload_off"], R"({"v": 0})");
    EXPECT_EQ(components["set_level"]["command_template"], R"({"v": {{ value }}})");
    EXPECT_EQ(components["set_level"]["unit_of_measurement"], "l");
}

TEST(Discovery, ANumberWithoutARangeHasThatOfItsType) {
    Config config = someConfig();
    config.fromMqtt = {command("f"), command("i", NumberType::INTEGER)};
    const Json components = described(config)["components"];
    EXPECT_EQ(components["set_f"]["min"], -1e9);
    EXPECT_EQ(components["set_f"]["max"], 1e9);
    EXPECT_EQ(components["set_f"]["step"], 0.001);
    EXPECT_EQ(components["set_i"]["min"], -2147483648.0);
    EXPECT_EQ(components["set_i"]["max"], 2147483647.0);
}

TEST(Discovery, AnyNameHasAnIdOfItsOwn) {
    EXPECT_EQ(discoveryId("Az-09"), "Az-09");
    EXPECT_EQ(discoveryId("a_b/\xFF"), "a_5Fb_2F_FF");
    Config config = someConfig();
    config.toMqtt.clear();
    config.fromMqtt = {command("lamp")};
    for (const char* const name :
         {"a b", "a_b", "a_20b", "a/b", "a%2Fb", "\xFF\xFE", "\xFE", "\xC3\xA9", "lamp_", "v_", "-"}) {
        config.toMqtt.push_back(shown(name));
    }
    const Json payload = described(config);
    EXPECT_EQ(payload["components"].size(), config.toMqtt.size() + 1);
    EXPECT_EQ(payload["components"]["v__FE"]["name"], "\xEF\xBF\xBD") << "JSON must be UTF-8";
    EXPECT_EQ(payload["components"]["v_a_2Fb"]["state_topic"], "hall/3/v/a%2Fb");
}

TEST(Discovery, BasesHaveDifferentDevices) {
    Config one = someConfig();
    one.base = "a/b";
    Config other = someConfig();
    other.base = "a_b";
    EXPECT_NE(discoveryTopic(one), discoveryTopic(other));
}

TEST(Discovery, UsesTheConfiguredPrefix) {
    Config config = someConfig();
    config.discoveryPrefix = "home/x";
    EXPECT_EQ(discoveryTopic(config), "home/x/device/csmqtt_hall_2F3/config");
    EXPECT_EQ(discoveryStatusTopic(config), "home/x/status");
}

TEST(Discovery, DescribesThousandsOfNames) {
    Config config = someConfig();
    for (int i = 0; i < 10'000; ++i) {
        config.toMqtt.push_back(shown("n" + std::to_string(i)));
    }
    const auto messages = discoveryMessages(config, "1.2");
    EXPECT_EQ(Json::parse(messages.at(0).payload)["components"].size(), 10'004U);
}

TEST(Discovery, IsOffByDefault) {
    Config config = someConfig();
    config.discovery = Discovery::NONE;
    EXPECT_TRUE(discoveryMessages(config, "1.2").empty());
}

}  // namespace
}  // namespace com_tesk::monitoring_test
