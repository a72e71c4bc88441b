#include "host/scenario/Actions.h"

#include <array>

namespace com_tesk::scenario {

namespace {

/// In the order of the alternatives of `Action`.
struct Properties {
    const char* name;
    bool isForSent;
    bool isForReceived;
    bool isForAccepted;
    bool isForTimeline;
};

constexpr std::array<Properties, std::variant_size_v<Action>> kProperties{{
    {"withhold", true, true, false, false},
    {"delay", true, true, false, false},
    {"duplicate", true, true, false, false},
    {"change-ids", true, false, false, false},
    {"change-value", true, false, false, false},
    {"change-type", true, false, false, false},
    {"reorder", true, false, false, false},
    {"split", true, false, false, false},
    {"truncate", true, false, false, false},
    {"frame-length", true, false, false, false},
    {"record-count", true, false, false, false},
    {"garbage", true, false, false, false},
    {"simulator-id", true, false, false, false},
    {"drop", true, true, true, true},
    {"stop-reading", true, true, true, true},
    {"stop-answering", true, true, true, true},
    {"hang", true, true, true, true},
    {"refuse", true, true, true, true},
    {"restart", true, true, true, true},
    {"assign-id", true, true, true, true},
    {"set", true, true, true, true},
}};

const Properties& propertiesOf(const Action& action) {
    return kProperties.at(action.index());
}

}  // namespace

const char* nameOf(const Action& action) {
    return propertiesOf(action).name;
}

bool appliesToSent(const Action& action) {
    return propertiesOf(action).isForSent;
}

bool appliesToReceived(const Action& action) {
    return propertiesOf(action).isForReceived;
}

bool appliesToAccepted(const Action& action) {
    return propertiesOf(action).isForAccepted;
}

bool appliesToTimeline(const Action& action) {
    return propertiesOf(action).isForTimeline;
}

}  // namespace com_tesk::scenario
