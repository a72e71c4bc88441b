#pragma once

#include <atomic>

namespace com_tesk::mqtt {

/// Wakes a thread that polls a descriptor. Any thread may call `wake`.
class Wakeup {
  public:
    /// @throw std::system_error  the system has no more file descriptors.
    Wakeup();
    ~Wakeup();
    Wakeup(const Wakeup&) = delete;
    Wakeup& operator=(const Wakeup&) = delete;

    /// Makes the descriptor readable. Without effect, and without a system call, while it is readable. Never blocks.
    void wake();

    /// The polling thread calls it when the descriptor is readable, before it looks for work. Work that arrives later
    /// wakes it again.
    void clear();

    int descriptor() const { return event; }

  private:
    const int event;
    std::atomic<bool> isWoken{false};
};

}  // namespace com_tesk::mqtt
