#pragma once

#include "host/Scenario.h"
#include "host/scenario/FaultSelector.h"
#include "tests/host/HostTest.h"

namespace com_tesk::scenario_test {

using namespace std::chrono_literals;
using namespace com_tesk::scenario;
using namespace host_test;

/// Plays a scenario on a host whose clients the test controls byte by byte. Their simulator id is 5.
class FaultyHostTest : public HostTest {
  protected:
    /// Begins, with these additions to an empty scenario that does not end by itself.
    void play(const std::function<void(Scenario&)>& fill) {
        Scenario scenario("test");
        fill(scenario);
        if (!scenario.end) {
            scenario.ends(1h);
        }
        verdict = host().play(std::move(scenario));
    }
    void playFault(const Trigger& trigger, const Action& action) {
        play([&](Scenario& scenario) { scenario.when(trigger, action); });
    }

    /// Subscribes to a float, and checks that the id is 1.
    static void subscribeFirst(Client& client, const std::string& name = "A") {
        EXPECT_EQ(client.ask(subscribe(name)), hexText(hex(inputReply("00000001", "00000000 00000000", name))));
    }

    /// Sets a float that the client has subscribed to under the id 1, and returns the next frame.
    std::string nextAfterSetting(Client& client, float value) {
        host().setValue("A", HostValue::real(value));
        return client.receiveFrame();
    }

    /// True when the port accepts a connection.
    static bool canConnect(std::uint16_t port) {
        try {
            const Client client(port);
            return true;
        } catch (const std::system_error&) {
            return false;
        }
    }

    /// The update of the id 1, as bytes of a float.
    static std::string updateOfFirst(const std::string& valueHex) {
        return hexText(hex(update("00000001 00000000 " + valueHex)));
    }

    std::future<ScenarioVerdict> verdict;
};

}  // namespace com_tesk::scenario_test
