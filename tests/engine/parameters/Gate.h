#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace com_tesk::test {

/// Holds a thread up at a place until the test lets it go on. The bounds only end a test that has failed already.
class Gate {
  public:
    /// On the thread that is to be held up.
    void pass() {
        std::unique_lock<std::mutex> lock(mutex);
        isReached = true;
        changed.notify_all();
        changed.wait_for(lock, std::chrono::seconds(30), [this] { return isOpen; });
    }

    /// Waits until a thread stands at the gate.
    bool waitUntilReached() {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(10), [this] { return isReached; });
    }

    void open() {
        const std::lock_guard<std::mutex> lock(mutex);
        isOpen = true;
        changed.notify_all();
    }

  private:
    std::mutex mutex;
    std::condition_variable changed;
    bool isReached = false;
    bool isOpen = false;
};

}  // namespace com_tesk::test
