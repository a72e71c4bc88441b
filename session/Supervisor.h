#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "session/Dispatcher.h"
#include "session/FrameSender.h"
#include "session/LinkMonitor.h"
#include "session/Mutex.h"
#include "session/NameResolver.h"
#include "session/SessionProtocol.h"
#include "session/SessionTransport.h"
#include "session/Times.h"
#include "session/UpdateReceiver.h"
#include "session/WakePipe.h"

namespace com_tesk::session {

/// The parts that the supervisor drives. They outlive it.
struct SupervisedParts {
    const Session::Options& options;
    const Log& log;
    const std::shared_ptr<WakePipe>& wake;
    Dispatcher& dispatcher;
    LinkMonitor& links;
    FrameSender& sender;
    UpdateReceiver& receiver;
    SessionProtocol& protocol;
    SessionTransport& transport;
};

/// The session's thread. It connects, connects again, sends what is staged, checks that the host answers, finds values
/// that have become too old, and ends the connection.
///
/// The thread waits in one place, for: its pipe, space in the socket, the next time at which there is something to do.
class Supervisor {
  public:
    explicit Supervisor(const SupervisedParts& supervisedParts);
    Supervisor(const Supervisor&) = delete;
    Supervisor& operator=(const Supervisor&) = delete;
    /// The thread must have ended.
    ~Supervisor() = default;

    /// @name Any thread of the application
    /// @{

    /// See `Session::start`.
    void start() CSCLIENT_EXCLUDES(lifeMutex);
    /// See `Session::stop`. With a `drainTime` of 0 nothing more is sent.
    bool stop(std::chrono::milliseconds drainTime) CSCLIENT_EXCLUDES(lifeMutex);
    /// Looks at the maximum ages of inputs again.
    void recheckAges();
    /// Updates the link after a change of declarations or confirmations, and wakes the threads that wait for those.
    void updateLink();
    /// As `Session::flush`.
    bool flush(std::chrono::milliseconds timeout);
    /// @}

    /// @name Worker thread
    /// @{
    void connectionBegan();
    void connectionEnded() noexcept;
    /// @}

    /// @name Queries of any thread
    /// @{
    std::uint64_t connects() const { return connections; }
    std::uint64_t losses() const { return lost; }
    std::uint64_t failedAttempts() const { return failed; }
    /// The clock's ticks; 0 without a connection.
    std::int64_t connectedSince() const { return sender.connection() != 0 ? beganAt.load() : 0; }
    /// @}

  private:
    /// What the thread waits for.
    enum class Phase {
        PAUSED,     ///< For the time of the next attempt.
        RESOLVING,  ///< For the address of the host.
        OPEN,       ///< For the engine's connection, or attempt, to end.
    };

    void run();
    /// @return false when the thread is done.
    bool runOnce();
    void beginAttempt();
    void open();
    void attend(Clock::time_point now);
    void sendStaged(Clock::time_point now);
    void checkAnswers(Clock::time_point now);
    void checkProgress(Clock::time_point now);
    void checkAges(Clock::time_point now);
    /// Performs the next step of a stop.
    /// @return true when the connection is to be closed now.
    bool isDoneSending(Clock::time_point now) CSCLIENT_EXCLUDES(stopMutex);
    void giveUp(Cause cause);
    void afterEnd();
    void reportFailure(Cause cause, int error, const std::string& what);
    void recover();
    void wait();
    /// Makes the thread check at `time`, at the latest.
    void lookAt(Clock::time_point time) { next = std::min(next, time); }
    bool isStopWanted() const { return stopWanted; }
    std::string place() const;

    const Session::Options& options;
    const Log& log;
    WakePipe& wake;
    Dispatcher& dispatcher;
    LinkMonitor& links;
    FrameSender& sender;
    UpdateReceiver& receiver;
    SessionProtocol& protocol;
    SessionTransport& transport;

    // Any thread.

    std::atomic<bool> stopWanted{false};
    std::atomic<bool> hasEnded{false};
    std::atomic<bool> areAgesUnchecked{false};
    std::atomic<unsigned int> flushWaiters{0};
    std::atomic<std::uint64_t> connections{0};
    std::atomic<std::uint64_t> lost{0};
    std::atomic<std::uint64_t> failed{0};
    std::atomic<std::int64_t> beganAt{0};

    /// Held by the thread that starts or stops, until that is done.
    Mutex lifeMutex;
    std::thread thread CSCLIENT_GUARDED_BY(lifeMutex);

    Mutex stopMutex;
    Clock::time_point drainUntil CSCLIENT_GUARDED_BY(stopMutex);
    bool isAllAcknowledged CSCLIENT_GUARDED_BY(stopMutex) = false;

    // The session's thread.

    NameResolver resolver;
    Phase phase = Phase::PAUSED;
    bool isClosing = false;
    bool hasEndedSending = false;
    /// True when the time of a stop has ended before everything was acknowledged.
    bool isTimeOver = false;
    bool isNoAnswerReported = false;
    bool wasUp = false;
    Clock::time_point attemptBegan;
    Clock::time_point nextAttempt;
    Clock::time_point nextHeartbeat = kNoDeadline;
    Clock::time_point gatherUntil = kNoDeadline;
    Clock::time_point nextAgeCheck = kNoDeadline;
    /// When there is something to do, at the latest.
    Clock::time_point next = kNoDeadline;
};

}  // namespace com_tesk::session
