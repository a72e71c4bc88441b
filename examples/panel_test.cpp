// Tests the logic of the panel with a host in this process, which stops and starts again in the middle.
#include "panel.h"

#include <gtest/gtest.h>
#include <host/LoopbackHost.h>
#include <poll.h>

#include <atomic>
#include <map>
#include <optional>

using com_tesk::HostValue;
using namespace std::chrono_literals;
class PanelTest : public testing::Test {
  protected:
    void startHost() {
        com_tesk::HostOptions options;
        options.port = port;  // With 0 the system picks one.
        options.initialValues.emplace("lamp", HostValue::integer(1));
        options.eventSink = [this](const com_tesk::HostEvent& event) {
            if (event.kind == com_tesk::HostEvent::Kind::PUBLISHED) {
                presses += isPressed && event.value == HostValue::integer(0) ? 1 : 0;
                isPressed = event.value == HostValue::integer(1);
            }
        };
        port = host.emplace(options).port();
    }
    /// Runs the panel's callbacks until the condition holds, at most a thousand times.
    static bool eventually(com_tesk::Session& session, const std::function<bool()>& condition) {
        pollfd waiting{session.descriptor(), POLLIN, 0};
        for (int tries = 0; tries < 1'000 && !condition(); ++tries) {
            poll(&waiting, 1, 10);
            session.dispatch();
        }
        return condition();
    }
    std::uint16_t port = 0;
    bool isPressed = false;
    std::atomic<int> presses{0};  // Counted when the button is released.
    std::map<std::string, std::string> shown;
    std::optional<com_tesk::LoopbackHost> host;
};

TEST_F(PanelTest, WorksBeforeAndAfterARestartOfTheHost) {
    startHost();
    com_tesk::Session::Options options;
    options.port = port;
    com_tesk::Session session(options);
    const Panel panel(session, [this](const auto& part, const auto& text) { shown[part] = text; });
    session.start();
    for (int starts = 1; starts <= 2; ++starts) {
        EXPECT_TRUE(eventually(session, [&] { return shown["lamp"] == "on"; }));
        EXPECT_TRUE(session.waitUntil(com_tesk::Link::READY, 10s));
        EXPECT_TRUE(panel.press());
        EXPECT_TRUE(eventually(session, [&] { return presses == starts; }));
        host->stop();
        EXPECT_TRUE(eventually(session, [&] { return shown["lamp"] == "off"; }));
        startHost();
    }
}
