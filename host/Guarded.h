#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace com_tesk::host {

/// A value that is accessible only with its lock held; every compiler enforces this.
/// The functions passed in run under the lock. They must be short, must not use the same Guarded, and must not return
/// references into the value. Any thread may call every operation.
template <class T>
class Guarded {
  public:
    Guarded() = default;
    explicit Guarded(T initialValue) : value(std::move(initialValue)) {}

    template <class Function>
    auto read(Function function) const {
        const std::lock_guard<std::mutex> lock(mutex);
        return function(value);
    }

    /// Like read(), but the function may change the value. Waiting threads then check their conditions again.
    template <class Function>
    auto change(Function function) {
        const std::lock_guard<std::mutex> lock(mutex);
        // Before the change, but not too early: a waiting thread checks its condition only when the lock is free.
        changed.notify_all();
        return function(value);
    }

    /// Blocks until the condition holds, at most for `limit`. Returns true when it holds.
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
