#include "tools/HostEventJson.h"

#include <array>
#include <charconv>
#include <cmath>
#include <string_view>

#include "tools/Json.h"
#include "tools/Utc.h"

namespace com_tesk::tools {

namespace {

/// The name of a kind in lower case, and the members that it has besides its time and client.
struct KindLayout {
    std::string_view name;
    bool hasName;
    bool hasId;
};

KindLayout layoutOf(HostEvent::Kind kind) {
    switch (kind) {
        case HostEvent::Kind::LISTENING:
            return {"listening", false, false};
        case HostEvent::Kind::STOPPED:
            return {"stopped", false, false};
        case HostEvent::Kind::ACCEPT_FAILED:
            return {"accept_failed", false, false};
        case HostEvent::Kind::CONNECTED:
            return {"connected", false, false};
        case HostEvent::Kind::LEFT:
            return {"left", false, false};
        case HostEvent::Kind::LOST:
            return {"lost", false, false};
        case HostEvent::Kind::DROPPED:
            return {"dropped", false, false};
        case HostEvent::Kind::VERSION_ANSWERED:
            return {"version_answered", false, false};
        case HostEvent::Kind::SIMULATOR_ID_CHANGED:
            return {"simulator_id_changed", false, true};
        case HostEvent::Kind::INPUT_CONFIRMED:
            return {"input_confirmed", true, true};
        case HostEvent::Kind::INPUT_UNSUBSCRIBED:
            return {"input_unsubscribed", true, true};
        case HostEvent::Kind::OUTPUT_CONFIRMED:
            return {"output_confirmed", true, true};
        case HostEvent::Kind::OUTPUT_UNREGISTERED:
            return {"output_unregistered", true, true};
        case HostEvent::Kind::PUBLISHED:
            return {"published", true, true};
        case HostEvent::Kind::UPDATED:
            return {"updated", true, true};
        case HostEvent::Kind::VALUE_SET:
            return {"value_set", true, false};
        case HostEvent::Kind::NAME_REFUSED:
            return {"name_refused", true, false};
        case HostEvent::Kind::UNKNOWN_ID:
            return {"unknown_id", false, true};
        case HostEvent::Kind::REQUEST_IGNORED:
            return {"request_ignored", false, false};
        case HostEvent::Kind::FAULT:
            return {"fault", false, false};
    }
    return {"unknown", true, true};
}

/// The shortest text that reads back the same. JSON has no numbers for infinities and for what is no number.
std::string numberOf(const HostValue& value) {
    std::array<char, 40> text{};
    char* const begin = text.data();
    char* const end = begin + text.size();
    if (value.isInteger()) {
        return {begin, std::to_chars(begin, end, value.asInteger()).ptr};
    }
    const float real = value.asReal();
    if (std::isnan(real)) {
        return "\"nan\"";
    }
    if (std::isinf(real)) {
        return real > 0 ? "\"inf\"" : "\"-inf\"";
    }
    return {begin, std::to_chars(begin, end, real).ptr};
}

}  // namespace

std::string jsonOf(const HostEvent& event) {
    const KindLayout layout = layoutOf(event.kind);
    std::string line = '{' + jsonMember("t", utcOf(event.time)) + ',' + jsonMember("event", layout.name) +
                       ",\"client\":" + std::to_string(event.client);
    if (layout.hasName) {
        line += ',' + jsonMember("name", event.name);
    }
    if (layout.hasId) {
        line += ",\"id\":" + std::to_string(event.id);
    }
    if (event.kind == HostEvent::Kind::OUTPUT_CONFIRMED) {
        line += ',' + jsonMember("type", event.text == "integer" ? "int" : "float");
    } else if (event.value) {
        line += ',' + jsonMember("type", event.value->isInteger() ? "int" : "float") +
                ",\"value\":" + numberOf(*event.value);
    } else if (!event.text.empty()) {
        line += ',' + jsonMember("text", event.text);
    }
    return line + '}';
}

}  // namespace com_tesk::tools
