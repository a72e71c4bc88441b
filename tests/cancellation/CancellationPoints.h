#pragma once

#include <atomic>
#include <functional>

namespace com_tesk::test {

/// What the system calls of one thread do that are cancellation points, as long as a `ScriptedThread` lives on it. Any
/// thread may look at the results once the scripted thread has ended.
///
/// The program stands in front of the system for every cancellation point that the library calls: `clock_nanosleep`,
/// `nanosleep`, `pthread_cond_timedwait`, `read`, `write`, `send`, `recv`, `poll`, `connect` and `close`. Streams and
/// callbacks of a test call `passCancellationPoint` instead.
///
/// On every thread of the program pauses of whole seconds and the receive time-out of sockets last 5 ms.
struct ThreadScript {
    enum class Writes {
        WHOLE,
        FAILING,  ///< Nothing leaves; EPIPE.
        /// Half of a frame leaves, then the send buffer counts as full. A cancellation can take effect in between.
        HALVED,
    };

    /// The number, from 1 on, of the cancellation point at which the thread requests its own cancellation. 0 stands for
    /// none.
    int cancelAt = 0;
    Writes writes = Writes::WHOLE;
    /// Whether pauses of whole seconds last their time on this thread.
    bool hasLongPauses = false;
    /// Called in the first `poll`, unless the thread is cancelled there. That poll finds no room to write.
    std::function<void()> inPoll;

    /// Cancellation points reached.
    int points = 0;
    /// The last of them. When the thread was cancelled, it was there.
    const char* lastPoint = "";

    // Also while the thread runs:

    /// The thread has begun a pause of whole seconds.
    std::atomic<bool> isInPause{false};
    /// Calls of `write` and `send`.
    std::atomic<int> writeCalls{0};
};

/// Has the calling thread follow a script for a scope.
class ScriptedThread {
  public:
    explicit ScriptedThread(ThreadScript& script);
    ScriptedThread(const ScriptedThread&) = delete;
    ScriptedThread& operator=(const ScriptedThread&) = delete;
    ~ScriptedThread();
};

/// A cancellation point that counts, on a scripted thread.
void passCancellationPoint(const char* name);

}  // namespace com_tesk::test
