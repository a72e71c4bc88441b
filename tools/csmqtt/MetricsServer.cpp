#include "tools/csmqtt/MetricsServer.h"

#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <future>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "tools/csmqtt/HttpWorkers.h"
#include "tools/csmqtt/MetricsText.h"

namespace com_tesk::mqtt {

namespace {

constexpr std::size_t kThreads = 2;
constexpr std::size_t kMaxWaiting = 8;
constexpr std::size_t kMaxRequestBody = 1024;
constexpr std::chrono::seconds kStopLimit{1};
constexpr int kMaxStartMilliseconds = 5'000;

/// The library would allow several processes to listen on the port. Clients would then reach any of them.
void setListenOptions(socket_t descriptor) {
    const int yes = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
}

}  // namespace

/// What the threads of the server use. It exists until the last of them has ended.
struct MetricsServer::Serving {
    httplib::Server server;
    std::promise<void> ended;

    std::mutex mutex;
    Source source;  // Guarded by mutex; empty after the end.

    void answer(httplib::Response& response) {
        std::string text;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            if (source) {
                text = metricsText(source());
            }
        }
        response.set_header("Cache-Control", "no-store");
        response.set_content(text, kMetricsContentType);
    }

    std::uint16_t bind(const Address& address, std::chrono::milliseconds clientLimit) {
        server.set_socket_options(setListenOptions);
        server.set_read_timeout(clientLimit);
        server.set_write_timeout(clientLimit);
        server.set_keep_alive_max_count(1);
        // The library waits this long for the first byte, in whole seconds.
        server.set_keep_alive_timeout(
            static_cast<std::time_t>(std::chrono::ceil<std::chrono::seconds>(clientLimit).count()));
        server.set_payload_max_length(kMaxRequestBody);
        server.new_task_queue = [] { return new HttpWorkers(kThreads, kMaxWaiting); };  // The server deletes it.
        server.Get("/metrics", [this](const httplib::Request&, httplib::Response& response) { answer(response); });
        errno = 0;
        const int port = address.port == 0                                 ? server.bind_to_any_port(address.host)
                         : server.bind_to_port(address.host, address.port) ? address.port
                                                                           : -1;
        if (port < 0) {
            const std::string reason = errno == 0 ? "" : ": " + std::generic_category().message(errno);
            throw std::runtime_error("metrics: cannot listen on " + address.text() + reason);
        }
        return static_cast<std::uint16_t>(port);
    }
};

MetricsServer::MetricsServer(const Address& address, Source source, std::chrono::milliseconds clientLimit)
    : serving(std::make_shared<Serving>()), boundPort(serving->bind(address, clientLimit)) {
    serving->source = std::move(source);
    thread = std::thread([threads = serving] {
        threads->server.listen_after_bind();
        threads->ended.set_value();
    });
    // The library can stop a server only after it has begun to accept.
    for (int i = 0; i < kMaxStartMilliseconds && !serving->server.is_running(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

MetricsServer::~MetricsServer() {
    stop();
}

bool MetricsServer::stop() {
    if (!thread.joinable()) {
        return hasEnded;
    }
    {
        const std::lock_guard<std::mutex> lock(serving->mutex);
        serving->source = nullptr;
    }
    serving->server.stop();
    if (serving->ended.get_future().wait_for(kStopLimit) == std::future_status::ready) {
        thread.join();
    } else {
        thread.detach();  // A client still blocks one of its threads.
        hasEnded = false;
    }
    return hasEnded;
}

}  // namespace com_tesk::mqtt
