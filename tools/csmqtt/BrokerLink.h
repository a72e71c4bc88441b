#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <thread>

#include "host/Guarded.h"
#include "tools/csmqtt/AddressFamily.h"
#include "tools/csmqtt/Commands.h"
#include "tools/csmqtt/Connection.h"
#include "tools/csmqtt/Outbox.h"
#include "tools/csmqtt/Wakeup.h"
#include "tools/service/Log.h"

namespace com_tesk::mqtt {

/// The link to the broker: connects again and again, publishes what the outbox has, and passes commands on. It has a
/// thread of its own, which alone uses the library.
///
/// Nothing is taken from the outbox without a connection, and at most `kWindow` messages are in flight. So the outbox
/// is the only store, and memory is constant, whatever the broker does.
///
/// After each acceptance it subscribes, publishes `online`, and has everything published again. Attempts are 0.5 s
/// apart at first and up to 30 s later, each between half and one and a half of that time.
class BrokerLink : private Connection::Owner {
  public:
    static constexpr unsigned kWindow = 256;
    static constexpr std::chrono::seconds kAnswerTimeout{10};  ///< For the broker's answer to a new connection.

    /// What the link uses and notifies. All of it outlives the link.
    struct Environment {
        const Config& config;
        SharedOutbox& outbox;
        Commands& commands;
        service::Log& log;
        std::function<void()> onChange;  ///< Called on the link's thread when state() has changed. Must not block.
        std::function<void()> onTurn;    ///< Called in each iteration of the loop: at least once in `maxTurn`.
        std::chrono::milliseconds maxTurn{1'000};
        std::string version;  ///< Of the program, for discovery.
        std::string runId;    ///< Of this run: see RunId.h.
    };

    /// A snapshot of the link.
    struct State {
        bool isUp = false;       ///< The broker has accepted the current connection.
        bool isOpening = false;  ///< A name is being looked up, which can take long. The loop does not turn meanwhile.
        bool hasEnded = false;   ///< The thread has ended.
        std::string conflict;    ///< Another bridge has this base: what was seen. The thread has then ended.
        Counts counts;           ///< Those of the link.
    };

    explicit BrokerLink(Environment linkEnvironment);
    ~BrokerLink() override;
    BrokerLink(const BrokerLink&) = delete;
    BrokerLink& operator=(const BrokerLink&) = delete;

    /// Starts the thread, with all signals blocked.
    void start();

    /// The outbox has something new. Any thread; never blocks.
    void wake() { wakeup.wake(); }

    /// Publishes `offline`, ends the connection, and ends the thread.
    /// @return false when the thread has not ended within the time, because a name is being looked up.
    bool stop(std::chrono::milliseconds timeout);

    /// Any thread.
    State state() const;

  private:
    using Clock = std::chrono::steady_clock;

    // On the link's thread.
    void run();
    ConnectionEnd tryFamilies();
    ConnectionEnd runConnection();
    std::optional<ConnectionEnd> openConnection();
    void greet();
    void farewell();
    void publishDue();
    bool publishReply();
    void publish(const Outbox::Item& item);
    std::optional<ConnectionEnd> turn(Clock::time_point deadline);
    void report(const ConnectionEnd& end);
    void pause();
    void noteState(const ReceivedMessage& message);
    void noteStatistics(const ReceivedMessage& message);
    void noteRetained(const ReceivedMessage& message, std::string_view otherRun);
    void setConflict(const std::string& text);
    void noteInFlight();
    Clock::time_point nextTurn() const;

    // Connection::Owner
    void onMessage(const ReceivedMessage& message) override;
    void onRefused(const std::string& reason) override;
    void onSubscriptionRefused(const std::string& topic, const std::string& reason) override;

    // Constant after construction.
    const Environment environment;
    const std::string runId;

    // The link's thread only.
    std::optional<Connection> connection;
    FamilyCycle families;
    bool isGreeted = false;
    bool hasSeenOwn = false;   // The broker has sent a message of this run back.
    bool isContested = false;  // Another bridge has this base.
    Clock::time_point accepted;
    unsigned onlineSeen = 0;      // Live messages `online` without run id, on this connection.
    std::deque<Message> replies;  // Of discovery; at most those of one message.
    std::chrono::milliseconds delay;
    unsigned shortConnections = 0;  // In a row.
    std::string lastReport;
    std::mt19937 random;

    // Shared.
    Wakeup wakeup;
    std::atomic<bool> isStopping{false};
    host::Guarded<State> shared;
    std::thread thread;
};

}  // namespace com_tesk::mqtt
