#pragma once

#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <string>

#include "tools/csmqtt/Config.h"

namespace com_tesk::monitoring_test {

using Json = nlohmann::json;

/// Returns a value of the host that is published.
inline mqtt::ToMqtt shown(const std::string& name) {
    mqtt::ToMqtt value;
    value.name = name;
    return value;
}

/// Returns a value of the host that messages set.
inline mqtt::FromMqtt command(const std::string& name, mqtt::NumberType type = mqtt::NumberType::FLOAT) {
    mqtt::FromMqtt value;
    value.name = name;
    value.type = type;
    return value;
}

/// The keys of an object of a description: those that it must have, and those that it may have, each with its type.
/// They are those that the documentation of home automation lists.
struct Schema {
    std::map<std::string, Json::value_t> required;
    std::map<std::string, Json::value_t> permitted;
};

inline Json::value_t typeOf(const Json& value) {
    return value.is_number() ? Json::value_t::number_float : value.type();
}

inline void expectSchema(const Json& object, const Schema& schema, const std::string& where) {
    ASSERT_TRUE(object.is_object()) << where;
    for (const auto& [key, type] : schema.required) {
        EXPECT_TRUE(object.contains(key)) << where << " has no " << key;
    }
    for (const auto& [key, value] : object.items()) {
        const auto needed = schema.required.find(key);
        const auto further = schema.permitted.find(key);
        const bool isNeeded = needed != schema.required.end();
        ASSERT_TRUE(isNeeded || further != schema.permitted.end()) << where << " has the unknown key " << key;
        EXPECT_EQ(typeOf(value), isNeeded ? needed->second : further->second) << where << ": " << key;
    }
}

/// Checks a description as the documentation of home automation describes it.
inline void expectDescription(const Json& payload) {
    constexpr auto kText = Json::value_t::string;
    constexpr auto kNumber = Json::value_t::number_float;
    constexpr auto kFlag = Json::value_t::boolean;
    constexpr auto kObject = Json::value_t::object;
    constexpr auto kArray = Json::value_t::array;
    const std::map<std::string, Schema> platforms = {
        {"sensor",
         {{{"platform", kText}, {"unique_id", kText}, {"state_topic", kText}},
          {{"name", kText},
           {"value_template", kText},
           {"unit_of_measurement", kText},
           {"state_class", kText},
           {"device_class", kText},
           {"expire_after", kNumber}}}},
        {"number",
         {{{"platform", kText}, {"unique_id", kText}, {"command_topic", kText}, {"min", kNumber}, {"max", kNumber}},
          {{"name", kText},
           {"step", kNumber},
           {"mode", kText},
           {"command_template", kText},
           {"unit_of_measurement", kText},
           {"optimistic", kFlag},
           {"retain", kFlag}}}},
        {"switch",
         {{{"platform", kText}, {"unique_id", kText}, {"command_topic", kText}},
          {{"name", kText}, {"payload_on", kText}, {"payload_off", kText}, {"optimistic", kFlag}, {"retain", kFlag}}}}};
    expectSchema(payload,
                 {{{"device", kObject}, {"origin", kObject}, {"components", kObject}},
                  {{"availability", kArray}, {"availability_mode", kText}, {"qos", kNumber}, {"encoding", kText}}},
                 "the description");
    expectSchema(payload["device"],
                 {{{"identifiers", kArray}, {"name", kText}},
                  {{"manufacturer", kText}, {"model", kText}, {"sw_version", kText}, {"configuration_url", kText}}},
                 "device");
    expectSchema(payload["origin"], {{{"name", kText}}, {{"sw_version", kText}, {"support_url", kText}}}, "origin");
    for (const Json& topic : payload["availability"]) {
        expectSchema(topic, {{{"topic", kText}}, {{"payload_available", kText}, {"payload_not_available", kText}}},
                     "availability");
    }
    static const std::regex id("[a-zA-Z0-9_-]+");
    std::set<std::string> uniqueIds;
    for (const auto& [key, component] : payload["components"].items()) {
        EXPECT_TRUE(std::regex_match(key, id)) << key;
        const std::string platform = component.value("platform", "");
        ASSERT_EQ(platforms.count(platform), 1U) << key << " has the platform " << platform;
        expectSchema(component, platforms.at(platform), key);
        EXPECT_TRUE(std::regex_match(component.value("unique_id", ""), id)) << component;
        EXPECT_TRUE(uniqueIds.insert(component.value("unique_id", "")).second) << component;
        if (platform == "number") {
            EXPECT_LT(component["min"].get<double>(), component["max"].get<double>()) << component;
            EXPECT_GE(component["step"].get<double>(), 0.001) << component;
        }
    }
}

}  // namespace com_tesk::monitoring_test
