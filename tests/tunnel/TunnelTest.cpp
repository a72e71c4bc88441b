#include <gmock/gmock.h>

#include <algorithm>
#include <optional>

#include "host/LoopbackHost.h"
#include "session/Session.h"
#include "tests/session/SessionFixtures.h"
#include "tests/tunnel/Stunnel.h"

namespace com_tesk::tunnel_test {
namespace {

using namespace std::chrono_literals;
using session_test::dispatchUntil;
using test::kWaitBound;
using test::ScriptedHost;

/// A session that connects to the near end of a tunnel, and everything that it has reported.
class TunnelledSession {
  public:
    TunnelledSession() : session(options()), out(session.output<float>("OUT")), in(session.input<float>("IN")) {
        session.onLink([this](const LinkEvent& event) { events.push_back(event); });
        session.onUpdate([](std::size_t) {});
        session.start();
    }

    template <typename Condition>
    bool dispatchUntil(const Condition& condition) {
        return session_test::dispatchUntil(session, condition);
    }

    /// Waits for an event with this cause. Returns its text, or nothing.
    std::optional<std::string> textOf(Cause cause) {
        const auto find = [&] {
            return std::find_if(events.begin(), events.end(), [&](const auto& event) { return event.cause == cause; });
        };
        dispatchUntil([&] { return find() != events.end(); });
        return find() == events.end() ? std::nullopt : std::optional(find()->text);
    }

    /// Waits until the link is lost, or closed before it was established: through a tunnel the two ends decide which.
    bool isLost() {
        return dispatchUntil([&] {
            return std::any_of(events.begin(), events.end(), [](const LinkEvent& event) {
                return event.cause == Cause::CLOSED || event.cause == Cause::RESET;
            });
        });
    }

    /// True when the host has answered at some time.
    bool wasAnswered() const {
        return std::any_of(events.begin(), events.end(),
                           [](const LinkEvent& event) { return event.link >= Link::ANSWERED; });
    }
    bool wasConnected() const {
        return std::any_of(events.begin(), events.end(),
                           [](const LinkEvent& event) { return event.link == Link::CONNECTED; });
    }
    /// Waits for the event, because the link itself changes before its event is dispatched.
    bool isReady() {
        return dispatchUntil([&] {
            return std::any_of(events.begin(), events.end(),
                               [](const LinkEvent& event) { return event.link == Link::READY; });
        });
    }

    Session session;
    Output<float> out;
    Input<float> in;
    std::vector<LinkEvent> events;

  private:
    static Session::Options options() {
        Session::Options result;
        result.host = test::ownAddress();
        result.port = Tunnel::kNearPort;
        result.retry = 50ms;
        result.answerTimeout = 300ms;
        result.log = [](auto, auto) {};
        return result;
    }
};

/// A host, both ends of the tunnel, and a session.
class Tunnels : public testing::Test {
  protected:
    /// Sends values in both directions.
    void expectValuesBothWays(TunnelledSession& program, float number) {
        program.out.set(number);
        EXPECT_TRUE(host.waitForValue("OUT", HostValue::real(number), kWaitBound));
        host.setValue("IN", HostValue::real(number + 1));
        EXPECT_TRUE(program.dispatchUntil([&] { return program.in.read().value == number + 1; }));
    }

    LoopbackHost host{LoopbackHost::Options{}};
    Tunnel tunnel{host.port()};
};

TEST_F(Tunnels, WithTheRightKeyPassValuesInBothDirections) {
    tunnel.start();
    TunnelledSession program;
    ASSERT_TRUE(program.isReady());
    expectValuesBothWays(program, 1.5F);
}

TEST_F(Tunnels, WithAWrongKeyNeverBecomeReady) {
    tunnel.startFar();
    ASSERT_TRUE(tunnel.farEnd().waitForErr("Configuration successful"));
    tunnel.writeKey("pump-3:" + std::string(64, 'b'));
    tunnel.startNear();
    TunnelledSession program;
    EXPECT_TRUE(program.isLost());
    EXPECT_TRUE(tunnel.farEnd().waitForErr("binder does not verify"));
    EXPECT_TRUE(program.wasConnected()) << "the near end accepts";
    EXPECT_FALSE(program.wasAnswered());
    EXPECT_EQ(host.clientCount(), 0U);
}

TEST_F(Tunnels, WithAnUnknownNameNeverBecomeReady) {
    tunnel.startNear();
    ASSERT_TRUE(tunnel.nearEnd().waitForErr("Configuration successful"));
    tunnel.writeKey("pump-4:" + std::string(64, 'a'));
    tunnel.startFar();
    TunnelledSession program;
    EXPECT_TRUE(program.isLost());
    EXPECT_TRUE(tunnel.farEnd().waitForErr("no suitable signature algorithm"));
    EXPECT_FALSE(program.wasAnswered());
}

TEST_F(Tunnels, RecoverWhenTheFarSideIsBack) {
    tunnel.start();
    TunnelledSession program;
    ASSERT_TRUE(program.isReady());
    program.events.clear();
    tunnel.killFar();
    EXPECT_TRUE(program.isLost());
    EXPECT_TRUE(tunnel.nearEnd().waitForErr("Connection refused"));
    EXPECT_FALSE(program.wasAnswered()) << "since the far side is gone";
    tunnel.startFar();
    ASSERT_TRUE(program.isReady());
    expectValuesBothWays(program, 2.5F);
}

TEST_F(Tunnels, ConnectButNeverBecomeReadyWhileTheHostIsDown) {
    host.stop();
    tunnel.start();
    TunnelledSession program;
    EXPECT_TRUE(program.isLost());
    EXPECT_TRUE(tunnel.farEnd().waitForErr("Connection refused"));
    EXPECT_TRUE(program.wasConnected()) << "the near end accepts";
    EXPECT_FALSE(program.wasAnswered());
}

TEST(Tunnel, SaysNoAnswerWhenTheHostHangs) {
    ScriptedHost hanging;
    Tunnel tunnel(static_cast<std::uint16_t>(hanging.port()));
    tunnel.start();
    TunnelledSession program;
    const auto text = program.textOf(Cause::NO_ANSWER);
    ASSERT_TRUE(text.has_value());
    EXPECT_THAT(*text, testing::HasSubstr("connected, and no answer to the version request"));
    EXPECT_EQ(program.session.link(), Link::CONNECTED);
    EXPECT_FALSE(program.wasAnswered());
}

}  // namespace
}  // namespace com_tesk::tunnel_test
