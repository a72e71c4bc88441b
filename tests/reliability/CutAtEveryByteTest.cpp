#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "tests/reliability/ClientKinds.h"
#include "tests/reliability/CuttingHost.h"
#include "tests/reliability/SideBySide.h"
#include "tests/reliability/Sockets.h"
#include "tests/support/Emulator.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

using View = CuttingHost::View;
using Names = std::set<std::string>;

/// A client that connects again sleeps for seconds, so the sessions of its sweep run side by side; one that does not is
/// busy all the time. Fewer under an emulator, which starts one thread at a time and lets others wait for very long when
/// hundreds want to start.
const std::size_t kSleepingSessionsAtATime = isEmulated() ? 40 : 64;
constexpr std::size_t kBusySessionsAtATime = 8;

/// Other tests run beside these, with threads by the hundred.
constexpr std::chrono::seconds kPatience{40};

/// What the whole session carries when nothing is cut. To the host: the version request 52, two inputs 140, three
/// outputs 172, three values 92, one value 68, one unregistration 56. To the client: the version 184, two inputs 156,
/// three outputs 196, three updates of 80 each.
constexpr std::size_t kBytesToHost = 580;
constexpr std::size_t kBytesToClient = 776;

CSClient::Parameter value(const std::string& name, float number) {
    CSClient::Parameter parameter;
    parameter.name = name;
    parameter.value.asFloat = number;
    parameter.type = CSClient::TYPE_FLOAT;
    return parameter;
}

bool holds(const View& view, const std::string& name, float number) {
    const auto found = view.values.find(name);
    return found != view.values.end() && found->second == HostValue::real(number);
}

/// One thing that the application does, and how it shows that it has reached the host and was answered.
struct Step {
    std::function<int(CSClient& client, unsigned int port)> act;
    std::function<bool(const View&)> isAtHost;
    std::string heard;  ///< the callback that the client gets for it
};

bool isOver(const View& view) {
    return view.inputs == Names{"IN1", "IN2"} && view.outputs == Names{"A", "B"} && holds(view, "A", 1.0F) &&
           holds(view, "B", 20.0F);
}

/// Each step waits for the one before, so that no request crosses a cut: who unregisters what is not confirmed yet
/// has the host keep it.
const std::vector<Step>& session() {
    static const std::vector<Step> steps = {
        {[](CSClient& client, unsigned int port) { return client.open(kHostAddress, port, nullptr); },
         [](const View& view) { return view.hasAnsweredVersion; }, "state 2->4"},
        {[](CSClient& client, unsigned int /*port*/) {
             return client.registerInputParameters(
                 {{"IN1", CSClient::TYPE_FLOAT, 1}, {"IN2", CSClient::TYPE_FLOAT, 2}});
         },
         [](const View& view) { return view.inputs.size() == 2; }, "inputs confirmed IN1 IN2"},
        {[](CSClient& client, unsigned int /*port*/) {
             return client.registerOutputParameters(
                 {{"A", CSClient::TYPE_FLOAT}, {"B", CSClient::TYPE_FLOAT}, {"C", CSClient::TYPE_FLOAT}});
         },
         [](const View& view) { return view.outputs.size() == 3; }, "outputs confirmed A B C"},
        {[](CSClient& client, unsigned int /*port*/) {
             return client.publishParameters({value("A", 1.0F), value("B", 2.0F), value("C", 3.0F)});
         },
         [](const View& view) { return holds(view, "A", 1.0F) && holds(view, "B", 2.0F) && holds(view, "C", 3.0F); },
         ""},
        {[](CSClient& client, unsigned int /*port*/) { return client.publishParameter(value("B", 20.0F)); },
         [](const View& view) { return holds(view, "A", 1.0F) && holds(view, "B", 20.0F) && holds(view, "C", 3.0F); },
         ""},
        {[](CSClient& client, unsigned int /*port*/) { return client.unregisterOutputParameter("C"); }, isOver, ""},
    };
    return steps;
}

