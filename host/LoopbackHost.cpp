#include "host/LoopbackHost.h"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <future>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "host/ClientConnection.h"
#include "host/Heartbeat.h"
#include "host/HostCore.h"
#include "host/HostState.h"
#include "host/Listener.h"
#include "host/scenario/Player.h"

namespace com_tesk {

using host::ClientConnection;
using host::ClientNumber;
using host::CloseMode;
using Kind = HostEvent::Kind;

/// Connects the core with the sockets. One thread runs the I/O context and owns everything except the shared state.
class LoopbackHost::Impl final : private host::HostOutlet, private host::ConnectionOwner, private scenario::FaultyHost {
  public:
    explicit Impl(Options initialOptions)
        : options(std::move(initialOptions)),
          core(options, sharedState, *this),
          listener(
              context, options.listenAddress, options.port,
              [this](asio::ip::tcp::socket socket, const std::string& peer) { acceptClient(std::move(socket), peer); },
              [this](const std::error_code& error) { reportText(Kind::ACCEPT_FAILED, 0, error.message()); }),
          reopenTimer(context),
          heartbeat(context, options.heartbeat, options.heartbeatInterval) {
        reportText(Kind::LISTENING, 0, listener.where());
        heartbeat.start();
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
            interruptScenario();
            reopenTimer.cancel();
            heartbeat.stop();
            listener.close();
            closeAll(CloseMode::GRACEFUL, "the host stops");
            reportText(Kind::STOPPED, 0, {});
            reporting = false;
        });
        thread.join();
    }

    std::future<ScenarioVerdict> play(Scenario scenario) {
        auto promise = std::make_shared<std::promise<ScenarioVerdict>>();
        std::future<ScenarioVerdict> verdict = promise->get_future();
        onOwnThread([&] {
            interruptScenario();
            std::vector<ClientNumber> clients;
            for (const auto& [number, connection] : connections) {
                clients.push_back(number);
            }
            player.emplace(context, faultyHost(), std::move(scenario), clients, options.maxQueuedBytes,
                           [promise](ScenarioVerdict result) { promise->set_value(std::move(result)); });
            if (!reporting) {
                player->interrupt();  // The host has stopped.
            }
        });
        return verdict;
    }

    std::size_t dropClients(CloseMode mode) {
        std::size_t count = 0;
        onOwnThread([&] { count = closeAll(mode, "told to"); });
        return count;
    }

    void setValues(const std::vector<std::pair<std::string, HostValue>>& values) {
        if (context.get_executor().running_in_this_thread()) {
            // The event sink calls, inside an operation of the core. The values are stored after that operation.
            asio::post(context, [this, values] { core.setValues(values); });
        } else {
            onOwnThread([&] { core.setValues(values); });
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
        if (player) {
            player->faults().add(number);
        }
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
        if (player) {
            player->faults().remove(client);
        }
        const auto found = connections.find(client);
        found->second->close(mode);
        connections.erase(found);
    }

    void onFrame(ClientNumber client, const host::Frame& frame) override {
        if (player) {
            player->faults().receive(client, frame);
        } else {
            core.handle(client, frame);
        }
    }

    void onGone(ClientNumber client, Kind kind, const std::string& why) override {
        end(client, CloseMode::GRACEFUL, kind, why);
    }

    void send(ClientNumber client, host::Bytes frame) override {
        if (player) {
            player->faults().send(client, std::move(frame));
        } else {
            connections.at(client)->send(std::move(frame));
        }
    }

    // What faults need of the host.
    void sendNow(ClientNumber client, host::Bytes bytes) override { connections.at(client)->send(std::move(bytes)); }

    void serve(ClientNumber client, const host::Frame& frame) override { core.handle(client, frame); }

    void drop(ClientNumber client, CloseMode mode, const std::string& why) override {
        if (connections.count(client) != 0) {
            end(client, mode, Kind::DROPPED, why);
        }
    }

    void setReading(ClientNumber client, bool isReading) override {
        if (const auto found = connections.find(client); found != connections.end()) {
            found->second->setReading(isReading);
        }
    }

    void reportFault(ClientNumber client, const std::string& what) override { reportText(Kind::FAULT, client, what); }

    void perform(const scenario::Action& action) override {
        if (const auto* const refuse = std::get_if<scenario::Refuse>(&action)) {
            closeListenerFor(refuse->time);
        } else if (const auto* const restart = std::get_if<scenario::Restart>(&action)) {
            closeListenerFor(restart->down);  // First, so that no client of before connects again.
            closeAll(CloseMode::GRACEFUL, "restart");
            core.restart(++restarts * kIdsPerRestart);
            if (player) {
                player->giveAgain();
            }
        } else if (const auto* const assign = std::get_if<scenario::AssignId>(&action)) {
            core.assignId(assign->id);
        } else if (const auto* const set = std::get_if<scenario::SetValue>(&action)) {
            core.setValues({{set->name, set->value}});
        }
    }

    void closeListenerFor(scenario::Duration time) {
        listener.close();
        reopenAfter(time);
    }

    void reopenAfter(scenario::Duration time) {
        reopenTimer.expires_after(time);
        reopenTimer.async_wait([this](const std::error_code& error) {
            if (error || !reporting) {
                return;
            }
            if (const std::error_code failure = listener.reopen()) {
                reportText(Kind::ACCEPT_FAILED, 0, failure.message());
                reopenAfter(kRetryReopening);
            }
        });
    }

    void interruptScenario() {
        if (player) {
            player->interrupt();
        }
    }

    void report(HostEvent event) final {
        if (!reporting) {
            return;
        }
        event.time = std::chrono::system_clock::now();
        if (player) {
            player->note(event);
        }
        if (options.eventSink) {
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
    scenario::FaultyHost& faultyHost() { return *this; }

    /// Ids after a restart differ from those before it, unless a client registers more names than this.
    static constexpr std::uint32_t kIdsPerRestart = 1'000;
    static constexpr std::chrono::milliseconds kRetryReopening{100};

    const Options options;
    host::SharedState sharedState;  // any thread
    asio::io_context context{1};

    // I/O thread only while it runs; under lifeMutex after that.
    host::HostCore core;
    host::Listener listener;
    std::map<ClientNumber, std::shared_ptr<ClientConnection>> connections;
    std::optional<scenario::Player> player;
    asio::steady_timer reopenTimer;
    host::Heartbeat heartbeat;
    ClientNumber lastNumber = 0;
    std::uint32_t restarts = 0;
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

std::future<ScenarioVerdict> LoopbackHost::play(Scenario scenario) {
    return impl->play(std::move(scenario));
}

void LoopbackHost::setValue(const std::string& name, HostValue value) {
    impl->setValues({{name, value}});
}

void LoopbackHost::setValues(const std::vector<std::pair<std::string, HostValue>>& values) {
    impl->setValues(values);
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
