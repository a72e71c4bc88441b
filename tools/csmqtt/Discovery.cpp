#include "tools/csmqtt/Discovery.h"

#include <limits>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

namespace com_tesk::mqtt {

namespace {

using Json = nlohmann::json;

constexpr const char* kProgram = "csmqtt";

/// The range of a number without `min` and `max`. Home automation wants one; without it, it takes 1 to 100.
constexpr double kMaxFloat = 1e9;
constexpr double kFloatStep = 0.001;

constexpr bool isPlain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-';
}

std::string deviceId(const Config& config) {
    return std::string(kProgram) + '_' + discoveryId(config.base);
}

Json component(const Config& config, const char* platform, const std::string& id, const std::string& name) {
    return {{"platform", platform}, {"unique_id", deviceId(config) + '_' + id}, {"name", name}};
}

Json sensor(const Config& config, const std::string& id, const ToMqtt& value) {
    Json result = component(config, "sensor", id, value.name);
    result["state_topic"] = config.valueTopic(value.name);
    result["state_class"] = "measurement";
    if (value.payload == PayloadForm::JSON) {
        result["value_template"] = "{{ value_json.v }}";
    }
    if (!value.unit.empty()) {
        result["unit_of_measurement"] = value.unit;
    }
    return result;
}

Json number(const Config& config, const std::string& id, const FromMqtt& value) {
    const bool isInteger = value.type == NumberType::INTEGER;
    const double lowest = isInteger ? std::numeric_limits<std::int32_t>::min() : -kMaxFloat;
    const double highest = isInteger ? std::numeric_limits<std::int32_t>::max() : kMaxFloat;
    Json result = component(config, "number", id, value.name);
    result["min"] = value.minimum.value_or(lowest);
    result["max"] = value.maximum.value_or(highest);
    result["step"] = isInteger ? 1 : kFloatStep;
    result["mode"] = "box";
    if (value.payload == PayloadForm::JSON) {
        result["command_template"] = R"({"v": {{ value }}})";
    }
    if (!value.unit.empty()) {
        result["unit_of_measurement"] = value.unit;
    }
    return result;
}

Json toggle(const Config& config, const std::string& id, const FromMqtt& value) {
    const bool isJson = value.payload == PayloadForm::JSON;
    Json result = component(config, "switch", id, value.name);
    result["payload_on"] = isJson ? R"({"v": 1})" : "1";
    result["payload_off"] = isJson ? R"({"v": 0})" : "0";
    return result;
}

/// Returns the components by their ids.
Json components(const Config& config) {
    Json result = Json::object();
    for (const ToMqtt& value : config.toMqtt) {
        const std::string id = "v_" + discoveryId(value.name);
        result[id] = sensor(config, id, value);
    }
    for (const FromMqtt& value : config.fromMqtt) {
        const std::string id = "set_" + discoveryId(value.name);
        Json control = value.control == Control::SWITCH ? toggle(config, id, value) : number(config, id, value);
        control["command_topic"] = config.setTopic(value.name);
        // A retained command would run again at each connection. The bridge ignores those.
        control["retain"] = false;
        control["optimistic"] = true;
        result[id] = std::move(control);
    }
    return result;
}

Json description(const Config& config, const std::string& version) {
    return {
        {"device",
         {{"identifiers", Json::array({deviceId(config)})},
          {"name", config.base},
          {"manufacturer", "csclient"},
          {"model", kProgram},
          {"sw_version", version}}},
        {"origin", {{"name", kProgram}, {"sw_version", version}}},
        {"availability",
         Json::array(
             {{{"topic", config.stateTopic()}, {"payload_available", "online"}, {"payload_not_available", "offline"}},
              {{"topic", config.hostTopic()}, {"payload_available", "up"}, {"payload_not_available", "down"}}})},
        {"availability_mode", "all"},
        {"qos", 1},
        {"components", components(config)}};
}

/// Names of values may be no UTF-8, which JSON requires. They are shown with replacement characters.
Message message(const Config& config, const Json& payload) {
    return {discoveryTopic(config), payload.dump(-1, ' ', false, Json::error_handler_t::replace), 1, true};
}

/// Returns the components of a description by this program; an empty object when it is none, or not by this program.
Json describedBefore(const std::string& payload) {
    Json before = Json::parse(payload, nullptr, false);
    if (!before.is_object() || !before.contains("origin") || !before.contains("components")) {
        return Json::object();
    }
    const Json& origin = before["origin"];
    const bool isOwn = origin.is_object() && origin.contains("name") && origin["name"] == kProgram;
    // Moved, because a copy of deeply nested values would need as much stack.
    return isOwn && before["components"].is_object() ? std::move(before["components"]) : Json::object();
}

/// Returns the components that are to be removed. Each has only its platform then, which is how it is removed.
Json removed(const Json& before, const Json& now) {
    Json result = Json::object();
    for (const auto& [id, old] : before.items()) {
        const bool hasPlatform = old.is_object() && old.contains("platform") && old["platform"].is_string();
        const bool isRemoved = old.size() == 1;
        // A component of another platform is another one, although the id is the same.
        const bool isSame = hasPlatform && now.contains(id) && now[id]["platform"] == old["platform"];
        if (hasPlatform && !isRemoved && !isSame) {
            result[id] = {{"platform", old["platform"]}};
        }
    }
    return result;
}

}  // namespace

std::string discoveryId(const std::string& text) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string id;
    for (const char c : text) {
        if (isPlain(c)) {
            id += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            id += {'_', kDigits[byte >> 4U], kDigits[byte & 0xFU]};
        }
    }
    return id;
}

std::string discoveryTopic(const Config& config) {
    return config.discoveryPrefix + "/device/" + deviceId(config) + "/config";
}

std::string discoveryStatusTopic(const Config& config) {
    return config.discoveryPrefix + "/status";
}

std::vector<std::string> discoverySubscriptions(const Config& config) {
    if (config.discovery == Discovery::NONE) {
        return {discoveryTopic(config)};
    }
    return {discoveryTopic(config), discoveryStatusTopic(config)};
}

std::vector<Message> discoveryMessages(const Config& config, const std::string& version) {
    if (config.discovery == Discovery::NONE) {
        return {};
    }
    return {message(config, description(config, version))};
}

std::vector<Message> discoveryReplies(const Config& config, const std::string& version, const std::string& topic,
                                      const std::string& payload, bool isRetained) {
    if (topic == discoveryStatusTopic(config)) {
        return payload == "online" ? discoveryMessages(config, version) : std::vector<Message>();
    }
    if (topic != discoveryTopic(config) || !isRetained) {
        return {};
    }
    const Json before = describedBefore(payload);
    if (before.empty()) {
        return {};
    }
    if (config.discovery == Discovery::NONE) {
        return {{topic, "", 1, true}};
    }
    Json current = description(config, version);
    const Json gone = removed(before, current["components"]);
    if (gone.empty()) {
        return {};
    }
    std::vector<Message> messages = discoveryMessages(config, version);
    current["components"].update(gone);
    messages.insert(messages.begin(), message(config, current));
    return messages;
}

}  // namespace com_tesk::mqtt
