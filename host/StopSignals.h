#pragma once

#include <memory>

namespace com_tesk {

/// What a program around a host waits for. From construction to destruction SIGINT and SIGTERM do
/// not end the process; one that came before wait() is not lost. One object at a time.
class StopSignals {
  public:
    /// @throws std::system_error when the signals cannot be caught.
    StopSignals();
    ~StopSignals();

    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    /// Blocks until SIGINT or SIGTERM has come. To be called once.
    void wait();

  private:
    class Impl;
    const std::unique_ptr<Impl> impl;
};

}  // namespace com_tesk
