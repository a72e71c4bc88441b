#pragma once

#include <atomic>

namespace com_tesk::session {

/// A descriptor that is readable from `signal` until `clear`. Any thread may call any operation.
class WakePipe {
  public:
    /// @throw std::system_error  the system has no more file descriptors.
    WakePipe();
    WakePipe(const WakePipe&) = delete;
    WakePipe& operator=(const WakePipe&) = delete;
    ~WakePipe();

    /// Makes the descriptor readable. A system call only when it is not. Never blocks.
    void signal();

    /// Makes it unreadable. The caller then checks for the reasons of the signals before.
    void clear();

    /// Returns the descriptor to wait for.
    int descriptor() const { return readEnd; }

  private:
    int readEnd = -1;
    int writeEnd = -1;
    std::atomic<bool> isSignalled{false};
};

}  // namespace com_tesk::session
