// Cuts the first connection of a client after each byte.

#include <algorithm>
#include <chrono>
#include <functional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "tests/reliability/AnsweringHost.h"
#include "tests/reliability/ClientUnderTest.h"
#include "tests/reliability/Stress.h"
#include "tests/support/Emulator.h"

namespace com_tesk::test {
namespace {

using View = AnsweringHost::View;
using Names = std::set<std::string>;

/// Many tests with hundreds of threads run at the same time.
constexpr std::chrono::seconds kBound{40};

/// The bytes of the whole session. To the host: the version request 52, two inputs 140, three outputs 172, three values
/// 92, one value 68, one unregistration 56. To the client: the version 184, two inputs 156, three outputs 196, three
/// updates of 80 each.
constexpr std::size_t kBytesToHost = 580;
constexpr std::size_t kBytesToClient = 776;

/// One operation of the application.
struct Operation {
    std::function<int(CSClient& client, unsigned int port)> call;
    std::function<bool(const View&)> isAtHost;
    std::string callback;  ///< that the client then gets
};

std::function<bool(const View&)> hasValues(const std::map<std::string, float>& values) {
    return [values](const View& view) {
        return std::all_of(values.begin(), values.end(), [&view](const auto& value) {
            const auto found = view.values.find(value.first);
            return found != view.values.end() && found->second == HostValue::real(value.second);
        });
    };
}

bool isComplete(const View& view) {
    return view.inputs == Names{"IN1", "IN2"} && view.outputs == Names{"A", "B"} &&
           hasValues({{"A", 1.0F}, {"B", 20.0F}})(view);
}

/// Each operation waits for the one before, so no request crosses a cut: the host keeps an output that is unregistered
/// before it is confirmed.
const std::vector<Operation>& session() {
    static const std::vector<Operation> operations = {
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
             return client.publishParameters(
                 {floatParameter("A", 1.0F), floatParameter("B", 2.0F), floatParameter("C", 3.0F)});
         },
         hasValues({{"A", 1.0F}, {"B", 2.0F}, {"C", 3.0F}}), ""},
        {[](CSClient& client, unsigned int /*port*/) { return client.publishParameter(floatParameter("B", 20.0F)); },
         hasValues({{"A", 1.0F}, {"B", 20.0F}, {"C", 3.0F}}), ""},
        {[](CSClient& client, unsigned int /*port*/) { return client.unregisterOutputParameter("C"); }, isComplete, ""},
    };
    return operations;
}

/// Runs the session against a host, until the cut when `endsAtCut`.
void runSession(const ClientUnderTest& client, const AnsweringHost& host, bool endsAtCut) {
    for (std::size_t i = 0; i < session().size(); ++i) {
        SCOPED_TRACE("operation " + std::to_string(i));
        const Operation& operation = session()[i];
        // Also when the host cuts the connection: it does so only after the whole request has been written.
        ASSERT_EQ(operation.call(*client, host.port()), 0);
        const auto isCut = [endsAtCut](const View& view) { return endsAtCut && view.isCut; };
        ASSERT_TRUE(host.waitUntil([&](const View& view) { return isCut(view) || operation.isAtHost(view); }, kBound))
            << host.view().text();
        if (isCut(host.view())) {
            break;
        }
        ASSERT_TRUE(operation.callback.empty() || client.callbacks.waitFor(operation.callback, 1, kBound));
        // Becoming ready includes registering everything again. Parameters registered meanwhile would be sent twice.
        client->waitForConnectionState(CSClient::STATE_READY, 0);
    }
}

/// @param afterFailedConnect  permitted as well when the reset comes before the first byte: it can overtake the client's
///                            connect, which then counts as a failed attempt.
void expectStates(const ClientUnderTest& client, const AnsweringHost::Cut& cut, const std::string& expected,
                  const std::string& afterFailedConnect) {
    const std::string states = client.callbacks.states();
    if (cut.afterBytes != 0 || !cut.isReset || states != afterFailedConnect) {
        EXPECT_EQ(states, expected);
    }
}

