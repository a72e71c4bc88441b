#include "tools/csmqtt/ConfigReader.h"

#include <yaml-cpp/yaml.h>

#include <cerrno>
#include <fstream>
#include <system_error>

#include "tools/csmqtt/EntryReader.h"
#include "tools/csmqtt/TopicName.h"

namespace com_tesk::mqtt {

using scenario::Fields;
using scenario::Flaw;

namespace {

constexpr std::uint16_t kHostPort = 55'580;

std::string readBase(Fields& fields, const YAML::Node& node, std::string_view what) {
    std::string base = fields.text(node, what);
    if (const std::string error = baseError(base); node.IsScalar() && !error.empty()) {
        fields.report(node, std::string(what) + " is the beginning of topics: " + error);
    }
    return base;
}

std::chrono::milliseconds readInterval(Fields& fields, const YAML::Node& node, const std::string& what, bool mayBeOff) {
    const auto interval = std::chrono::duration_cast<std::chrono::milliseconds>(fields.duration(node, what));
    if ((interval.count() != 0 || !mayBeOff) && interval < std::chrono::milliseconds(100)) {
        fields.report(node, what + " is 100ms or more" + (mayBeOff ? ", or 0s for off" : ""));
        return std::chrono::seconds(1);
    }
    return interval;
}

void readHostSide(Fields& fields, const YAML::Node& root, Config& config) {
    constexpr std::int64_t kMaxId = 32'767;
    if (root["host"]) {
        config.host = readAddress(fields, root["host"], kHostPort);
        if (config.host.host.find(':') != std::string::npos) {
            fields.report(root["host"], "a host has an IPv4 address or a name");
        }
    } else {
        fields.report(root, "host is missing: the address of the simulation host, such as 192.168.1.20:55580");
    }
    if (root["simulator-id"]) {
        config.simulatorId = static_cast<unsigned>(fields.integer(root["simulator-id"], "simulator-id", 0, kMaxId));
    }
    if (root["heartbeat"]) {
        config.heartbeat = readInterval(fields, root["heartbeat"], "heartbeat", true);
    }
}

void readBrokerSide(Fields& fields, const YAML::Node& root, const std::string& directory, Config& config) {
    if (root["broker"]) {
        config.broker = readBroker(fields, root["broker"], directory);
    } else {
        fields.report(root, "broker is missing: its address, such as broker: 192.168.1.30");
    }
    if (root["base"]) {
        config.base = readBase(fields, root["base"], "base");
    } else {
        fields.report(root, "base is missing: the beginning of all topics, such as base: hall/3");
    }
    if (config.broker.clientId.empty()) {
        config.broker.clientId = "csmqtt-" + config.base;
    }
    if (root["stale"] && fields.word(root["stale"], "stale", {"keep", "clear"}) == "clear") {
        config.stale = StalePolicy::CLEAR;
    }
    if (root["statistics"]) {
        config.statisticsInterval = readInterval(fields, root["statistics"], "statistics", false);
    }
    if (root["discovery"] && fields.word(root["discovery"], "discovery", {"none", "homeassistant"}) != "none") {
        config.discovery = Discovery::HOME_ASSISTANT;
    }
    if (root["discovery-prefix"]) {
        config.discoveryPrefix = readBase(fields, root["discovery-prefix"], "discovery-prefix");
    }
}

void readDocument(Fields& fields, const YAML::Node& root, const std::string& directory, Config& config) {
    if (!fields.isMapOf(root, {"host", "simulator-id", "heartbeat", "broker", "base", "stale", "statistics",
                               "discovery", "discovery-prefix", "to_mqtt", "from_mqtt"})) {
        return;
    }
    readHostSide(fields, root, config);
    readBrokerSide(fields, root, directory, config);
    // A key without entries is null, as when all of them are comments.
    if (root["to_mqtt"] && !root["to_mqtt"].IsNull()) {
        config.toMqtt = readToMqtt(fields, root["to_mqtt"]);
    }
    if (root["from_mqtt"] && !root["from_mqtt"].IsNull()) {
        config.fromMqtt = readFromMqtt(fields, root["from_mqtt"]);
    }
    checkNames(fields, root, config);
    if (config.toMqtt.empty() && config.fromMqtt.empty() && !root["to_mqtt"] && !root["from_mqtt"]) {
        fields.report(root, "there is nothing to do: to_mqtt and from_mqtt are missing");
    }
}

}  // namespace

Config readConfig(const std::string& text, const std::string& directory, std::vector<Flaw>& flaws) {
    Config config;
    Fields fields(flaws);
    fields.readDocument([&] {
        const std::vector<YAML::Node> documents = YAML::LoadAll(text);
        readDocument(fields, documents.empty() ? YAML::Node() : documents.front(), directory, config);
        if (documents.size() > 1) {
            fields.report(documents[1], "a configuration is one document; there is another one after a line ---");
        }
    });
    return config;
}

Config readConfigFile(const std::string& path, std::vector<Flaw>& flaws) {
    constexpr std::size_t kMaxSize = std::size_t{64} * 1024 * 1024;  // A device can have no end.
    errno = 0;
    std::ifstream stream(path);
    std::string text;
    std::vector<char> part(std::size_t{64} * 1024);
    while (stream && text.size() <= kMaxSize) {
        stream.read(part.data(), static_cast<std::streamsize>(part.size()));
        text.append(part.data(), static_cast<std::size_t>(stream.gcount()));
    }
    if (!stream.is_open() || stream.bad()) {
        flaws.push_back(
            {0, 0, "cannot read the file" + (errno == 0 ? "" : ": " + std::generic_category().message(errno))});
        return {};
    }
    if (text.size() > kMaxSize) {
        flaws.push_back({0, 0, "the file is larger than 64 MiB"});
        return {};
    }
    const std::size_t slash = path.rfind('/');
    return readConfig(text, slash == std::string::npos ? "." : path.substr(0, slash), flaws);
}

std::string flawText(const std::string& path, const Flaw& flaw) {
    return flaw.line == 0
               ? path + ": " + flaw.text
               : path + ':' + std::to_string(flaw.line) + ':' + std::to_string(flaw.column) + ": " + flaw.text;
}

}  // namespace com_tesk::mqtt
