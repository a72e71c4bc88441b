#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "tools/csmqtt/Config.h"
#include "tools/csmqtt/Snapshot.h"

namespace com_tesk::mqtt {

/// Serves `/metrics` over HTTP, for scrapers: see metricsText().
///
/// It has a thread that accepts and two that answer, whatever the number of clients. A client that neither sends nor
/// reads is disconnected after five seconds. Further clients wait for their connection to be accepted.
class MetricsServer {
  public:
    /// Returns the present state. Threads of the server call it, one call at a time. It must not block for long, and
    /// must not throw.
    using Source = std::function<Snapshot()>;

    static constexpr std::chrono::seconds kClientLimit{5};

    /// Listens and serves.
    /// @param address  a numeric address, or a name of this machine; with port 0 the system picks one.
    /// @param clientLimit  the time for which a client may neither send nor read.
    /// @throw std::runtime_error  the address cannot be used; the text is a line for the user that says so.
    MetricsServer(const Address& address, Source source, std::chrono::milliseconds clientLimit = kClientLimit);

    /// Calls stop().
    ~MetricsServer();
    MetricsServer(const MetricsServer&) = delete;
    MetricsServer& operator=(const MetricsServer&) = delete;

    /// Returns the port.
    std::uint16_t port() const { return boundPort; }

    /// Ends the server. The source is not called afterwards. Blocks for as long as the source runs, and for at most a
    /// second more: threads that still wait for a client then end later, and use nothing of the caller's.
    /// @return false when there are such threads. They use the library's global objects, so the process must end with
    ///         _Exit.
    bool stop();

  private:
    struct Serving;

    const std::shared_ptr<Serving> serving;
    const std::uint16_t boundPort;
    std::thread thread;
    bool hasEnded = true;  // No thread was left running.
};

}  // namespace com_tesk::mqtt
