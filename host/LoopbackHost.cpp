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

/// Ties the core to the sockets: one thread runs the I/O context, and everything but the shared state belongs to
/// that thread.
class LoopbackHost::Impl final : private host::HostOutlet, private host::ConnectionOwner {
  public:
    explicit Impl(Options options)
        : m_options(std::move(options)),
          m_core(m_options, m_state, *this),
          m_listener(
              m_context, m_options.listenAddress, m_options.port,
              [this](asio::ip::tcp::socket socket, const std::string& peer) { letIn(std::move(socket), peer); },
              [this](const std::error_code& error) { reportText(Kind::AcceptFailed, 0, error.message()); }) {
        reportText(Kind::Listening, 0, m_listener.where());
        m_thread = std::thread([this] { m_context.run(); });
    }

    ~Impl() { stop(); }

    std::uint16_t port() const { return m_listener.port(); }
    const host::SharedState& state() const { return m_state; }

    void stop() {
        const std::lock_guard<std::mutex> lock(m_lifeMutex);
        if (!m_thread.joinable()) {
            return;
        }
        // The context runs out of work, and its run ends, when the listener and every connection are closed.
        asio::post(m_context, [this] {
            m_listener.close();
            closeAll(CloseMode::Graceful, "the host stops");
            reportText(Kind::Stopped, 0, {});
            m_reporting = false;
        });
        m_thread.join();
    }

    std::size_t dropClients(CloseMode mode) {
        std::size_t count = 0;
        onOwnThread([&] { count = closeAll(mode, "told to"); });
        return count;
    }

    void setValue(const std::string& name, HostValue value) {
        if (m_context.get_executor().running_in_this_thread()) {
            // From the event sink, so from inside the core: after it.
            asio::post(m_context, [this, name, value] { m_core.setValue(name, value); });
        } else {
            onOwnThread([&] { m_core.setValue(name, value); });
        }
    }

  private:
    /// Runs the function on the I/O thread and waits for it; right here once that thread has ended.
    template <class Function>
    void onOwnThread(Function function) {
        const std::lock_guard<std::mutex> lock(m_lifeMutex);
        if (!m_thread.joinable()) {
            function();
            return;
        }
        std::packaged_task<void()> task(std::move(function));
        std::future<void> done = task.get_future();
        asio::post(m_context, [task = std::move(task)]() mutable { task(); });
        done.get();
    }

    void letIn(asio::ip::tcp::socket socket, const std::string& peer) {
        const ClientNumber number = ++m_lastNumber;
        const auto connection = std::make_shared<ClientConnection>(std::move(socket), number, m_options.maxQueuedBytes,
                                                                   m_options.stallLimit, connectionOwner());
        m_connections.emplace(number, connection);
        reportText(Kind::Connected, number, peer);
        m_core.addClient(number);
        connection->start();
    }

    std::size_t closeAll(CloseMode mode, const std::string& why) {
        const std::size_t count = m_connections.size();
        while (!m_connections.empty()) {
            end(m_connections.begin()->first, mode, Kind::Dropped, why);
        }
        return count;
    }

    void end(ClientNumber client, CloseMode mode, Kind kind, const std::string& why) {
        reportText(kind, client, why);
        m_core.removeClient(client);
        const auto found = m_connections.find(client);
        found->second->close(mode);
        m_connections.erase(found);
    }

    void onFrame(ClientNumber client, const host::Frame& frame) override { m_core.handle(client, frame); }

    void onGone(ClientNumber client, Kind kind, const std::string& why) override {
        end(client, CloseMode::Graceful, kind, why);
    }

    void send(ClientNumber client, host::Bytes frame) override { m_connections.at(client)->send(std::move(frame)); }

    void report(HostEvent event) final {
        if (m_reporting && m_options.eventSink) {
            event.time = std::chrono::system_clock::now();
            m_options.eventSink(event);
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

    const Options m_options;
    host::SharedState m_state;  // any thread
    asio::io_context m_context{1};

    // I/O thread only while it runs; after that, under m_lifeMutex.
    host::HostCore m_core;
    host::Listener m_listener;
    std::map<ClientNumber, std::shared_ptr<ClientConnection>> m_connections;
    ClientNumber m_lastNumber = 0;
    bool m_reporting = true;  // until the host has stopped

    // Held by whoever stops the thread or waits for it; the I/O thread itself never takes it.
    std::mutex m_lifeMutex;
    std::thread m_thread;  // guarded by m_lifeMutex
};

LoopbackHost::LoopbackHost(Options options) : m_impl(std::make_unique<Impl>(std::move(options))) {}

LoopbackHost::~LoopbackHost() = default;

std::uint16_t LoopbackHost::port() const {
    return m_impl->port();
}

void LoopbackHost::stop() {
    m_impl->stop();
}

std::size_t LoopbackHost::dropClients(DropMode mode) {
    return m_impl->dropClients(mode == DropMode::Reset ? CloseMode::Reset : CloseMode::Graceful);
}

void LoopbackHost::setValue(const std::string& name, HostValue value) {
    m_impl->setValue(name, value);
}

std::optional<HostValue> LoopbackHost::value(const std::string& name) const {
    return m_impl->state().read([&](const host::HostState& state) {
        const auto found = state.values.find(name);
        return found == state.values.end() ? std::nullopt : std::optional(found->second);
    });
}

std::size_t LoopbackHost::clientCount() const {
    return m_impl->state().read([](const host::HostState& state) { return state.clients; });
}

std::size_t LoopbackHost::subscriberCount(const std::string& name) const {
    return m_impl->state().read([&](const host::HostState& state) {
        const auto found = state.subscribers.find(name);
        return found == state.subscribers.end() ? 0 : found->second.size();
    });
}

bool LoopbackHost::waitForValue(const std::string& name, HostValue value, std::chrono::milliseconds limit) const {
    return m_impl->state().waitUntil(
        [&](const host::HostState& state) {
            const auto found = state.values.find(name);
            return found != state.values.end() && found->second == value;
        },
        limit);
}

bool LoopbackHost::waitForClients(std::size_t exactly, std::chrono::milliseconds limit) const {
    return m_impl->state().waitUntil([&](const host::HostState& state) { return state.clients == exactly; }, limit);
}

bool LoopbackHost::waitForSubscribers(const std::string& name, std::size_t exactly,
                                      std::chrono::milliseconds limit) const {
    return m_impl->state().waitUntil(
        [&](const host::HostState& state) {
            const auto found = state.subscribers.find(name);
            const std::size_t count = found == state.subscribers.end() ? 0 : found->second.size();
            return count == exactly;
        },
        limit);
}

}  // namespace com_tesk
