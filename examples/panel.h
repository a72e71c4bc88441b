// The logic of a panel with a button, a lamp and a gauge. panel.cpp runs it with epoll, panel_test.cpp tests it.
#pragma once
#include <session/Session.h>
#include <functional>
#include <string>

class Panel {
  public:
    using Show = std::function<void(const std::string& part, const std::string& text)>;
    /// `show` displays a text on a part of the panel. It runs inside `session.dispatch()`, so it needs no lock.
    Panel(com_tesk::Session& session, const Show& show)
        : button(session.output<bool>("button", com_tesk::Delivery::EVERY)) {
        session.input<bool>("lamp").onChange([show](const com_tesk::Reading<bool>& lamp) {
            const bool isKnown = lamp.quality == com_tesk::Quality::GOOD;
            show("lamp", lamp.value && isKnown ? "on" : "off");
        });
        session.input<std::int32_t>("gauge").onChange([show](const com_tesk::Reading<std::int32_t>& gauge) {
            show("gauge", std::to_string(gauge.value) + " " + toString(gauge.quality));
        });
    }
    /// Presses and releases the button at once. The host receives both.
    bool press() const { return button.set(true) && button.set(false); }

  private:
    com_tesk::Output<bool> button;
};
