#include "tools/csmqtt/CheckReport.h"

#include <algorithm>

#include "tools/Durations.h"
#include "tools/ParameterNames.h"
#include "tools/csmqtt/Payload.h"

namespace com_tesk::mqtt {

namespace {

const char* nameOf(NumberType type) {
    return type == NumberType::INTEGER ? "integer" : "float";
}

const char* nameOf(PayloadForm form) {
    return form == PayloadForm::JSON ? "JSON" : "text";
}

std::string padded(std::string text, std::size_t width) {
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

std::string numberOf(double value) {
    return numberText(value, NumberType::FLOAT);
}

template <typename Entry>
std::size_t widestName(const std::vector<Entry>& entries) {
    std::size_t widest = 0;
    for (const Entry& entry : entries) {
        widest = std::max(widest, tools::shownName(entry.name).size());
    }
    return widest;
}

std::string hostLine(const Config& config) {
    std::string text = "host       " + config.host.text() + ", as simulator " + std::to_string(config.simulatorId);
    if (config.heartbeat.count() != 0) {
        text += ", asked every " + tools::textOf(config.heartbeat);
    }
    return text + '\n';
}

std::string brokerLine(const BrokerSettings& broker) {
    std::string text = "broker     " + broker.address.text();
    text += broker.protocol == ProtocolVersion::MQTT_5 ? ", MQTT 5" : ", MQTT 3.1.1";
    if (broker.tls) {
        text += ", TLS with " + (broker.tls->caFile.empty() ? "the system's certificates" : broker.tls->caFile);
    } else {
        text += ", not encrypted";
    }
    if (!broker.user.empty()) {
        text += ", user " + tools::printable(broker.user);
        text += broker.passwordFile.empty() ? " without a password" : ", password from " + broker.passwordFile;
    }
    text += ", client id " + tools::printable(broker.clientId);
    return text + ", keep-alive " + tools::textOf(broker.keepAlive) + '\n';
}

std::string toMqttLine(const Config& config, const ToMqtt& value, std::size_t width) {
    std::string text = "  " + padded(tools::shownName(value.name), width) + "  " + padded(nameOf(value.type), 7) +
                       "  to " + config.valueTopic(value.name) + ", " + nameOf(value.payload) + ", QoS " +
                       std::to_string(value.qos) + ", retained";
    if (value.rate > 0) {
        text += ", at most " + numberOf(value.rate) + " Hz";
    }
    return text + '\n';
}

std::string fromMqttLine(const Config& config, const FromMqtt& value, std::size_t width) {
    std::string text = "  " + padded(tools::shownName(value.name), width) + "  " + padded(nameOf(value.type), 7) +
                       "  from " + config.setTopic(value.name) + ", " + nameOf(value.payload);
    if (value.minimum) {
        text += ", from " + numberOf(*value.minimum);
    }
    if (value.maximum) {
        text += ", up to " + numberOf(*value.maximum);
    }
    return text + '\n';
}

}  // namespace

std::string checkReport(const Config& config) {
    std::string text = hostLine(config) + brokerLine(config.broker);
    text += "base       " + config.base + ": while the host is down, values ";
    text += config.stale == StalePolicy::KEEP ? "stay\n" : "are cleared\n";
    if (config.discovery == Discovery::HOME_ASSISTANT) {
        text += "discovery  Home Assistant, below " + config.discoveryPrefix + '\n';
    }
    text += "to_mqtt    " + std::to_string(config.toMqtt.size()) + '\n';
    const std::size_t toWidth = widestName(config.toMqtt);
    for (const ToMqtt& value : config.toMqtt) {
        text += toMqttLine(config, value, toWidth);
    }
    text += "from_mqtt  " + std::to_string(config.fromMqtt.size()) + '\n';
    const std::size_t fromWidth = widestName(config.fromMqtt);
    for (const FromMqtt& value : config.fromMqtt) {
        text += fromMqttLine(config, value, fromWidth);
    }
    return text;
}

}  // namespace com_tesk::mqtt
