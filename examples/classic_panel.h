// The logic of a panel with a button, a lamp and a gauge. classic_panel.cpp runs it, classic_panel_test.cpp tests it.
#pragma once
#include <client/SimClient.h>
#include <comms/CSCommsInterfaceTCPBuffered.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <cmath>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>

/// The worker thread stores what has changed and wakes the event loop, which calls `dispatch`. No operation of the
/// client is called under the mutex: some call `connectionStateChanged`, which locks it.
class ClassicPanel : private com_tesk::CSClient::CallbackAdapter {
  public:
    using Show = std::function<void(const std::string& part, const std::string& text)>;
    /// `show` displays a text on a part of the panel. It runs inside `dispatch()`, so it needs no lock.
    /// `transport`: null for the standard transport.
    explicit ClassicPanel(Show display, std::unique_ptr<com_tesk::CSCommsInterfaceTCP> transport =
                                            std::make_unique<com_tesk::CSCommsInterfaceTCPBuffered>())
        : show(std::move(display)),
          client(/*simulatorId=*/3, CSClient::OPTION_AUTO_RECONNECT | CSClient::OPTION_SILENT, std::move(transport)) {
        client.addCallbackInterface(this);
    }
    /// Starts to connect.
    bool open(const char* address, unsigned int port) {
        return wakeup.descriptor >= 0 && client.registerOutputParameter({"button", CSClient::TYPE_INT}) == 0 &&
               client.registerInputParameter({"lamp", CSClient::TYPE_INT, /*subscriptionMode=*/1}) == 0 &&
               client.registerInputParameter({"gauge", CSClient::TYPE_INT, /*subscriptionMode=*/1}) == 0 &&
               client.open(address, port) == 0;
    }
    bool close() { return client.close() == CSClient::STATE_DISCONNECTED; }

    /// Presses and releases the button at once. The host receives both. False when it has not confirmed the button.
    bool press() {
        const State now = current();
        if (!now.isConnected || now.confirmed.count("button") == 0) {
            return false;
        }
        // Release the button also after a failure: the last published value is sent again after a reconnection.
        const bool isPressed = client.publishParameter(CSClient::Parameter::ofInt("button", 1)) == 0;
        return client.publishParameter(CSClient::Parameter::ofInt("button", 0)) == 0 && isPressed;
    }
    /// Readable when `dispatch` has something to show.
    int descriptor() const { return wakeup.descriptor; }

    /// Shows what has changed.
    void dispatch() {
        eventfd_t count = 0;
        eventfd_read(wakeup.descriptor, &count);
        const State now = current();
        for (const auto& [part, value] : now.values) {
            const char* quality = !now.isConnected ? "lost" : now.confirmed.count(part) == 0 ? "unconfirmed" : "good";
            const bool isLit = value != 0 && quality == std::string("good");
            const std::string text = part == "lamp" ? (isLit ? "on" : "off") : std::to_string(value) + " " + quality;
            if (std::exchange(shown[part], text) != text) {
                show(part, text);
            }
        }
    }

  private:
    using CSClient = com_tesk::CSClient;
    struct State {
        bool isConnected = false;
        std::set<std::string> confirmed;             // The inputs and the output, on this connection.
        std::map<std::string, std::int32_t> values;  // Of the inputs, also from earlier connections.
    };
    struct Wakeup {
        ~Wakeup() { ::close(descriptor); }
        const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    };

    void connectionStateChanged(CSClient::State, CSClient::State newState) override {
        change([&] {
            state.isConnected = newState == CSClient::STATE_READY;
            state.confirmed.clear();
        });
    }
    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& outputs) override { confirm(outputs); }
    void inputParametersConfirmed(const std::vector<CSClient::InputDef>& inputs) override { confirm(inputs); }
    void inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) override {
        change([&] {
            for (const auto& [name, value, type, reserved] : parameters) {
                // The type that the host sends says how to read the 32 bits. A float may be out of range, or no number.
                const bool isInRange = std::abs(value.asFloat) < 2147483648.0F;
                state.values[name] = type == CSClient::TYPE_INT ? value.asInt
                                     : isInRange                ? static_cast<std::int32_t>(value.asFloat)
                                                                : 0;
            }
        });
    }
    template <typename Definitions>
    void confirm(const Definitions& definitions) {
        change([&] {
            for (const auto& definition : definitions) {
                state.confirmed.insert(definition.name);
            }
        });
    }
    template <typename Action>
    void change(const Action& action) {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            action();
        }
        eventfd_write(wakeup.descriptor, 1);
    }
    State current() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return state;
    }

    Show show;
    std::map<std::string, std::string> shown;  // Used by the thread of `dispatch`.
    mutable std::mutex mutex;
    State state;  // Protected by the mutex.
    Wakeup wakeup;
    com_tesk::SimClient client;  // Last, so that it is destroyed before the members that its callbacks use.
};
