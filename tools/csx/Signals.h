#pragma once

#include <csignal>

namespace com_tesk::csx {

/// While it exists, SIGINT and SIGTERM do not end the process but make a descriptor readable, and a closed pipe is an
/// error instead of a signal. Construct it before the process has other threads.
class Signals {
  public:
    /// @throw std::system_error  the system has no more file descriptors.
    Signals();
    ~Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    int descriptor() const { return readable; }

    /// While it exists, the signals end the process again.
    class Uncaught {
      public:
        explicit Uncaught(const Signals& caughtSignals);
        ~Uncaught();
        Uncaught(const Uncaught&) = delete;
        Uncaught& operator=(const Uncaught&) = delete;

      private:
        const Signals& signals;
    };

    /// Returns the signal that has arrived; 0 when none has.
    int taken();

  private:
    sigset_t caught{};
    int readable = -1;
    int last = 0;
};

/// Ends the process with the signal, as if it had not been caught.
[[noreturn]] void dieOf(int signal);

}  // namespace com_tesk::csx