/// The second connection must end with everything in place.
void cutWithReconnect(const TransportKind& kind, const AnsweringHost::Cut& cut) {
    const AnsweringHost host({cut});
    const ClientUnderTest client(kind, kAutoReconnect);
    ASSERT_NO_FATAL_FAILURE(runSession(client, host, false));
    ASSERT_TRUE(host.waitUntil([](const View& view) { return view.connections == 2 && isComplete(view); }, kBound))
        << host.view().text();
    const auto areInputsConfirmed = [&client] {
        return client->getNumberOfUnregisteredInputParameters() == 0 && client->isInputParameterRegistered("IN1") &&
               client->isInputParameterRegistered("IN2");
    };
    ASSERT_TRUE(waitUntil(areInputsConfirmed, kBound));
    EXPECT_TRUE(client->isOutputParameterRegistered("A"));
    EXPECT_TRUE(client->isOutputParameterRegistered("B"));
    EXPECT_FALSE(client->isOutputParameterRegistered("C"));
    expectStates(client, cut, "0->1 1->2 2->4 4->5 5->1 1->2 2->4", "0->1 1->2 2->4");
}

/// The end of the connection must leave nothing.
void cutWithoutReconnect(const TransportKind& kind, const AnsweringHost::Cut& cut) {
    const AnsweringHost host({cut});
    const ClientUnderTest client(kind);
    ASSERT_NO_FATAL_FAILURE(runSession(client, host, true));
    ASSERT_TRUE(host.waitUntil([](const View& view) { return view.isCut; }, kBound));
    ASSERT_TRUE(client.waitForState(CSClient::STATE_DISCONNECTED, kBound)) << client.callbacks.states();
    expectStates(client, cut, kStatesOfOneConnection, "0->1 1->3 3->0");
    EXPECT_TRUE(client.isEmpty());
    EXPECT_EQ(client->getServerPort(), 0U);
}

class UncutSession : public testing::TestWithParam<TransportKind> {};

TEST_P(UncutSession, HasTheBytesThatTheOtherTestsCutAt) {
    const AnsweringHost host({});
    const ClientUnderTest client(GetParam());
    runSession(client, host, false);
    EXPECT_EQ(host.view().received, kBytesToHost);
    EXPECT_EQ(host.view().sent, kBytesToClient);
    EXPECT_TRUE(client.callbacks.waitFor("updated IN1=float:3 IN2=float:3"));
}

INSTANTIATE_TEST_SUITE_P(Client, UncutSession, testing::Values(kStandard, kBuffered), nameOf<TransportKind>);

/// Transport, whether the bytes to the host are counted, whether the connection is reset.
class CutAtEveryByte : public testing::TestWithParam<std::tuple<TransportKind, bool, bool>> {
  protected:
    using Session = void (*)(const TransportKind& kind, const AnsweringHost::Cut& cut);

    /// One session for each number of bytes, from none to all.
    static void cutEverywhere(std::size_t sessionsAtATime, Session session) {
        sideBySide(1 + (std::get<1>(GetParam()) ? kBytesToHost : kBytesToClient), sessionsAtATime,
                   [session](std::size_t index) {
                       session(std::get<0>(GetParam()), {std::get<1>(GetParam()), std::get<2>(GetParam()), index});
                   });
    }
};

TEST_P(CutAtEveryByte, WithReconnectTheNextConnectionEndsWithEverythingInPlace) {
    // Reconnecting sleeps for seconds. An emulator starts threads one at a time.
    cutEverywhere(isEmulated() ? 40 : 64, &cutWithReconnect);
}

TEST_P(CutAtEveryByte, WithoutReconnectTheConnectionEndsAndNothingIsKept) {
    cutEverywhere(8, &cutWithoutReconnect);
}

INSTANTIATE_TEST_SUITE_P(Client, CutAtEveryByte,
                         testing::Combine(testing::Values(kStandard, kBuffered), testing::Bool(), testing::Bool()),
                         [](const auto& tested) {
                             return std::string(std::get<0>(tested.param).name) +
                                    (std::get<1>(tested.param) ? "ToHost" : "ToClient") +
                                    (std::get<2>(tested.param) ? "Reset" : "InOrder");
                         });

}  // namespace
}  // namespace com_tesk::test