/// Waits for what no callback tells.
bool eventually(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// Becoming ready includes registering again what there is: what is registered meanwhile would be sent twice.
void untilNothingIsSent(const CSClient& client) {
    client.waitForConnectionState(CSClient::STATE_READY, 0);
}

std::string describe(const View& view) {
    std::string text = "connections " + std::to_string(view.connections) + ", inputs";
    for (const std::string& name : view.inputs) {
        text += ' ' + name;
    }
    text += ", outputs";
    for (const std::string& name : view.outputs) {
        text += ' ' + name;
    }
    for (const auto& [name, number] : view.values) {
        text += ", " + name + '=' + number.text();
    }
    return text;
}

/// A reset before the first byte can overtake the client's connect, which then counts as a failed attempt.
bool mayFailToConnect(const CuttingHost::Cut& cut) {
    return cut.afterBytes == 0 && cut.ending == Ending::RESET;
}

/// The cut session of a client that connects again: its second connection has to end with everything in place.
std::string cutAndReconnect(const ClientKind& kind, const CuttingHost::Cut& cut) {
    CuttingHost host(cut);
    RecordingCallbacks heard;
    const auto client = kind.make(7, CSClient::OPTION_AUTO_RECONNECT | CSClient::OPTION_SILENT);
    client->addCallbackInterface(&heard);
    for (std::size_t i = 0; i < session().size(); ++i) {
        const Step& step = session()[i];
        const std::string where = "step " + std::to_string(i);
        const int result = step.act(*client, host.port());
        if (result != 0 && result != 2) {
            return where + " gave " + std::to_string(result);
        }
        if (!host.waitUntil(step.isAtHost, kPatience)) {
            return where + " has not reached the host: " + describe(host.view());
        }
        if (!step.heard.empty() && !heard.waitFor(step.heard, 1, kPatience)) {
            return where + ": never heard: " + step.heard;
        }
        untilNothingIsSent(*client);
    }
    if (!host.waitUntil([](const View& view) { return view.connections == 2 && isOver(view); }, kPatience)) {
        return "the second connection ends with " + describe(host.view());
    }
    if (!eventually([&] {
            return client->getNumberOfUnregisteredInputParameters() == 0 && client->isInputParameterRegistered("IN1") &&
                   client->isInputParameterRegistered("IN2");
        })) {
        return "inputs that are not confirmed again";
    }
    if (!client->isOutputParameterRegistered("A") || !client->isOutputParameterRegistered("B") ||
        client->isOutputParameterRegistered("C")) {
        return "the outputs are not A and B";
    }
    const std::string states = heard.states();
    if (states != "0->1 1->2 2->4 4->5 5->1 1->2 2->4" && !(mayFailToConnect(cut) && states == "0->1 1->2 2->4")) {
        return "states " + states;
    }
    return "";
}

/// The cut session of a client that does not connect again.
std::string cutAndEnd(const ClientKind& kind, const CuttingHost::Cut& cut) {
    CuttingHost host(cut);
    RecordingCallbacks heard;
    const auto client = kind.make(7, CSClient::OPTION_SILENT);
    client->addCallbackInterface(&heard);
    for (const Step& step : session()) {
        step.act(*client, host.port());
        if (!host.waitUntil([&step](const View& view) { return view.isCut || step.isAtHost(view); }, kPatience)) {
            return "a step has not reached the host: " + describe(host.view());
        }
        if (host.view().isCut) {
            break;
        }
        if (!step.heard.empty() && !heard.waitFor(step.heard, 1, kPatience)) {
            return "never heard: " + step.heard;
        }
        untilNothingIsSent(*client);
    }
    if (!host.waitUntil([](const View& view) { return view.isCut; }, kPatience)) {
        return "never cut";
    }
    if (!eventually([&] { return client->getConnectionState() == CSClient::STATE_DISCONNECTED; })) {
        return "never ends; states " + heard.states();
    }
    const std::string states = heard.states();
    if (states != "0->1 1->2 2->4 4->3 3->0" && !(mayFailToConnect(cut) && states == "0->1 1->3 3->0")) {
        return "states " + states;
    }
    std::vector<CSClient::Parameter> published;
    client->getAllPublishedParameters(published);
    if (!published.empty() || client->getNumberOfUnregisteredInputParameters() != 0 ||
        client->getNumberOfRegisteredInputParameters() != 0 || client->getNumberOfUnregisteredOutputParameters() != 0 ||
        client->getNumberOfRegisteredOutputParameters() != 0) {
        return "tables that are not empty";
    }
    if (client->getServerPort() != 0) {
        return "a port that is still there";
    }
    return "";
}

class UncutSession : public testing::TestWithParam<ClientKind> {};

TEST_P(UncutSession, CarriesTheBytesThatTheSweepsCutAt) {
    CuttingHost host(std::nullopt);
    RecordingCallbacks heard;
    const auto client = GetParam().make(7, CSClient::OPTION_SILENT);
    client->addCallbackInterface(&heard);
    for (const Step& step : session()) {
        ASSERT_EQ(step.act(*client, host.port()), 0);
        ASSERT_TRUE(host.waitUntil(step.isAtHost, kPatience)) << describe(host.view());
        ASSERT_TRUE(step.heard.empty() || heard.waitFor(step.heard)) << step.heard;
        untilNothingIsSent(*client);
    }
    EXPECT_EQ(host.view().received, kBytesToHost);
    EXPECT_EQ(host.view().sent, kBytesToClient);
    EXPECT_TRUE(heard.waitFor("updated IN1=float:3 IN2=float:3"));
}

INSTANTIATE_TEST_SUITE_P(Client, UncutSession, testing::ValuesIn(kClientKinds),
                         [](const auto& tested) { return std::string(tested.param.name); });

class CutAtEveryByte : public testing::TestWithParam<std::tuple<ClientKind, Direction, Ending>> {
  protected:
    using Session = std::string (*)(const ClientKind& kind, const CuttingHost::Cut& cut);

    /// One session for each number of bytes, none and all included.
    static std::string sweep(std::size_t sessionsAtATime, Session session) {
        const auto [kind, direction, ending] = GetParam();
        const std::size_t cuts = 1 + (direction == Direction::TO_HOST ? kBytesToHost : kBytesToClient);
        return sideBySide(cuts, sessionsAtATime,
                          [session, kind = kind, direction = direction, ending = ending](std::size_t index) {
                              return session(kind, CuttingHost::Cut{direction, ending, index});
                          });
    }
};

TEST_P(CutAtEveryByte, WithReconnectTheNextConnectionEndsWithEverythingInPlace) {
    EXPECT_EQ(sweep(kSleepingSessionsAtATime, &cutAndReconnect), "");
}

TEST_P(CutAtEveryByte, WithoutReconnectTheConnectionEndsAndNothingIsKept) {
    EXPECT_EQ(sweep(kBusySessionsAtATime, &cutAndEnd), "");
}

INSTANTIATE_TEST_SUITE_P(Client, CutAtEveryByte,
                         testing::Combine(testing::ValuesIn(kClientKinds),
                                          testing::Values(Direction::TO_HOST, Direction::TO_CLIENT),
                                          testing::Values(Ending::IN_ORDER, Ending::RESET)),
                         [](const auto& tested) {
                             return std::string(std::get<0>(tested.param).name) +
                                    (std::get<1>(tested.param) == Direction::TO_HOST ? "ToHost" : "ToClient") +
                                    (std::get<2>(tested.param) == Ending::IN_ORDER ? "InOrder" : "Reset");
                         });

}  // namespace
}  // namespace com_tesk::test
