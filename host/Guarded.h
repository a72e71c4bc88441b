#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace com_tesk::host {

/// A value that can only be reached with its lock held: the compiler sees to it, on every compiler.
/// Functions handed in run under the lock and must be short, must not call back into the same
/// Guarded, and must not return references into the value. Any thread may call anything here.
template <class T>
class Guarded {
  public:
    template <class Function>
    auto read(Function function) const {
        const std::lock_guard<std::mutex> lock(mutex);
        return function(value);
    }

    /// Like read(), but may change the value; whoever waits looks again afterwards.
    template <class Function>
    auto change(Function function) {
        const std::lock_guard<std::mutex> lock(mutex);
        // In front of the change, yet never too early: a waiter cannot look before the lock is free.
        changed.notify_all();
        return function(value);
    }

    /// Blocks until the condition holds, at most for `limit`. @return whether it holds.
    template <class Condition>
    bool waitUntil(Condition condition, std::chrono::milliseconds limit) const {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, limit, [&] { return condition(value); });
    }

  private:
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    T value;  // guarded by mutex
};

}  // namespace com_tesk::host
