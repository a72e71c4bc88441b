#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <variant>
#include <vector>

#include "session/Session.h"
#include "tools/csmqtt/Outbox.h"
#include "tools/csmqtt/Snapshot.h"
#include "tools/service/Log.h"

namespace com_tesk::mqtt {

/// The link to the host: a session whose inputs fill the outbox. All operations are for one thread, but for `set`.
class HostLink {
  public:
    using Clock = std::chrono::steady_clock;

    /// The time after which a host whose state is still unknown is reported as down.
    static constexpr std::chrono::seconds kUnknownLimit{5};

    /// @param bridgeConfig, sharedOutbox, serviceLog  outlive this object.
    /// @param onStateChange  called within `dispatch` and `tick`.
    /// @throw std::exception  the session refuses an option, or the system has no more file descriptors.
    HostLink(const Config& bridgeConfig, SharedOutbox& sharedOutbox, service::Log& serviceLog,
             std::function<void(HostState)> onStateChange);
    HostLink(const HostLink&) = delete;
    HostLink& operator=(const HostLink&) = delete;
    ~HostLink() = default;

    /// Starts to connect.
    void start();

    /// Readable when `dispatch` has something to do.
    int descriptor() const { return session.descriptor(); }

    /// Stores what has arrived. Never blocks.
    /// @return true when the outbox has something new.
    bool dispatch();

    /// Does what time demands; about once a second.
    /// @return true when the outbox has something new.
    bool tick();

    /// Sets a value of `Config::fromMqtt` at the host. Its newest value is sent again when the host is back. Any thread.
    void set(std::size_t index, double value);

    HostState state() const { return hostState; }
    std::uint64_t connects() const { return answers; }

    /// Ends the session. Takes less than 50 ms.
    void stop() { session.stop(); }

  private:
    using AnyInput = std::variant<Input<float>, Input<std::int32_t>>;
    using AnyOutput = std::variant<Output<float>, Output<std::int32_t>>;

    struct NewValue {
        std::size_t index = 0;
        double value = 0;
        std::uint64_t sequence = 0;
        Clock::time_point received;
    };

    static Session::Options optionsOf(const Config& config, service::Log& log);
    template <typename T>
    AnyInput declareInput(std::size_t index);
    template <typename T>
    void arrive(std::size_t index, const Reading<T>& reading);
    void noteLink(const LinkEvent& event);
    void changeState(HostState next);
    void readAll();
    void reportUnconfirmed();
    bool storeNew();

    const Config& config;
    SharedOutbox& outbox;
    service::Log& log;
    const std::function<void(HostState)> onState;

    HostState hostState = HostState::UNKNOWN;
    std::uint64_t answers = 0;
    Clock::time_point stateSince;
    bool isUnconfirmedReported = false;
    std::vector<NewValue> newValues;  // Of one dispatch, so at most one a name.
    std::vector<bool> isStored;       // The value of this connection to the host is in the outbox.
    std::vector<std::uint64_t> last;  // The sequence of the stored value.

    Session session;
    std::vector<AnyInput> inputs;
    std::vector<AnyOutput> outputs;
};

}  // namespace com_tesk::mqtt
