// The events of cshost as lines of JSON.

#include "tools/HostEventJson.h"

#include <gtest/gtest.h>

#include <limits>
#include <nlohmann/json.hpp>

namespace com_tesk::tools {
namespace {

using nlohmann::json;

HostEvent eventOf(HostEvent::Kind kind) {
    HostEvent event;
    event.kind = kind;
    event.time = std::chrono::system_clock::time_point(std::chrono::microseconds(1'795'298'645'123'456));
    event.client = 2;
    return event;
}

/// Parses the line and checks the members that every event has. Returns the others.
json othersOf(const HostEvent& event, const std::string& name) {
    const std::string line = jsonOf(event);
    EXPECT_EQ(line.find('\n'), std::string::npos);
    json parsed = json::parse(line);
    EXPECT_EQ(parsed.at("t"), "2026-11-21T22:04:05.123456Z");
    EXPECT_EQ(parsed.at("event"), name);
    EXPECT_EQ(parsed.at("client"), 2);
    parsed.erase("t");
    parsed.erase("event");
    parsed.erase("client");
    return parsed;
}

TEST(HostEventJson, HasATextForKindsWithoutAName) {
    const std::pair<HostEvent::Kind, const char*> kinds[] = {
        {HostEvent::Kind::LISTENING, "listening"},
        {HostEvent::Kind::ACCEPT_FAILED, "accept_failed"},
        {HostEvent::Kind::CONNECTED, "connected"},
        {HostEvent::Kind::LEFT, "left"},
        {HostEvent::Kind::LOST, "lost"},
        {HostEvent::Kind::DROPPED, "dropped"},
        {HostEvent::Kind::VERSION_ANSWERED, "version_answered"},
        {HostEvent::Kind::REQUEST_IGNORED, "request_ignored"},
        {HostEvent::Kind::FAULT, "fault"},
    };
    for (const auto& [kind, name] : kinds) {
        HostEvent event = eventOf(kind);
        event.text = "127.0.0.1:55580";
        EXPECT_EQ(othersOf(event, name), json({{"text", "127.0.0.1:55580"}})) << name;
        event.text.clear();
        EXPECT_EQ(othersOf(event, name), json::object()) << name;
    }
}

TEST(HostEventJson, HasNothingElseWhenTheHostHasStopped) {
    EXPECT_EQ(othersOf(eventOf(HostEvent::Kind::STOPPED), "stopped"), json::object());
}

TEST(HostEventJson, HasTheIdOfAClientAndOfAnUnknownParameter) {
    HostEvent changed = eventOf(HostEvent::Kind::SIMULATOR_ID_CHANGED);
    changed.id = 9;
    EXPECT_EQ(othersOf(changed, "simulator_id_changed"), json({{"id", 9}}));
    HostEvent unknown = eventOf(HostEvent::Kind::UNKNOWN_ID);
    unknown.id = std::numeric_limits<std::uint32_t>::max();
    unknown.text = "publish";
    EXPECT_EQ(othersOf(unknown, "unknown_id"), json({{"id", 4'294'967'295U}, {"text", "publish"}}));
}

TEST(HostEventJson, HasNameIdAndValueOfAParameter) {
    const std::pair<HostEvent::Kind, const char*> kinds[] = {
        {HostEvent::Kind::INPUT_CONFIRMED, "input_confirmed"},
        {HostEvent::Kind::PUBLISHED, "published"},
        {HostEvent::Kind::UPDATED, "updated"},
    };
    for (const auto& [kind, name] : kinds) {
        HostEvent event = eventOf(kind);
        event.name = "altitude";
        event.id = 4;
        event.value = HostValue::real(12.5F);
        EXPECT_EQ(othersOf(event, name), json({{"name", "altitude"}, {"id", 4}, {"type", "float"}, {"value", 12.5}}));
        event.value = HostValue::integer(-3);
        EXPECT_EQ(othersOf(event, name), json({{"name", "altitude"}, {"id", 4}, {"type", "int"}, {"value", -3}}));
    }
}

TEST(HostEventJson, HasTheNameThatTheHostDoesNotKnow) {
    HostEvent event = eventOf(HostEvent::Kind::NAME_REFUSED);
    event.name = "altitude";
    EXPECT_EQ(othersOf(event, "name_refused"), json({{"name", "altitude"}}));
}

TEST(HostEventJson, HasNoIdForAValueThatTheHostSets) {
    HostEvent event = eventOf(HostEvent::Kind::VALUE_SET);
    event.name = "altitude";
    event.value = HostValue::integer(7);
    EXPECT_EQ(othersOf(event, "value_set"), json({{"name", "altitude"}, {"type", "int"}, {"value", 7}}));
}

TEST(HostEventJson, HasTheTypeOfAnOutputThatIsConfirmed) {
    HostEvent event = eventOf(HostEvent::Kind::OUTPUT_CONFIRMED);
    event.name = "altitude";
    event.id = 5;
    event.text = "integer";
    EXPECT_EQ(othersOf(event, "output_confirmed"), json({{"name", "altitude"}, {"id", 5}, {"type", "int"}}));
    event.text = "float";
    EXPECT_EQ(othersOf(event, "output_confirmed"), json({{"name", "altitude"}, {"id", 5}, {"type", "float"}}));
}

TEST(HostEventJson, HasNameAndIdOfAParameterThatIsRemoved) {
    for (const auto& [kind, name] : {std::pair(HostEvent::Kind::INPUT_UNSUBSCRIBED, "input_unsubscribed"),
                                     std::pair(HostEvent::Kind::OUTPUT_UNREGISTERED, "output_unregistered")}) {
        HostEvent event = eventOf(kind);
        event.name = "altitude";
        event.id = 6;
        EXPECT_EQ(othersOf(event, name), json({{"name", "altitude"}, {"id", 6}}));
    }
}

TEST(HostEventJson, HasNumbersThatReadBackTheSame) {
    HostEvent event = eventOf(HostEvent::Kind::VALUE_SET);
    for (const float number : {0.1F, 16'777'216.0F, 1e-38F, std::numeric_limits<float>::denorm_min(),
                               std::numeric_limits<float>::max(), -1.25F}) {
        event.value = HostValue::real(number);
        EXPECT_EQ(othersOf(event, "value_set").at("value").get<float>(), number);
    }
    event.value = HostValue::real(0.1F);
    EXPECT_NE(jsonOf(event).find("\"value\":0.1}"), std::string::npos) << "not the shortest";
    for (const std::int32_t number : {std::numeric_limits<std::int32_t>::min(), 0, 2'147'483'647}) {
        event.value = HostValue::integer(number);
        EXPECT_EQ(othersOf(event, "value_set").at("value").get<std::int32_t>(), number);
    }
}

TEST(HostEventJson, HasStringsForWhatIsNoNumberOfJson) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    HostEvent event = eventOf(HostEvent::Kind::VALUE_SET);
    for (const auto& [number, text] : {std::pair(std::numeric_limits<float>::quiet_NaN(), "nan"),
                                       std::pair(kInfinity, "inf"), std::pair(-kInfinity, "-inf")}) {
        event.value = HostValue::real(number);
        EXPECT_EQ(othersOf(event, "value_set").at("value"), text);
    }
}

TEST(HostEventJson, HasEveryByteOfANameAndAText) {
    HostEvent event = eventOf(HostEvent::Kind::OUTPUT_UNREGISTERED);
    const std::string texts[] = {"quote\" backslash\\ slash/", std::string("\0\x01\x1F\n\t\x7F", 6), "h\u00F6he", ""};
    for (const std::string& text : texts) {
        event.name = text;
        EXPECT_EQ(othersOf(event, "output_unregistered").at("name"), text);
    }
    for (const std::string text : {"\xFF\x01", "\xC3", "\xC0\xAF", "\xED\xA0\x80", "a\xF5\x80\x80\x80"}) {
        event.name = text;
        const json others = othersOf(event, "output_unregistered");
        EXPECT_FALSE(others.contains("name"));
        std::string bytes;
        const std::string digits = others.at("name_hex");
        for (std::size_t i = 0; i < digits.size(); i += 2) {
            bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
        }
        EXPECT_EQ(bytes, text);
    }
    event = eventOf(HostEvent::Kind::VERSION_ANSWERED);
    event.text = "\xFF";
    EXPECT_EQ(othersOf(event, "version_answered"), json({{"text_hex", "ff"}}));
}

}  // namespace
}  // namespace com_tesk::tools
