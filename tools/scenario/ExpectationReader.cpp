#include "tools/scenario/ExpectationReader.h"

#include <map>
#include <vector>

namespace com_tesk::scenario {

namespace {

using Kind = Expectation::Kind;

const std::map<std::string_view, Kind>& kinds() {
    static const std::map<std::string_view, Kind> all{
        {"connects", Kind::CONNECTS},      {"disconnects", Kind::DISCONNECTS}, {"asks-version", Kind::ASKS_VERSION},
        {"registers", Kind::REGISTERS},    {"unregisters", Kind::UNREGISTERS}, {"unknown-id", Kind::UNKNOWN_ID},
        {"bad-request", Kind::BAD_REQUEST}};
    return all;
}

std::vector<std::string_view> kindNames() {
    std::vector<std::string_view> names;
    for (const auto& [name, kind] : kinds()) {
        names.push_back(name);
    }
    return names;
}

Kind readKind(Fields& fields, const YAML::Node& node) {
    const auto found = kinds().find(fields.word(node, "event", kindNames()));
    return found == kinds().end() ? Kind::CONNECTS : found->second;
}

void readPublished(Fields& fields, const YAML::Node& node, Expectation& expectation) {
    expectation.kind = Kind::PUBLISHES;
    if (node.IsScalar()) {
        expectation.name = fields.name(node);
        return;
    }
    if (!fields.isMapOf(node, {"name", "value", "tolerance", "rate", "for"})) {
        return;
    }
    if (node["name"]) {
        expectation.name = fields.name(node["name"]);
    } else {
        fields.report(node, "published has a name");
    }
    if (node["value"]) {
        expectation.value = fields.number(node["value"], "value");
    }
    if (node["tolerance"]) {
        expectation.tolerance = fields.number(node["tolerance"], "tolerance");
        if (!expectation.value) {
            fields.report(node["tolerance"], "a tolerance needs a value");
        } else if (!(expectation.tolerance >= 0)) {
            fields.report(node["tolerance"], "a tolerance is not negative");
        }
    }
    if (node["rate"]) {
        expectation.rate = fields.rate(node["rate"]);
        expectation.lasting = std::chrono::seconds(1);
    }
    if (node["for"]) {
        expectation.lasting = fields.duration(node["for"], "for");
    }
}

/// What has to happen: one of `client:`, `published:` and `never:`.
void readEvent(Fields& fields, const YAML::Node& node, Expectation& expectation) {
    int events = 0;
    if (node["client"]) {
        ++events;
        expectation.kind = readKind(fields, node["client"]);
    }
    if (node["published"]) {
        ++events;
        readPublished(fields, node["published"], expectation);
    }
    if (node["never"]) {
        ++events;
        expectation.isNever = true;
        const YAML::Node never = node["never"];
        if (never.IsScalar()) {
            expectation.kind = readKind(fields, never);
        } else if (fields.isMapOf(never, {"published"}) && never["published"]) {
            readPublished(fields, never["published"], expectation);
        }
    }
    if (events != 1) {
        fields.report(node, "an expectation has one of the keys client, published and never");
    }
}

void readNames(Fields& fields, const YAML::Node& node, Expectation& expectation) {
    if (node["inputs"]) {
        expectation.inputs = fields.names(node["inputs"], "inputs");
    }
    if (node["outputs"]) {
        expectation.outputs = fields.names(node["outputs"], "outputs");
    }
    const bool hasNames = node["inputs"] || node["outputs"];
    if (hasNames && expectation.kind != Kind::REGISTERS && expectation.kind != Kind::UNREGISTERS) {
        fields.report(node, "only registers and unregisters have inputs and outputs");
    }
}

void readCounts(Fields& fields, const YAML::Node& node, Expectation& expectation) {
    constexpr std::int64_t kMost = 1'000'000'000;
    const auto read = [&](const char* key, std::optional<unsigned>& count) {
        if (node[key]) {
            count = static_cast<unsigned>(fields.integer(node[key], key, 0, kMost));
            if (expectation.isNever || expectation.lasting.count() != 0) {
                fields.report(node[key], "never, rate and for permit no count");
            }
        }
    };
    read("times", expectation.exactly);
    read("at-least", expectation.atLeast);
    read("at-most", expectation.atMost);
}

}  // namespace

Expectation readExpectation(Fields& fields, const YAML::Node& node, const std::set<std::string>& labels) {
    Expectation expectation;
    expectation.line = placeOf(node).line;
    if (!fields.isMapOf(node, {"client", "published", "never", "inputs", "outputs", "times", "at-least", "at-most",
                               "after", "within", "then"})) {
        return expectation;
    }
    readEvent(fields, node, expectation);
    readNames(fields, node, expectation);
    readCounts(fields, node, expectation);
    if (node["within"]) {
        expectation.within = fields.duration(node["within"], "within");
    }
    if (node["after"]) {
        const std::vector<std::string_view> words(labels.begin(), labels.end());
        if (words.empty()) {
            fields.report(node["after"], "there is no timeline whose actions after could name");
        } else {
            expectation.after = fields.word(node["after"], "action of the timeline", words);
        }
    }
    if (node["then"] && fields.isList(node["then"], "then")) {
        for (const YAML::Node& next : node["then"]) {
            expectation.then.push_back(readExpectation(fields, next, labels));
        }
    }
    return expectation;
}

}  // namespace com_tesk::scenario
