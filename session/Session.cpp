// The public operations. Each forwards to the part that performs it.

#include "session/Session.h"

#include <algorithm>
#include <utility>

#include "session/Core.h"

namespace com_tesk {

using session::Core;
using session::InputSlot;
using session::OutputSlot;

Session::Session(Options options) : core(std::make_shared<Core>(std::move(options))) {}

Session::~Session() {
    stop();
    core->endDispatching();
}

OutputSlot& Session::declareOutput(std::string_view name, ParameterStatus::Type type, Delivery delivery) {
    OutputSlot& slot =
        core->sender.declareOutput(name, type, delivery == Delivery::EVERY ? core->options.queueSize : 0);
    core->declarationsChanged();
    return slot;
}

InputSlot& Session::declareInput(std::string_view name, ParameterStatus::Type type, Delivery delivery) {
    InputSlot& slot = core->sender.declareInput(name, type, delivery == Delivery::EVERY ? core->options.queueSize : 0);
    core->declarationsChanged();
    return slot;
}

template <typename T>
Output<T> Session::output(std::string_view name, Delivery delivery) {
    return Output<T>(declareOutput(name, session::typeOf<T>(), delivery));
}

template <typename T>
Input<T> Session::input(std::string_view name, Delivery delivery) {
    return Input<T>(declareInput(name, session::typeOf<T>(), delivery));
}

void Session::start() {
    if (core->options.dispatch == Dispatch::OWN_THREAD) {
        core->startDispatching(core);
    }
    core->supervisor.start();
}

void Session::stop() {
    core->supervisor.stop(std::chrono::milliseconds(0));
}

bool Session::stop(std::chrono::milliseconds timeout) {
    return core->supervisor.stop(timeout);
}

Link Session::link() const {
    return core->links.current();
}

bool Session::waitUntil(Link wanted, std::chrono::milliseconds timeout) const {
    return core->links.waitFor(
        [this, wanted] {
            const Link now = core->links.current();
            return wanted == Link::STOPPED ? now == wanted : now >= wanted;
        },
        timeout);
}

bool Session::waitConfirmed(std::initializer_list<ParameterHandle> handles, std::chrono::milliseconds timeout) const {
    return waitConfirmed(std::vector<ParameterHandle>(handles), timeout);
}

bool Session::waitConfirmed(const std::vector<ParameterHandle>& handles, std::chrono::milliseconds timeout) const {
    return core->links.waitFor(
        [&handles] {
            return std::all_of(handles.begin(), handles.end(), [](const ParameterHandle& handle) {
                return handle.output != nullptr ? handle.output->isConfirmed() : handle.input->isConfirmed();
            });
        },
        timeout);
}

void Session::flush() {
    core->sender.trySend();
}

bool Session::flush(std::chrono::milliseconds timeout) {
    return core->supervisor.flush(timeout);
}

int Session::descriptor() const {
    return core->options.dispatch == Dispatch::OWN_THREAD ? -1 : core->dispatcher.descriptor();
}

std::size_t Session::dispatch() {
    // A callback may destroy this object.
    const std::shared_ptr<Core> kept = core;
    return kept->options.dispatch == Dispatch::OWN_THREAD ? 0 : kept->dispatcher.run();
}

void Session::onLink(std::function<void(const LinkEvent&)> callback) {
    core->dispatcher.setLinkCallback(std::move(callback));
}

void Session::onUpdate(std::function<void(std::size_t count)> callback) {
    core->dispatcher.setUpdateCallback(std::move(callback));
}

Health Session::health() const {
    return core->health();
}

std::vector<ParameterStatus> Session::parameters() const {
    return core->parameters();
}

template Output<float> Session::output(std::string_view name, Delivery delivery);
template Output<std::int32_t> Session::output(std::string_view name, Delivery delivery);
template Output<bool> Session::output(std::string_view name, Delivery delivery);
template Input<float> Session::input(std::string_view name, Delivery delivery);
template Input<std::int32_t> Session::input(std::string_view name, Delivery delivery);
template Input<bool> Session::input(std::string_view name, Delivery delivery);
template Input<Number> Session::input(std::string_view name, Delivery delivery);

}  // namespace com_tesk
