#pragma once

#include <memory>

namespace com_tesk {

/// Lets a program with a host wait for SIGINT or SIGTERM. From construction to destruction these signals do not end the
/// process, and a signal before wait() is not lost. One object at a time.
class StopSignals {
  public:
    /// @throws std::system_error when the signals cannot be caught.
    StopSignals();
    ~StopSignals();

    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    /// Blocks until SIGINT or SIGTERM has arrived. To be called once.
    void wait();

  private:
    class Impl;
    const std::unique_ptr<Impl> impl;
};

}  // namespace com_tesk
