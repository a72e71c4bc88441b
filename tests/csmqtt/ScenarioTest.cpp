// The bridge with a host that fails as a scenario says. The scenario checks what the bridge does at the host.

#include "tests/csmqtt/support/Csmqtt.h"

namespace com_tesk::mqtt_test {

namespace {

using Scenarios = BridgeTest;

/// `cshost run` with one scenario.
class ScenarioHost : public test::ChildProcess {
  public:
    ScenarioHost(const std::string& path, std::uint16_t port)
        : ChildProcess(setup(), {"run", path, "--listen", test::ownAddress(), "--port", std::to_string(port)}) {}

  private:
    static Setup setup() {
        Setup result;
        result.path = CSHOST_PATH;
        result.ownName = "cshost";
        return result;
    }
};

}  // namespace

TEST_F(Scenarios, AHostThatFailsInManyWaysGetsTheCommandsAgain) {
    TestBroker broker;
    Subscriber subscriber(broker.port());
    const Csmqtt csmqtt({"--config", config(broker.address(), "to_mqtt: [x]\nfrom_mqtt: [z]\n")});
    ASSERT_TRUE(subscriber.waitFor("b/$host", "down"));
    subscriber.publishNow("b/set/z", "7");
    const std::string path = files.write("scenario.yaml", R"(
name: fails in many ways
values: {x: {steps: [[0s, 1], [3s, 40]]}}
faults:
  - on: {send: outputs-confirmed, nth: 1}
    do: {delay: 300ms}
  - on: {send: update, nth: 1}
    do: {split: [1, 33], pause: 100ms}
  - on: {send: inputs-confirmed, connection: 2}
    do: {change-ids: +1000}
  - on: {receive: publish, nth: 1}
    do: {drop: reset}
  - on: {receive: publish, nth: 2}
    do: {restart: {down: 300ms}}
expect:
  - {published: {name: z, value: 7}, at-least: 2, within: 60s}
  - {published: {name: z, value: 8}, within: 60s}
  - {never: unknown-id}
  - {never: bad-request}
)");
    ScenarioHost host(path, hostPort);
    EXPECT_TRUE(subscriber.waitFor("b/v/x", "40"));
    EXPECT_EQ(subscriber.newest("b/$host"), "up");
    subscriber.publish("b/set/z", "8");
    EXPECT_EQ(host.exitCode(), 0) << host.outText() << host.errText();
}

TEST_F(Scenarios, AHostThatFloodsAndStallsInAMessageIsFoundAgain) {
    TestBroker broker;
    const Subscriber subscriber(broker.port());
    const Csmqtt csmqtt({"--config", config(broker.address(), "to_mqtt: [x, {name: y, qos: 1, rate: 20Hz}]\n")});
    ASSERT_TRUE(subscriber.waitFor("b/$host", "down"));
    const std::string path = files.write("scenario.yaml", R"(
name: floods, and stops in the middle of a message
values:
  x: {ramp: {from: 0, to: 1000, over: 4s, rate: 2000Hz}}
  y: {ramp: {from: 0, to: 2000, over: 4s, rate: 2000Hz}}
faults:
  - on: {send: update, name: x, connection: 1, nth: 100}
    do: {split: [40], pause: 60s}
expect:
  - {client: connects, at-least: 2, within: 60s}
end: 60s
)");
    const ScenarioHost host(path, hostPort);
    EXPECT_TRUE(subscriber.waitFor("b/$host", "up"));
    EXPECT_TRUE(subscriber.waitFor("b/v/x", "1000", 2 * kWaitBound)) << subscriber.newest("b/v/x");
    EXPECT_TRUE(subscriber.waitFor("b/v/y", "2000")) << subscriber.newest("b/v/y");
    EXPECT_EQ(subscriber.newest("b/$host"), "up");
}

}  // namespace com_tesk::mqtt_test
