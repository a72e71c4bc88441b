#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace com_tesk::service {

/// Tells the service manager about this process: one datagram each to the socket that `$NOTIFY_SOCKET` names, a path or
/// an abstract address that begins with @. Without the variable every operation does nothing and succeeds.
///
/// The environment is read on construction only. Any thread may call every operation. An operation blocks for at most a
/// second, when the manager does not read its socket.
///
/// Each operation returns false when the datagram could not be sent. A program can then go on.
class Notifier {
  public:
    Notifier();
    ~Notifier();
    Notifier(const Notifier&) = delete;
    Notifier& operator=(const Notifier&) = delete;

    /// True when there is a manager to notify.
    bool isActive() const { return descriptor >= 0; }

    /// Returns why the manager cannot be reached although there is one: an address that is invalid. Otherwise "".
    const std::string& flaw() const { return addressFlaw; }

    /// Reports that the service is ready. The manager then starts the services that wait for this one.
    /// @param status  a line that the manager shows; see status().
    bool ready(const std::string& status) const;

    /// Reports what the service does at present, as a line that the manager shows. Control characters become blanks.
    bool status(const std::string& text) const;

    /// Reports that the service is about to end.
    bool stopping() const;

    /// Reports that the service is alive. `Watchdog` calls it.
    bool alive() const;

    /// Returns the time within which the manager wants alive(), or else ends the service: from `$WATCHDOG_USEC`.
    /// Returns nothing when it has no such limit, or when `$WATCHDOG_PID` names another process.
    std::optional<std::chrono::microseconds> watchdogInterval() const { return interval; }

  private:
    bool send(const std::string& message) const;

    // Constant after construction.
    int descriptor = -1;
    std::string address;  // The bytes of the socket address.
    std::string addressFlaw;
    std::optional<std::chrono::microseconds> interval;
};

}  // namespace com_tesk::service
