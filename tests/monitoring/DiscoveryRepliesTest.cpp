#include "tests/monitoring/DiscoverySchema.h"
#include "tools/csmqtt/Discovery.h"

namespace com_tesk::monitoring_test {
namespace {

using namespace mqtt;

/// A bridge with one value and one switch.
class DiscoveryReplies : public testing::Test {
  protected:
    DiscoveryReplies() {
        config.base = "hall";
        config.discovery = Discovery::HOME_ASSISTANT;
        config.toMqtt = {shown("altitude")};
        FromMqtt lamp = command("lamp");
        lamp.control = Control::SWITCH;
        config.fromMqtt = {lamp};
    }

    std::string description() const { return discoveryMessages(config, "1").at(0).payload; }

    std::vector<Message> repliesTo(const std::string& payload, bool isRetained = true) const {
        return discoveryReplies(config, "1", discoveryTopic(config), payload, isRetained);
    }

    Config config;
};

TEST_F(DiscoveryReplies, RepeatTheDescriptionWhenHomeAutomationHasStarted) {
    for (const bool isRetained : {false, true}) {
        const auto messages = discoveryReplies(config, "1", "homeassistant/status", "online", isRetained);
        ASSERT_EQ(messages.size(), 1U);
        EXPECT_EQ(messages[0].payload, description());
    }
    EXPECT_TRUE(discoveryReplies(config, "1", "homeassistant/status", "offline", false).empty());
    EXPECT_TRUE(discoveryReplies(config, "1", "hall/status", "online", false).empty());
}

TEST_F(DiscoveryReplies, AreSubscribedTo) {
    EXPECT_EQ(discoverySubscriptions(config),
              (std::vector<std::string>{"homeassistant/device/csmqtt_hall/config", "homeassistant/status"}));
    config.discovery = Discovery::NONE;
    EXPECT_EQ(discoverySubscriptions(config), std::vector<std::string>{"homeassistant/device/csmqtt_hall/config"});
}

TEST_F(DiscoveryReplies, RemoveComponentsThatAreNestedDeeply) {
    constexpr std::size_t kDepth = 200'000;
    const auto messages = repliesTo(R"({"origin":{"name":"csmqtt"},"components":{"x":{"platform":"sensor","y":)" +
                                    std::string(kDepth, '[') + std::string(kDepth, ']') + "}}}");
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(nlohmann::json::parse(messages[0].payload)["components"]["x"].dump(), R"({"platform":"sensor"})");
}

TEST_F(DiscoveryReplies, RemoveWhatIsNoLongerConfigured) {
    const std::string before = description();
    config.toMqtt = {shown("speed")};
    const auto messages = repliesTo(before);
    ASSERT_EQ(messages.size(), 2U);
    const Json removal = Json::parse(messages[0].payload);
    EXPECT_EQ(removal["components"]["v_altitude"], Json::parse(R"({"platform": "sensor"})"));
    EXPECT_TRUE(removal["components"].contains("v_speed"));
    EXPECT_TRUE(removal["components"].contains("set_lamp"));
    EXPECT_EQ(messages[1].payload, description());
    EXPECT_TRUE(messages[0].isRetained && messages[1].isRetained);
}

TEST_F(DiscoveryReplies, RemoveASwitchThatIsANumberNow) {
    const std::string before = description();
    config.fromMqtt[0].control = Control::NUMBER;
    const auto messages = repliesTo(before);
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(Json::parse(messages[0].payload)["components"]["set_lamp"], Json::parse(R"({"platform": "switch"})"));
    EXPECT_EQ(Json::parse(messages[1].payload)["components"]["set_lamp"]["platform"], "number");
}

TEST_F(DiscoveryReplies, AreNoneWhenNothingIsToBeRemoved) {
    EXPECT_TRUE(repliesTo(description()).empty());
    const std::string before = description();
    config.toMqtt.push_back(shown("speed"));
    EXPECT_TRUE(repliesTo(before).empty());
}

TEST_F(DiscoveryReplies, AreNoneToTheRemovalItself) {
    const std::string before = description();
    config.toMqtt.clear();
    const auto messages = repliesTo(before);
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_TRUE(repliesTo(messages[0].payload).empty());
    EXPECT_TRUE(repliesTo(messages[1].payload).empty());
    EXPECT_TRUE(repliesTo(before, false).empty()) << "not from before the subscription";
}

TEST_F(DiscoveryReplies, RemoveTheDeviceWhenDiscoveryIsOff) {
    const std::string before = description();
    config.discovery = Discovery::NONE;
    const auto messages = repliesTo(before);
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].payload, "");
    EXPECT_EQ(messages[0].topic, discoveryTopic(config));
    EXPECT_TRUE(messages[0].isRetained);
}

TEST_F(DiscoveryReplies, LeaveAloneWhatAnotherProgramHasPublished) {
    const std::string own = R"({"origin": {"name": "csmqtt"}, "components": )";
    for (const std::string& payload :
         {std::string(), std::string("{"), std::string("[]"), std::string("1"), std::string("{}"), std::string("\xFF"),
          std::string(R"({"origin": {"name": "other"}, "components": {"v_a": {"platform": "sensor", "x": 1}}})"),
          std::string(R"({"origin": [], "components": {"v_a": {"platform": "sensor", "x": 1}}})"),
          std::string(R"({"components": {"v_a": {"platform": "sensor", "x": 1}}})"), own + "[]}", own + "{}}",
          own + R"({"v_a": 1}})", own + R"({"v_a": {"platform": 1, "x": 1}}})", own + R"({"v_a": {}}})"}) {
        EXPECT_TRUE(repliesTo(payload).empty()) << payload;
        config.discovery = Discovery::NONE;
        repliesTo(payload);  // Must not throw.
        config.discovery = Discovery::HOME_ASSISTANT;
    }
}

}  // namespace
}  // namespace com_tesk::monitoring_test
