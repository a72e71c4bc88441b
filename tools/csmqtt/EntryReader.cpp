#include "tools/csmqtt/EntryReader.h"

#include <charconv>
#include <cmath>
#include <map>
#include <utility>

#include "tools/ParameterNames.h"

namespace com_tesk::mqtt {

using scenario::Fields;

namespace {

/// The bytes of two hexadecimal digits each.
std::string bytesOf(Fields& fields, const YAML::Node& node) {
    const std::string text = fields.text(node, "hex");
    std::string bytes;
    bool isValid = text.size() % 2 == 0;
    for (std::size_t at = 0; isValid && at < text.size(); at += 2) {
        unsigned byte = 0;
        const auto [stop, error] = std::from_chars(text.data() + at, text.data() + at + 2, byte, 16);
        isValid = error == std::errc() && stop == text.data() + at + 2;
        bytes += static_cast<char>(byte);
    }
    if (!isValid) {
        fields.report(node, "hex has two hexadecimal digits for each byte of a name, as in 616c74ff");
        return {};
    }
    if (const std::string error = tools::nameError(bytes); !error.empty()) {
        fields.report(node, error);
    }
    return bytes;
}

std::string readName(Fields& fields, const YAML::Node& entry) {
    if (!entry.IsMap()) {
        return fields.name(entry);
    }
    if (entry["name"].IsDefined() == entry["hex"].IsDefined()) {
        fields.report(entry, "an entry has a name, or hex with the bytes of a name");
        return {};
    }
    return entry["name"] ? fields.name(entry["name"]) : bytesOf(fields, entry["hex"]);
}

NumberType readType(Fields& fields, const YAML::Node& entry) {
    const YAML::Node node = entry["type"];
    return node && fields.word(node, "type", {"float", "integer"}) == "integer" ? NumberType::INTEGER
                                                                                : NumberType::FLOAT;
}

PayloadForm readForm(Fields& fields, const YAML::Node& entry) {
    const YAML::Node node = entry["payload"];
    return node && fields.word(node, "payload", {"text", "json"}) == "json" ? PayloadForm::JSON : PayloadForm::TEXT;
}

/// Reads `min` or `max`; nothing when the entry has none.
std::optional<double> readLimit(Fields& fields, const YAML::Node& entry, const std::string& key) {
    const YAML::Node node = entry[key];
    if (!node) {
        return std::nullopt;
    }
    const double limit = fields.number(node, key);
    if (!std::isfinite(limit)) {
        // Every comparison with NaN is false, so that every number would be refused.
        fields.report(node, key + " is a finite number");
        return std::nullopt;
    }
    return limit;
}

ToMqtt readToMqttEntry(Fields& fields, const YAML::Node& entry) {
    ToMqtt result;
    result.name = readName(fields, entry);
    if (!entry.IsMap() || !fields.isMapOf(entry, {"name", "hex", "type", "rate", "qos", "payload", "unit"})) {
        return result;
    }
    result.type = readType(fields, entry);
    result.payload = readForm(fields, entry);
    result.rate = entry["rate"] ? fields.rate(entry["rate"]) : result.rate;
    constexpr double kLeastRate = 0.0001;  // The clock could not count much longer intervals.
    if (entry["rate"] && result.rate < kLeastRate) {
        fields.report(entry["rate"], "a rate is 0.0001Hz or more");
    }
    result.qos = entry["qos"] ? static_cast<int>(fields.integer(entry["qos"], "qos", 0, 1)) : result.qos;
    result.unit = entry["unit"] ? fields.text(entry["unit"], "unit") : result.unit;
    return result;
}

FromMqtt readFromMqttEntry(Fields& fields, const YAML::Node& entry) {
    FromMqtt result;
    result.name = readName(fields, entry);
    if (!entry.IsMap() || !fields.isMapOf(entry, {"name", "hex", "type", "payload", "min", "max", "control", "unit"})) {
        return result;
    }
    result.type = readType(fields, entry);
    result.payload = readForm(fields, entry);
    result.minimum = readLimit(fields, entry, "min");
    result.maximum = readLimit(fields, entry, "max");
    if (result.minimum && result.maximum && *result.minimum > *result.maximum) {
        fields.report(entry["min"], "min is not greater than max");
    }
    if (entry["control"] && fields.word(entry["control"], "control", {"number", "switch"}) == "switch") {
        result.control = Control::SWITCH;
    }
    result.unit = entry["unit"] ? fields.text(entry["unit"], "unit") : result.unit;
    return result;
}

}  // namespace

std::vector<ToMqtt> readToMqtt(Fields& fields, const YAML::Node& list) {
    std::vector<ToMqtt> result;
    if (fields.isList(list, "to_mqtt")) {
        for (const YAML::Node& entry : list) {
            result.push_back(readToMqttEntry(fields, entry));
        }
    }
    return result;
}

std::vector<FromMqtt> readFromMqtt(Fields& fields, const YAML::Node& list) {
    std::vector<FromMqtt> result;
    if (fields.isList(list, "from_mqtt")) {
        for (const YAML::Node& entry : list) {
            result.push_back(readFromMqttEntry(fields, entry));
        }
    }
    return result;
}

void checkNames(Fields& fields, const YAML::Node& root, const Config& config) {
    std::map<std::string, std::string> seen;  // To the list that has it.
    const auto check = [&](const std::string& name, const YAML::Node& entry, const std::string& list) {
        const auto [known, isNew] = seen.emplace(name, list);
        if (isNew || name.empty()) {
            return;
        }
        fields.report(entry, known->second == list
                                 ? "the name " + tools::shownName(name) + " occurs twice"
                                 : "the name " + tools::shownName(name) +
                                       " is also in to_mqtt: a value goes in one direction, or it would go in circles");
    };
    auto entry = root["to_mqtt"].begin();
    for (const ToMqtt& value : config.toMqtt) {
        check(value.name, *entry, "to_mqtt");
        ++entry;
    }
    entry = root["from_mqtt"].begin();
    for (const FromMqtt& value : config.fromMqtt) {
        check(value.name, *entry, "from_mqtt");
        ++entry;
    }
}

Address readAddress(Fields& fields, const YAML::Node& node, std::uint16_t defaultPort) {
    const std::string text = fields.text(node, "an address");
    const auto address = addressOf(text, defaultPort);
    if (node.IsScalar() && (!address || address->port == 0)) {
        fields.report(node, "an address is HOST or HOST:PORT, such as 192.168.1.20:" + std::to_string(defaultPort) +
                                ", not \"" + tools::printable(text) + '"');
    }
    return address.value_or(Address{text, defaultPort});
}

}  // namespace com_tesk::mqtt
