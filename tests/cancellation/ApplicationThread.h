#pragma once

#include <functional>

#include "comms/CSThread.h"
#include "tests/cancellation/CancellationPoints.h"
#include "tests/engine/connection/ConnectionFixtures.h"

namespace com_tesk::test {

/// Ends the program. With a lock that is never released, or a thread that never ends, a test could not even clean up.
[[noreturn]] void endBecauseOf(const char* line);

/// A thread of the application, started with `CSThread`, that runs one operation and may be cancelled inside it.
class ApplicationThread {
  public:
    explicit ApplicationThread(std::function<void()> whatToRun);
    ApplicationThread(const ApplicationThread&) = delete;
    ApplicationThread& operator=(const ApplicationThread&) = delete;
    /// Waits until the thread has ended.
    ~ApplicationThread() { wait(); }

    /// Set before `start`.
    ThreadScript script;

    void start();

    /// Starts it and waits until it has ended.
    void run() {
        start();
        wait();
    }

    /// As an application ends a thread.
    void kill() { thread.kill(); }

    /// Blocks until the thread has ended, at most 30 seconds; then the program ends.
    void wait();

    /// Whether the operation has returned.
    bool hasReturned() const { return isReturned; }

  private:
    static void* routine(void* self);

    const std::function<void()> operation;
    CSThread thread;
    Latch ended;
    bool isStarted = false;
    std::atomic<bool> isReturned{false};
};

}  // namespace com_tesk::test
