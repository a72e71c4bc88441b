// Cuts the first connection of a session after each byte. The next connection must end with everything in place.

#include <algorithm>
#include <chrono>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "session/Session.h"
#include "tests/reliability/AnsweringHost.h"
#include "tests/reliability/Stress.h"
#include "tests/support/Emulator.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {
namespace {

using View = AnsweringHost::View;

/// Many sessions run side by side, on a busy machine.
constexpr std::chrono::seconds kCutBound{40};

/// The bytes of the first connection when nothing is cut. To the host: the version request 52, three outputs 172, two
/// inputs 140, the values 92 once they are confirmed, and 80 for the two that change. To the client: the version 184,
/// the outputs 196, the inputs 156, an update of all inputs 80 for each publication.
constexpr std::size_t kBytesToHost = 536;
constexpr std::size_t kBytesToClient = 696;

bool hasValues(const View& view, const std::map<std::string, float>& values) {
    return std::all_of(values.begin(), values.end(), [&view](const auto& value) {
        const auto found = view.values.find(value.first);
        return found != view.values.end() && found->second == HostValue::real(value.second);
    });
}

/// Runs a session until the host has everything, on the connection that `isLast` accepts.
/// @return what went wrong; empty when nothing did.
std::string runUntilComplete(const AnsweringHost& host, int lastConnection, View* last = nullptr) {
    Session::Options options;
    options.host = kHostAddress;
    options.port = static_cast<std::uint16_t>(host.port());
    options.retry = std::chrono::milliseconds(10);
    // The values that change leave together, however slow this thread is: the flush sends them.
    options.gather = std::chrono::seconds(30);
    options.log = [](Session::Level /*level*/, std::string_view /*text*/) {};
    Session session(options);
    const Output<float> a = session.output<float>("A");
    const Output<float> b = session.output<float>("B");
    const Output<float> c = session.output<float>("C");
    const Input<float> in1 = session.input<float>("IN1");
    const Input<float> in2 = session.input<float>("IN2");
    a.set(1.0F);
    b.set(2.0F);
    c.set(3.0F);
    session.start();
    const auto isAtHost = [&host](const std::map<std::string, float>& values) {
        return host.waitUntil([&values](const View& view) { return hasValues(view, values); }, kCutBound);
    };
    if (!isAtHost({{"A", 1.0F}, {"B", 2.0F}, {"C", 3.0F}})) {
        return "the first values do not arrive: " + host.view().text();
    }
    b.set(20.0F);
    c.set(30.0F);
    session.flush();
    const auto isComplete = [lastConnection](const View& view) {
        return view.connections >= lastConnection && view.inputs.size() == 2 && view.outputs.size() == 3 &&
               hasValues(view, {{"A", 1.0F}, {"B", 20.0F}, {"C", 30.0F}});
    };
    if (!host.waitUntil(isComplete, kCutBound)) {
        return "it ends with " + host.view().text();
    }
    if (!session.waitConfirmed({a, b, c, in1, in2}, kCutBound) || !session.waitUntil(Link::READY, kCutBound)) {
        return "not everything is confirmed";
    }
    const auto isGood = [&] { return in1.read().quality == Quality::GOOD && in2.read().quality == Quality::GOOD; };
    if (!waitUntil(isGood, kCutBound)) {
        return "the inputs are not good";
    }
    if (last != nullptr) {
        *last = host.view();
    }
    return "";
}

TEST(UncutSession, HasTheBytesThatTheOtherTestsCutAt) {
    const AnsweringHost host({});
    View last;
    EXPECT_EQ(runUntilComplete(host, 1, &last), "");
    EXPECT_EQ(last.received, kBytesToHost);
    EXPECT_EQ(last.sent, kBytesToClient);
}

/// Two flags: count the bytes to the host instead of those to the client, and reset the connection.
class CutSession : public testing::TestWithParam<std::tuple<bool, bool>> {};

TEST_P(CutSession, EndsWithEverythingInPlace) {
    const auto [isToHost, isReset] = GetParam();
    const auto cut = [isToHost = isToHost, isReset = isReset](std::size_t index) {
        const AnsweringHost host({AnsweringHost::Cut{isToHost, isReset, index}});
        // A reset before the first byte can overtake the connect, which then is an attempt that failed.
        EXPECT_EQ(runUntilComplete(host, index == 0 && isReset ? 1 : 2), "") << "after byte " << index;
    };
    sideBySide(isToHost ? kBytesToHost : kBytesToClient, isEmulated() ? 8 : 16, cut);
}

INSTANTIATE_TEST_SUITE_P(Session, CutSession, testing::Combine(testing::Bool(), testing::Bool()),
                         [](const auto& tested) {
                             return std::string(std::get<0>(tested.param) ? "ToHost" : "ToClient") +
                                    (std::get<1>(tested.param) ? "Reset" : "InOrder");
                         });

}  // namespace
}  // namespace com_tesk::test
