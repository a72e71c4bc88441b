#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace com_tesk::test {

/// The time after which a wait of a test fails. It is long enough for a busy machine and for sanitizers.
constexpr std::chrono::seconds kWaitBound{20};

/// Checks `condition` every millisecond. Returns whether it was true before the bound.
template <typename Condition>
bool waitUntil(const Condition& condition, std::chrono::milliseconds bound = kWaitBound) {
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return condition();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// Opens once and stays open.
class Latch {
  public:
    void open() {
        const std::lock_guard<std::mutex> lock(mutex);
        isOpen = true;
        opened.notify_all();
    }

    /// Returns whether the latch was opened before the bound.
    bool wait(std::chrono::milliseconds bound = kWaitBound) {
        std::unique_lock<std::mutex> lock(mutex);
        return opened.wait_for(lock, bound, [this] { return isOpen; });
    }

  private:
    std::mutex mutex;
    std::condition_variable opened;
    bool isOpen = false;
};

/// Stops a thread until the test opens the gate.
class Gate {
  public:
    /// Waits until the gate is open. Returns false when the bound passes first.
    bool pass() {
        reached.open();
        return opened.wait();
    }
    /// Waits until a thread has reached the gate.
    bool waitUntilReached() { return reached.wait(); }
    void open() { opened.open(); }

  private:
    Latch reached;
    Latch opened;
};

/// Measures the time since its construction.
class Stopwatch {
  public:
    double seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); }

  private:
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

}  // namespace com_tesk::test
