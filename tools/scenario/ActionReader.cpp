#include "tools/scenario/ActionReader.h"

#include <functional>
#include <map>
#include <string>

namespace com_tesk::scenario {

namespace {

/// Reads the value of an action. `whole` is the map with its other keys.
using Read = std::function<Action(Fields&, const YAML::Node& value, const YAML::Node& whole)>;

struct Form {
    Read read;
    bool needsValue;
    /// The other keys that the action may have.
    std::vector<std::string_view> otherKeys;
};

Action readSplit(Fields& fields, const YAML::Node& value, const YAML::Node& whole) {
    Split split;
    if (fields.isList(value, "split")) {
        for (const YAML::Node& offset : value) {
            split.at.push_back(fields.count(offset, "an offset of split"));
            if (split.at.size() > 1 && split.at[split.at.size() - 2] >= split.at.back()) {
                fields.report(offset, "the offsets of split ascend");
            }
        }
    }
    if (whole.IsMap() && whole["pause"]) {
        split.pause = fields.duration(whole["pause"], "pause");
    }
    return split;
}

Action readRestart(Fields& fields, const YAML::Node& value, const YAML::Node& /*whole*/) {
    Restart restart;
    if (value.IsMap() && fields.isMapOf(value, {"down"}) && value["down"]) {
        restart.down = fields.duration(value["down"], "down");
    } else if (!value.IsMap() && !value.IsNull()) {
        fields.report(value, "restart is a map, as in restart: {down: 1s}");
    }
    return restart;
}

Action readSet(Fields& fields, const YAML::Node& value, const YAML::Node& /*whole*/) {
    SetValue set;
    if (fields.isMapOf(value, {"name", "value"})) {
        if (!value["name"] || !value["value"]) {
            fields.report(value, "set has a name and a value");
            return set;
        }
        set.name = fields.name(value["name"]);
        set.value = fields.value(value["value"]);
    }
    return set;
}

std::uint16_t readId(Fields& fields, const YAML::Node& value) {
    constexpr std::int64_t kLargest = 65'535;
    return static_cast<std::uint16_t>(fields.integer(value, "a simulator id", 0, kLargest));
}

const std::map<std::string, Form, std::less<>>& forms() {
    const auto none = [](const Action& action) {
        return
            [action](Fields& /*fields*/, const YAML::Node& /*value*/, const YAML::Node& /*whole*/) { return action; };
    };
    static const std::map<std::string, Form, std::less<>> all{
        {"withhold", {none(Withhold{}), false, {}}},
        {"stop-reading", {none(StopReading{}), false, {}}},
        {"stop-answering", {none(StopAnswering{}), false, {}}},
        {"split", {readSplit, true, {"pause"}}},
        {"restart", {readRestart, false, {}}},
        {"set", {readSet, true, {}}},
        {"delay",
         {[](Fields& f, const YAML::Node& v, const YAML::Node&) { return Delay{f.duration(v, "delay")}; }, true, {}}},
        {"hang",
         {[](Fields& f, const YAML::Node& v, const YAML::Node&) { return Hang{f.duration(v, "hang")}; }, true, {}}},
        {"refuse",
         {[](Fields& f, const YAML::Node& v, const YAML::Node&) { return Refuse{f.duration(v, "refuse")}; }, true, {}}},
        {"duplicate",
         {[](Fields& f, const YAML::Node& v, const YAML::Node&) {
              return Duplicate{v.IsDefined() && !v.IsNull() ? f.count(v, "duplicate") : 1};
          },
          false,
          {}}},
        {"reorder",
         {[](Fields& f, const YAML::Node& v, const YAML::Node&) {
              return Reorder{v.IsDefined() && !v.IsNull() ? f.count(v, "reorder") : 1};
          },
          false,
          {}}},
        {"change-ids",
         {[](Fields& f, const YAML::Node& v, const YAML::Node&) {
              return ChangeIds{f.integer(v, "change-ids", -0xFFFFFFFFLL, 0xFFFFFFFFLL)};
          },
          true,
          {}}},
        {"change-value",
         {[](Fields& f, const YAML::Node& v, const YAML::Node&) { return ChangeValue{f.number(v, "change-value")}; },
          true,
          {}}},
        {"change-type",
         {[](Fields& f, const YAML::Node& v, const YAML::Node&) {
              return ChangeType{f.word(v, "type", {"float", "int"}) == "int"};
          },
          true,
          {}}},
        {"truncate",
         {[](Fields& f, const YAML::Node& v, const YAML::Node&) { return Truncate{f.count(v, "truncate")}; },
          true,
          {}}},
        {"frame-length",
         {[](Fields& f, const YAML::Node& v, const YAML::Node&) {
              return StateLength{static_cast<std::uint32_t>(f.integer(v, "frame-length", 0))};
          },
          true,
          {}}},
        {"record-count",
         {[](Fields& f, const YAML::Node& v, const YAML::Node&) {
              return StateCount{static_cast<std::uint32_t>(f.integer(v, "record-count", 0))};
          },
          true,
          {}}},
        {"garbage",
         {[](Fields& f, const YAML::Node& v, const YAML::Node&) {
              constexpr std::int64_t kMost = 1'000'000;
              return Garbage{static_cast<std::size_t>(f.integer(v, "garbage", 1, kMost))};
          },
          true,
          {}}},
        {"simulator-id",
         {[](Fields& f, const YAML::Node& v, const YAML::Node&) { return StateSimulatorId{readId(f, v)}; }, true, {}}},
        {"assign-id",
         {[](Fields& f, const YAML::Node& v, const YAML::Node&) { return AssignId{readId(f, v)}; }, true, {}}},
        {"drop",
         {[](Fields& f, const YAML::Node& v, const YAML::Node&) {
              return Drop{v.IsDefined() && !v.IsNull() && f.word(v, "way to drop", {"close", "reset"}) == "reset"};
          },
          false,
          {}}},
    };
    return all;
}

std::vector<std::string_view> actionNames() {
    std::vector<std::string_view> names;
    for (const auto& [name, form] : forms()) {
        names.push_back(name);
    }
    return names;
}

bool isPermitted(const Action& action, Place place) {
    switch (place) {
        case Place::SENT:
            return appliesToSent(action);
        case Place::RECEIVED:
            return appliesToReceived(action);
        case Place::ACCEPTED:
            return appliesToAccepted(action);
        case Place::TIMELINE:
            return appliesToTimeline(action);
    }
    return false;
}

const char* textOf(Place place) {
    switch (place) {
        case Place::SENT:
            return "a message that the host sends";
        case Place::RECEIVED:
            return "a message that the host receives";
        case Place::ACCEPTED:
            return "a connection that the host accepts";
        case Place::TIMELINE:
            return "the timeline";
    }
    return "";
}

void readAction(Fields& fields, const YAML::Node& node, Place place, std::vector<Action>& actions) {
    std::string name;
    YAML::Node at = node;
    YAML::Node value;
    if (node.IsScalar()) {
        name = node.Scalar();
    } else if (node.IsMap() && node.size() > 0) {
        // The action is the key that names one; the others belong to it.
        for (const auto& entry : node) {
            if (entry.first.IsScalar() && (name.empty() || forms().count(entry.first.Scalar()) != 0)) {
                name = entry.first.Scalar();
                at.reset(entry.first);  // An assignment would change the document.
                value.reset(entry.second);
            }
        }
    } else {
        fields.report(node, "expected an action, as in {delay: 800ms}");
        return;
    }
    const auto found = forms().find(name);
    if (found == forms().end()) {
        fields.report(at, "unknown action \"" + name + '"' + suggestion(name, actionNames()));
        return;
    }
    const Form& form = found->second;
    if (node.IsMap()) {
        std::vector<std::string_view> keys = form.otherKeys;
        keys.push_back(found->first);
        fields.isMapOf(node, keys);
    }
    if (form.needsValue && (!value.IsDefined() || value.IsNull())) {
        fields.report(at, "the action " + name + " needs a value");
        return;
    }
    const Action action = form.read(fields, value, node);
    if (!isPermitted(action, place)) {
        fields.report(at, "the action " + name + " does not apply to " + textOf(place));
        return;
    }
    actions.push_back(action);
}

}  // namespace

std::vector<Action> readActions(Fields& fields, const YAML::Node& node, Place place) {
    std::vector<Action> actions;
    if (node.IsSequence()) {
        for (const YAML::Node& entry : node) {
            readAction(fields, entry, place, actions);
        }
    } else {
        readAction(fields, node, place, actions);
    }
    return actions;
}

}  // namespace com_tesk::scenario
