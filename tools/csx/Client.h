#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "session/Session.h"
#include "tools/csx/ExitCode.h"
#include "tools/csx/Printer.h"
#include "tools/csx/Signals.h"

namespace com_tesk::csx {

using Clock = std::chrono::steady_clock;

/// The options that come before a command.
struct CommonOptions {
    std::string host = "127.0.0.1";
    std::uint16_t port = 55580;
    unsigned int simulatorId = 1;
    std::chrono::microseconds timeout{5'000'000};
    Format format = Format::TEXT;
};

/// The behaviour of a command when the host is not there.
enum class Patience {
    FIRST_FAILURE,  ///< Gives up at the first failure.
    TIMEOUT,        ///< Tries again until its time has run out, and after a loss.
};

/// A session with a host, on the thread of the command.
class Client {
  public:
    /// @param stopSignals  outlives this object.
    /// @param maxSilence   the longest silence of the host in the middle of a message; by default that of a session.
    Client(const CommonOptions& commonOptions, Patience howPatient, Signals& stopSignals,
           std::optional<std::chrono::microseconds> maxSilence = std::nullopt);
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client() = default;

    Session& session() { return connection; }
    const Session& session() const { return connection; }

    /// Starts, and waits until the host has answered and confirmed everything that is declared, or the condition is
    /// true, for at most `limit`, by default the time-out of the common options.
    /// @return `DONE`; `NO_HOST`, `LOST` or `UNCONFIRMED` otherwise. For the first two a line on standard error has
    ///         said why.
    /// @throw Interrupted
    ExitCode connect(
        const std::function<bool()>& isDone = [] { return false; },
        std::optional<std::chrono::microseconds> limit = std::nullopt);

    /// Runs callbacks until the condition is true, the time has come, or, without patience, the connection has failed.
    /// @return the last result of the condition.
    /// @throw Interrupted
    bool runUntil(const std::function<bool()>& condition, Clock::time_point deadline);

    /// As `runUntil`. In addition calls the function whenever the descriptor is readable or its end has come.
    bool runUntil(const std::function<bool()>& condition, Clock::time_point deadline, int descriptor,
                  const std::function<void()>& onReadable);

    /// True when the connection has failed, and the client does not try again.
    bool hasFailed() const { return !isPatient && failure.has_value(); }

    /// True when the host has answered at least once; before the failure of a client that gives up.
    bool hasAnswered() const { return wasAnswered; }

    /// Reports on standard error why there is no host or no connection.
    /// @return `LOST` when the host had answered, otherwise `NO_HOST`.
    ExitCode reportFailure() const;

    /// Lets what is staged leave, and ends the connection. SIGINT and SIGTERM end the process meanwhile.
    /// @return `DONE` when the host has acknowledged everything within the time-out of the common options. Otherwise a
    ///         line on standard error has said so.
    ExitCode finish();

    /// From now on a loss of the connection is no failure.
    void becomePatient() { isPatient = true; }

    /// From now on the runs end with `OutputClosed` as soon as the reader of standard output has closed it.
    void endWithOutput() { doesEndWithOutput = true; }

    /// Called with each event of the link, after the client has processed it. Not after the failure of a client that
    /// gives up.
    std::function<void(const LinkEvent&)> onEvent;

    /// The last failure.
    const std::optional<LinkEvent>& lastFailure() const { return failure; }

    /// The host's address and port.
    std::string place() const;

  private:
    void note(const LinkEvent& event);

    const CommonOptions& options;
    /// The time for which `connect` tries.
    std::chrono::microseconds connectLimit;
    bool isPatient;
    Signals& signals;
    std::optional<LinkEvent> failure;
    bool wasAnswered = false;
    bool doesEndWithOutput = false;
    Session connection;
};

/// Prints a line on standard error, after the program's name.
void say(const std::string& text);

/// Returns the reason of a failure, without the session's remark about the next attempt.
std::string reasonOf(const LinkEvent& failure);

/// Returns the point in time after the duration.
Clock::time_point fromNow(std::chrono::microseconds duration);

/// Rounds up, so that a wait is never too short.
std::chrono::milliseconds milliseconds(std::chrono::microseconds duration);

}  // namespace com_tesk::csx
