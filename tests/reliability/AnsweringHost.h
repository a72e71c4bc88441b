#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "host/Value.h"
#include "tests/reliability/ConnectionHost.h"

namespace com_tesk::test {

/// A host that answers each request in full before it reads the next one. It can end its first connection after a given
/// number of bytes. It keeps nothing from one connection to the next.
///
/// It answers a publish and an unregistration of outputs with an update of all inputs. Ids differ from connection to
/// connection, so an id of an earlier one names nothing.
class AnsweringHost {
  public:
    struct Cut {
        bool isToHost;  ///< counts the bytes to the host, otherwise those to the client
        bool isReset;   ///< the client's next read or write fails, otherwise the stream ends in order
        std::size_t afterBytes;
    };

    struct Settings {
        std::optional<Cut> cut;
        unsigned int updateRepeats = 1;  ///< how often an update contains each input
        bool hasSmallSendBuffer = false;
        bool hasView = true;  ///< a view is copied after each read, which costs much time with many inputs
    };

    /// All but the first two describe the current connection, and are empty without one.
    struct View {
        int connections = 0;
        bool isCut = false;
        bool hasAnsweredVersion = false;
        std::set<std::string> inputs;
        std::set<std::string> outputs;
        std::map<std::string, HostValue> values;  ///< of registered outputs
        std::size_t received = 0;
        std::size_t sent = 0;

        std::string text() const;
    };

    explicit AnsweringHost(const Settings& newSettings);

    unsigned int port() const { return host.port(); }
    int updatesSent() const { return updates; }
    View view() const;

    /// Waits until the view satisfies the condition. The host has answered every request that the view shows.
    bool waitUntil(const std::function<bool(const View&)>& condition, std::chrono::milliseconds bound) const;

  private:
    class Session;

    const Settings settings;
    std::atomic<int> updates{0};
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    View current;  // guarded by mutex
    ConnectionHost host;
};

}  // namespace com_tesk::test
