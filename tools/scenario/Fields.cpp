#include "tools/scenario/Fields.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <utility>

#include "tools/Durations.h"
#include "tools/ParameterNames.h"
#include "tools/WholeNumber.h"

namespace com_tesk::scenario {

namespace {

Flaw flawAt(const YAML::Mark& mark, std::string text) {
    if (mark.is_null()) {
        return {0, 0, std::move(text)};
    }
    return {static_cast<unsigned>(mark.line + 1), static_cast<unsigned>(mark.column + 1), std::move(text)};
}

std::string quoted(const YAML::Node& node) {
    return node.IsScalar() ? '"' + node.Scalar() + '"' : std::string(node.IsMap() ? "a map" : "a list");
}

/// "+1000" is a number, too.
std::string_view withoutPlus(std::string_view text) {
    const bool hasPlus = text.size() > 1 && text[0] == '+' && text[1] != '-' && text[1] != '+';
    return hasPlus ? text.substr(1) : text;
}

}  // namespace

Flaw placeOf(const YAML::Node& node) {
    return flawAt(node.Mark(), {});
}

void Fields::report(const YAML::Node& node, const std::string& text) {
    flaws.push_back(flawAt(node.Mark(), text));
}

void Fields::readDocument(const std::function<void()>& read) {
    try {
        read();
    } catch (const YAML::Exception& error) {
        flaws.push_back(flawAt(error.mark, "no valid YAML: " + error.msg));
    }
    std::stable_sort(flaws.begin(), flaws.end(), [](const Flaw& one, const Flaw& other) {
        return std::pair(one.line, one.column) < std::pair(other.line, other.column);
    });
}

bool Fields::isMapOf(const YAML::Node& node, const std::vector<std::string_view>& validKeys) {
    if (!node.IsMap()) {
        std::string keys;
        for (const std::string_view key : validKeys) {
            keys += (keys.empty() ? "" : ", ") + std::string(key);
        }
        report(node, "expected a map with the keys " + keys);
        return false;
    }
    std::set<std::string> seen;
    for (const auto& entry : node) {
        const std::string key = entry.first.IsScalar() ? entry.first.Scalar() : std::string();
        if (std::find(validKeys.begin(), validKeys.end(), key) == validKeys.end()) {
            report(entry.first, "unknown key " + quoted(entry.first) + suggestion(key, validKeys));
        } else if (!seen.insert(key).second) {
            report(entry.first, "the key \"" + key + "\" occurs twice");
        }
    }
    return true;
}

bool Fields::isList(const YAML::Node& node, std::string_view what) {
    if (!node.IsSequence()) {
        report(node, std::string(what) + " is a list, as in [a, b]");
        return false;
    }
    return true;
}

std::string Fields::text(const YAML::Node& node, std::string_view what) {
    if (!node.IsScalar()) {
        report(node, std::string(what) + " is a text");
        return {};
    }
    return node.Scalar();
}

std::string Fields::name(const YAML::Node& node) {
    std::string name = text(node, "a name");
    if (node.IsScalar() && !tools::nameError(name).empty()) {
        report(node, tools::nameError(name));
    }
    return name;
}

std::vector<std::string> Fields::names(const YAML::Node& node, std::string_view what) {
    std::vector<std::string> result;
    if (isList(node, what)) {
        for (const YAML::Node& entry : node) {
            result.push_back(name(entry));
        }
    }
    return result;
}

std::string Fields::word(const YAML::Node& node, std::string_view what, const std::vector<std::string_view>& words) {
    std::string read = text(node, what);
    if (node.IsScalar() && std::find(words.begin(), words.end(), read) == words.end()) {
        report(node, quoted(node) + " is no " + std::string(what) + suggestion(read, words));
        return {};
    }
    return read;
}

double Fields::number(const YAML::Node& node, std::string_view what) {
    const auto result = node.IsScalar() ? tools::wholeNumber<double>(withoutPlus(node.Scalar())) : std::nullopt;
    if (!result) {
        report(node, std::string(what) + " is a number, not " + quoted(node));
    }
    return result.value_or(0);
}

std::int64_t Fields::integer(const YAML::Node& node, std::string_view what, std::int64_t least, std::int64_t largest) {
    const auto result = node.IsScalar() ? tools::wholeNumber<std::int64_t>(withoutPlus(node.Scalar())) : std::nullopt;
    if (!result || *result < least || *result > largest) {
        report(node, std::string(what) + " is an integer from " + std::to_string(least) + " to " +
                         std::to_string(largest) + ", not " + quoted(node));
        return std::max<std::int64_t>(least, 0);
    }
    return *result;
}

unsigned Fields::count(const YAML::Node& node, std::string_view what) {
    constexpr std::int64_t kMost = 1'000'000'000;
    return static_cast<unsigned>(integer(node, what, 1, kMost));
}

Duration Fields::duration(const YAML::Node& node, std::string_view what) {
    const auto duration = node.IsScalar() ? tools::durationOf(node.Scalar()) : std::nullopt;
    if (!duration) {
        report(node, std::string(what) + " is a duration such as 250ms, 5s or 2m, not " + quoted(node));
        return {};
    }
    return *duration;
}

double Fields::rate(const YAML::Node& node) {
    constexpr double kMost = 10'000;
    constexpr std::string_view kUnit = "Hz";
    const std::string_view read = node.IsScalar() ? std::string_view(node.Scalar()) : std::string_view();
    const bool hasUnit = read.size() > kUnit.size() && read.substr(read.size() - kUnit.size()) == kUnit;
    const auto result = hasUnit ? tools::wholeNumber<double>(read.substr(0, read.size() - kUnit.size())) : std::nullopt;
    if (!result || !(*result > 0) || *result > kMost) {
        report(node, "a rate is at most 10000Hz, such as 50Hz, not " + quoted(node));
        return 1;
    }
    return *result;
}

HostValue Fields::value(const YAML::Node& node) {
    const auto value = node.IsScalar() ? HostValue::fromText(node.Scalar()) : std::nullopt;
    if (!value) {
        report(node, "a value is a number such as 1.5, or i: and a 32-bit integer, not " + quoted(node));
        return HostValue::real(0);
    }
    return *value;
}

}  // namespace com_tesk::scenario
