// Tests the logic of the panel with a host in this process, which stops and starts again in the middle.
#include "classic_panel.h"

#include <gtest/gtest.h>
#include <host/LoopbackHost.h>
#include <poll.h>

#include <atomic>
#include <optional>

using com_tesk::HostValue;
using std::chrono::steady_clock;
using namespace std::chrono_literals;

class ClassicPanelTest : public testing::Test {
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
    /// Runs the panel's callbacks until the condition holds, for at most 10 seconds.
    static bool eventually(ClassicPanel& panel, const std::function<bool()>& condition) {
        pollfd waiting{panel.descriptor(), POLLIN, 0};
        bool isTrue = condition();
        for (const auto end = steady_clock::now() + 10s; !isTrue && steady_clock::now() < end; isTrue = condition()) {
            poll(&waiting, 1, 10);
            panel.dispatch();
        }
        return isTrue;
    }
    std::uint16_t port = 0;
    bool isPressed = false;
    std::atomic<int> presses{0};  // Counted when the button is released.
    std::map<std::string, std::string> shown;
    std::optional<com_tesk::LoopbackHost> host;
};

TEST_F(ClassicPanelTest, WorksBeforeAndAfterARestartOfTheHost) {
    startHost();
    ClassicPanel panel([this](const auto& part, const auto& text) { shown[part] = text; });
    ASSERT_TRUE(panel.open("127.0.0.1", port));
    for (int starts = 1; starts <= 2; ++starts) {
        EXPECT_TRUE(eventually(panel, [&] { return shown["lamp"] == "on"; }));
        EXPECT_TRUE(eventually(panel, [&] { return panel.press(); }));  // Once the host has confirmed the button.
        EXPECT_TRUE(eventually(panel, [&] { return presses == starts; }));
        host->stop();
        EXPECT_TRUE(eventually(panel, [&] { return shown["lamp"] == "off"; }));
        startHost();
    }
}
