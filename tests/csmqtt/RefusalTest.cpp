#include "tests/csmqtt/support/Csmqtt.h"
#include "tests/csmqtt/support/FakeBroker.h"

namespace com_tesk::mqtt_test {

namespace {

using Refusal = BridgeTest;

constexpr unsigned char kGranted = 0x01;
constexpr unsigned char kNotAuthorized = 0x87;

}  // namespace

TEST_F(Refusal, OfASubscriptionIsReported) {
    LoopbackHost host(hostOptions());
    const FakeBroker broker([](const std::string& packet) {
        const bool isCommands = packet.find("b/set/+") != std::string::npos;
        return answerTo(packet, isCommands ? kNotAuthorized : kGranted);
    });
    Csmqtt csmqtt = Csmqtt::withConfig(config(broker.address(), "from_mqtt: [x]\n"));
    EXPECT_TRUE(csmqtt.waitForErr("it refuses the subscription to b/set/+: Not authorized")) << csmqtt.errText();
    EXPECT_EQ(csmqtt.errText().find("subscription to b/$state"), std::string::npos);
    csmqtt.expectCleanEnd();
}

}  // namespace com_tesk::mqtt_test
