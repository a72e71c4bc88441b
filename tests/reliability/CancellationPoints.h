#pragma once

#include <atomic>
#include <functional>

namespace com_tesk::test {

/// What the system calls of one thread do, while a `ScriptedThread` exists on it. Other threads may read the results once
/// the scripted thread has ended.
///
/// This program replaces the functions of the system that the library calls and that are cancellation points. Streams
/// and callbacks of a test call `passCancellationPoint`. On every thread, pauses of whole seconds and the receive time-out
/// of sockets last 5 ms.
struct ThreadScript {
    enum class Writes {
        WHOLE,
        FAILING,  ///< with EPIPE
        HALVED,   ///< Half of a frame leaves, then the send buffer counts as full.
    };

    /// The number, from 1 on, of the cancellation point at which the thread is cancelled; 0: none.
    int cancelAt = 0;
    Writes writes = Writes::WHOLE;
    /// True when pauses of whole seconds are not shortened on this thread.
    bool hasLongPauses = false;
    /// Called in the first `poll`, unless the thread is cancelled there. That poll finds the send buffer full.
    std::function<void()> duringPoll;

    int points = 0;              ///< cancellation points reached
    const char* lastPoint = "";  ///< a cancelled thread was cancelled there

    // Any thread may read these at any time.
    std::atomic<bool> isInPause{false};
    std::atomic<int> writeCalls{0};  ///< of `write` and `send`
};

/// Makes the calling thread follow a script, from construction to destruction.
class ScriptedThread {
  public:
    explicit ScriptedThread(ThreadScript& script);
    ScriptedThread(const ScriptedThread&) = delete;
    ScriptedThread& operator=(const ScriptedThread&) = delete;
    ~ScriptedThread();
};

/// A cancellation point that a scripted thread counts.
void passCancellationPoint(const char* name);

}  // namespace com_tesk::test
