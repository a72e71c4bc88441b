#include "tools/replay/Rules.h"

#include <yaml-cpp/yaml.h>

#include <cmath>
#include <fstream>
#include <iterator>

#include "tools/scenario/Fields.h"

namespace com_tesk::replay {

namespace {

using scenario::Fields;
using scenario::Flaw;

Mode modeOf(const std::string& word) {
    const std::map<std::string, Mode> modes{
        {"final", Mode::FINAL}, {"sequence", Mode::SEQUENCE}, {"ignore", Mode::IGNORE}};
    const auto found = modes.find(word);
    return found == modes.end() ? Mode::STEP : found->second;
}

Rule readRule(Fields& fields, const YAML::Node& node, const Rule& fallback) {
    Rule rule = fallback;
    if (!fields.isMapOf(node, {"mode", "tolerance", "window"})) {
        return rule;
    }
    if (node["mode"]) {
        rule.mode = modeOf(fields.word(node["mode"], "mode", {"step", "final", "sequence", "ignore"}));
    }
    if (node["tolerance"]) {
        rule.tolerance = fields.number(node["tolerance"], "tolerance");
        if (!std::isfinite(rule.tolerance) || rule.tolerance < 0) {
            fields.report(node["tolerance"], "a tolerance is a finite number and not negative");
        }
    }
    if (node["window"]) {
        rule.window = fields.duration(node["window"], "window");
        if (rule.mode != Mode::STEP) {
            fields.report(node["window"], "only the mode step has a window");
        }
    }
    return rule;
}

void readDocument(Fields& fields, const YAML::Node& root, Rules& rules) {
    if (!fields.isMapOf(root, {"outputs"})) {
        return;
    }
    if (!root["outputs"]) {
        fields.report(root, "the rules have outputs");
        return;
    }
    if (!root["outputs"].IsMap()) {
        fields.report(root["outputs"], "outputs is a map of names");
        return;
    }
    for (const auto& entry : root["outputs"]) {
        const std::string name = fields.name(entry.first);
        if (!rules.named.emplace(name, readRule(fields, entry.second, rules.fallback)).second) {
            fields.report(entry.first, "the name \"" + name + "\" occurs twice");
        }
    }
}

}  // namespace

const Rule& Rules::of(const std::string& name) const {
    const auto found = named.find(name);
    return found == named.end() ? fallback : found->second;
}

Rules readRules(const std::string& text, const Rule& fallback, std::vector<Flaw>& flaws) {
    Rules rules{fallback, {}};
    Fields fields(flaws);
    try {
        readDocument(fields, YAML::Load(text), rules);
    } catch (const YAML::Exception& error) {
        const YAML::Mark& mark = error.mark;
        flaws.push_back({mark.is_null() ? 0U : static_cast<unsigned>(mark.line + 1),
                         mark.is_null() ? 0U : static_cast<unsigned>(mark.column + 1), "no valid YAML: " + error.msg});
    }
    return rules;
}

Rules readRulesFile(const std::string& path, const Rule& fallback, std::vector<Flaw>& flaws) {
    std::ifstream stream(path);
    const std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    if (!stream) {
        flaws.push_back({0, 0, "cannot read the file"});
        return {};
    }
    return readRules(text, fallback, flaws);
}

}  // namespace com_tesk::replay
