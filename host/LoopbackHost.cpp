#include "host/LoopbackHost.h"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/post.hpp>
#include <future>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "host/ClientConnection.h"
#include "host/HostCore.h"
#include "host/HostState.h"
#include "host/Listener.h"

namespace com_tesk {

using host::ClientConnection;
using host::ClientNumber;
using host::CloseMode;
using Kind = HostEvent::Kind;

/// Connects the core with the sockets. One thread runs the I/O context and owns everything except the shared state.
class LoopbackHost::Impl final : private host::HostOutlet, private host::ConnectionOwner {
  public:
    explicit Impl(Options initialOptions)
        : options(std::move(initialOptions)),
          core(options, sharedState, *this),
          listener(
              context, options.listenAddress, options.port,
              [this](asio::ip::tcp::socket socket, const std::string& peer) { acceptClient(std::move(socket), peer); },
              [this](const std::error_code& error) { reportText(Kind::ACCEPT_FAILED, 0, error.message()); }) {
        reportText(Kind::LISTENING, 0, listener.where());
        thread = std::thread([this] { context.run(); });
    }

    ~Impl() { stop(); }

    std::uint16_t port() const { return listener.port(); }
    const host::SharedState& state() const { return sharedState; }

    void stop() {
        const std::lock_guard<std::mutex> lock(lifeMutex);
        if (!thread.joinable()) {
            return;
        }
        // The run of the context ends when the listener and every connection are closed, because it then has no work.
        asio::post(context, [this] {
            listener.close();
            closeAll(CloseMode::GRACEFUL, "the host stops");
            reportText(Kind::STOPPED, 0, {});
            reporting = false;
        });
        thread.join();
    }

    std::size_t dropClients(CloseMode mode) {
        std::size_t count = 0;
        onOwnThread([&] { count = closeAll(mode, "told to"); });
        return count;
    }

    void setValue(const std::string& name, HostValue value) {
        if (context.get_executor().running_in_this_thread()) {
            // The event sink calls, inside an operation of the core. The value is stored after that operation.
            asio::post(context, [this, name, value] { core.setValue(name, value); });
        } else {
            onOwnThread([&] { core.setValue(name, value); });
        }
    }

  private:
    /// Runs the function on the I/O thread and waits for it. After that thread has ended, runs it on the calling
    /// thread.
    template <class Function>
    void onOwnThread(Function function) {
        const std::lock_guard<std::mutex> lock(lifeMutex);
        if (!thread.joinable()) {
            function();
            return;
        }
        std::packaged_task<void()> task(std::move(function));
        std::future<void> done = task.get_future();
        asio::post(context, [task = std::move(task)]() mutable { task(); });
        done.get();
    }

    void acceptClient(asio::ip::tcp::socket socket, const std::string& peer) {
        const ClientNumber number = ++lastNumber;
        const auto connection = std::make_shared<ClientConnection>(std::move(socket), number, options.maxQueuedBytes,
                                                                   options.stallLimit, connectionOwner());
        connections.emplace(number, connection);
        reportText(Kind::CONNECTED, number, peer);
        core.addClient(number);
        connection->start();
    }

    std::size_t closeAll(CloseMode mode, const std::string& why) {
        const std::size_t count = connections.size();
        while (!connections.empty()) {
            end(connections.begin()->first, mode, Kind::DROPPED, why);
        }
        return count;
    }

    void end(ClientNumber client, CloseMode mode, Kind kind, const std::string& why) {
        reportText(kind, client, why);
        core.removeClient(client);
        const auto found = connections.find(client);
        found->second->close(mode);
        connections.erase(found);
    }

    void onFrame(ClientNumber client, const host::Frame& frame) override { core.handle(client, frame); }

    void onGone(ClientNumber client, Kind kind, const std::string& why) override {
        end(client, CloseMode::GRACEFUL, kind, why);
    }

    void send(ClientNumber client, host::Bytes frame) override { connections.at(client)->send(std::move(frame)); }

    void report(HostEvent event) final {
        if (reporting && options.eventSink) {
            event.time = std::chrono::system_clock::now();
            options.eventSink(event);
        }
    }

    void reportText(Kind kind, ClientNumber client, std::string text) {
        HostEvent event;
        event.kind = kind;
        event.client = client;
        event.text = std::move(text);
        report(std::move(event));
    }

    host::ConnectionOwner& connectionOwner() { return *this; }

    const Options options;
    host::SharedState sharedState;  // any thread
    asio::io_context context{1};

    // I/O thread only while it runs; under lifeMutex after that.
    host::HostCore core;
    host::Listener listener;
    std::map<ClientNumber, std::shared_ptr<ClientConnection>> connections;
    ClientNumber lastNumber = 0;
    bool reporting = true;  // until the host has stopped

    // Held to stop the I/O thread or to wait for it. The I/O thread itself never locks it.
    std::mutex lifeMutex;
    std::thread thread;  // guarded by lifeMutex
};

LoopbackHost::LoopbackHost(Options options) : impl(std::make_unique<Impl>(std::move(options))) {}

LoopbackHost::~LoopbackHost() = default;

std::uint16_t LoopbackHost::port() const {
    return impl->port();
}

void LoopbackHost::stop() {
    impl->stop();
}

std::size_t LoopbackHost::dropClients(DropMode mode) {
    return impl->dropClients(mode == DropMode::RESET ? CloseMode::RESET : CloseMode::GRACEFUL);
}

void LoopbackHost::setValue(const std::string& name, HostValue value) {
    impl->setValue(name, value);
}

std::optional<HostValue> LoopbackHost::value(const std::string& name) const {
    return impl->state().read([&](const host::HostState& state) {
        const auto found = state.values.find(name);
        return found == state.values.end() ? std::nullopt : std::optional(found->second);
    });
}

std::size_t LoopbackHost::clientCount() const {
    return impl->state().read([](const host::HostState& state) { return state.clients; });
}

std::size_t LoopbackHost::subscriberCount(const std::string& name) const {
    return impl->state().read([&](const host::HostState& state) {
        const auto found = state.subscribers.find(name);
        return found == state.subscribers.end() ? 0 : found->second.size();
    });
}

bool LoopbackHost::waitForValue(const std::string& name, HostValue value, std::chrono::milliseconds limit) const {
    return impl->state().waitUntil(
        [&](const host::HostState& state) {
            const auto found = state.values.find(name);
            return found != state.values.end() && found->second == value;
        },
        limit);
}

bool LoopbackHost::waitForClients(std::size_t exactly, std::chrono::milliseconds limit) const {
    return impl->state().waitUntil([&](const host::HostState& state) { return state.clients == exactly; }, limit);
}

bool LoopbackHost::waitForSubscribers(const std::string& name, std::size_t exactly,
                                      std::chrono::milliseconds limit) const {
    return impl->state().waitUntil(
        [&](const host::HostState& state) {
            const auto found = state.subscribers.find(name);
            const std::size_t count = found == state.subscribers.end() ? 0 : found->second.size();
            return count == exactly;
        },
        limit);
}

}  // namespace com_tesk
