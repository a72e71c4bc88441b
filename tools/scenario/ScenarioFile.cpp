#include "tools/scenario/ScenarioFile.h"

#include <yaml-cpp/yaml.h>

#include <fstream>
#include <iterator>
#include <set>

#include "tools/scenario/ActionReader.h"
#include "tools/scenario/ExpectationReader.h"
#include "tools/scenario/Fields.h"
#include "tools/scenario/ValueReader.h"

namespace com_tesk::scenario {

namespace {

void readHost(Fields& fields, const YAML::Node& node, HostOptions& host) {
    constexpr std::size_t kMaxVersionSize = 128;
    constexpr std::int64_t kLargestId = 65'535;
    if (!fields.isMapOf(node, {"version", "protocol", "assign-id", "known-names"})) {
        return;
    }
    if (node["version"]) {
        host.versionText = fields.text(node["version"], "version");
        if (host.versionText.size() > kMaxVersionSize) {
            fields.report(node["version"], "a version text has at most 128 bytes");
        }
    }
    if (node["protocol"]) {
        host.protocolVersion = static_cast<std::uint32_t>(fields.integer(node["protocol"], "protocol", 0));
    }
    if (node["assign-id"]) {
        host.assignId = static_cast<std::uint16_t>(fields.integer(node["assign-id"], "assign-id", 0, kLargestId));
    }
    if (node["known-names"]) {
        const auto names = fields.names(node["known-names"], "known-names");
        host.knownNames = std::set<std::string>(names.begin(), names.end());
    }
}

Place placeOfMoment(Trigger::Moment moment) {
    switch (moment) {
        case Trigger::Moment::SEND:
            return Place::SENT;
        case Trigger::Moment::RECEIVE:
            return Place::RECEIVED;
        case Trigger::Moment::ACCEPT:
            break;
    }
    return Place::ACCEPTED;
}

Trigger readTrigger(Fields& fields, const YAML::Node& node, bool hasSeed) {
    Trigger trigger;
    if (!fields.isMapOf(node, {"send", "receive", "accept", "name", "nth", "every", "connection", "chance"})) {
        return trigger;
    }
    const int moments = (node["send"] ? 1 : 0) + (node["receive"] ? 1 : 0) + (node["accept"] ? 1 : 0);
    if (moments != 1) {
        fields.report(node, "a fault is on one of send, receive and accept");
    }
    const auto readMessage = [&](const char* key, Trigger::Moment moment) {
        if (node[key]) {
            trigger.moment = moment;
            const std::string word = fields.word(node[key], "message", messageNames(moment == Trigger::Moment::SEND));
            trigger.message = messageNamed(word).value_or(Message::ANY);
        }
    };
    readMessage("send", Trigger::Moment::SEND);
    readMessage("receive", Trigger::Moment::RECEIVE);
    if (node["accept"]) {
        trigger.moment = Trigger::Moment::ACCEPT;
        fields.word(node["accept"], "connection", {"any"});
    }
    if (node["name"]) {
        trigger.name = fields.name(node["name"]);
        if (node["accept"]) {
            fields.report(node["name"], "a connection has no name of a parameter");
        }
    }
    trigger.nth = node["nth"] ? fields.count(node["nth"], "nth") : 0;
    trigger.every = node["every"] ? fields.count(node["every"], "every") : 0;
    trigger.connection = node["connection"] ? fields.count(node["connection"], "connection") : 0;
    if (node["chance"]) {
        trigger.chance = fields.number(node["chance"], "chance");
        if (!(trigger.chance >= 0 && trigger.chance <= 1)) {
            fields.report(node["chance"], "a chance is from 0 to 1");
        }
        if (!hasSeed) {
            fields.report(node["chance"], "a chance needs a seed, so that each run is the same: add seed: 1");
        }
    }
    return trigger;
}

void readFaults(Fields& fields, const YAML::Node& node, bool hasSeed, Scenario& scenario) {
    if (!fields.isList(node, "faults")) {
        return;
    }
    for (const YAML::Node& entry : node) {
        if (!fields.isMapOf(entry, {"on", "do"})) {
            continue;
        }
        if (!entry["on"] || !entry["do"]) {
            fields.report(entry, "a fault has the keys on and do");
            continue;
        }
        const Trigger trigger = readTrigger(fields, entry["on"], hasSeed);
        for (const Action& action : readActions(fields, entry["do"], placeOfMoment(trigger.moment))) {
            scenario.when(trigger, action);
        }
    }
}

void readTimeline(Fields& fields, const YAML::Node& node, Scenario& scenario) {
    if (!fields.isList(node, "timeline")) {
        return;
    }
    for (const YAML::Node& entry : node) {
        if (!fields.isMapOf(entry, {"at", "do", "label"})) {
            continue;
        }
        if (!entry["at"] || !entry["do"]) {
            fields.report(entry, "an entry of the timeline has the keys at and do");
            continue;
        }
        const Duration time = fields.duration(entry["at"], "at");
        const std::string label = entry["label"] ? fields.text(entry["label"], "label") : std::string();
        for (const Action& action : readActions(fields, entry["do"], Place::TIMELINE)) {
            scenario.at(time, action, label);
        }
    }
}

void readExpectations(Fields& fields, const YAML::Node& node, Scenario& scenario) {
    if (!fields.isList(node, "expect")) {
        return;
    }
    std::set<std::string> labels;
    for (const Scenario::Step& step : scenario.timeline) {
        labels.insert(step.label.empty() ? nameOf(step.action) : step.label);
    }
    for (const YAML::Node& entry : node) {
        scenario.expect(readExpectation(fields, entry, labels));
    }
}

void readValues(Fields& fields, const YAML::Node& node, const std::string& directory, Scenario& scenario) {
    if (!node.IsMap()) {
        fields.report(node, "values is a map of names");
        return;
    }
    std::set<std::string> seen;
    for (const auto& entry : node) {
        ValueSource source = readValueSource(fields, entry.first, entry.second, directory);
        if (!seen.insert(source.name).second) {
            fields.report(entry.first, "the name \"" + source.name + "\" occurs twice");
        }
        scenario.values.push_back(std::move(source));
    }
}

void readDocument(Fields& fields, const YAML::Node& root, const std::string& directory, ScenarioFile& file) {
    if (!fields.isMapOf(root, {"name", "seed", "host", "values", "faults", "timeline", "expect", "end"})) {
        return;
    }
    Scenario& scenario = file.scenario;
    if (root["name"]) {
        scenario.name = fields.text(root["name"], "name");
    } else {
        fields.report(root, "a scenario has a name");
    }
    if (root["seed"]) {
        scenario.seed = static_cast<std::uint64_t>(fields.integer(root["seed"], "seed", 0));
    }
    if (root["host"]) {
        readHost(fields, root["host"], file.host);
    }
    if (root["values"]) {
        readValues(fields, root["values"], directory, scenario);
    }
    if (root["faults"]) {
        readFaults(fields, root["faults"], root["seed"].IsDefined(), scenario);
    }
    if (root["timeline"]) {
        readTimeline(fields, root["timeline"], scenario);
    }
    if (root["expect"]) {
        readExpectations(fields, root["expect"], scenario);
    }
    if (root["end"]) {
        scenario.ends(fields.duration(root["end"], "end"));
    } else if (scenario.expectations.empty()) {
        fields.report(root, "a scenario without expectations has an end");
    }
}

}  // namespace

ScenarioFile readScenario(const std::string& text, const std::string& directory, std::vector<Flaw>& flaws) {
    ScenarioFile file;
    Fields fields(flaws);
    fields.readDocument([&] { readDocument(fields, YAML::Load(text), directory, file); });
    return file;
}

ScenarioFile readScenarioFile(const std::string& path, std::vector<Flaw>& flaws) {
    std::ifstream stream(path);
    const std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    if (!stream) {
        flaws.push_back({0, 0, "cannot read the file"});
        return {};
    }
    const std::size_t slash = path.rfind('/');
    return readScenario(text, slash == std::string::npos ? "." : path.substr(0, slash), flaws);
}

}  // namespace com_tesk::scenario
