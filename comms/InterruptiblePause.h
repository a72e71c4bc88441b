#pragma once

#include <pthread.h>

namespace com_tesk {

/// A pause of whole seconds that another thread can end early. Any thread may call any operation.
///
/// It uses the monotonic clock, so setting the system's time does not change its length.
class InterruptiblePause {
  public:
    InterruptiblePause();
    InterruptiblePause(const InterruptiblePause&) = delete;
    InterruptiblePause& operator=(const InterruptiblePause&) = delete;
    /// No thread may be inside an operation.
    ~InterruptiblePause();

    /// Blocks for `seconds`, or until `interrupt` is called. Returns at once when it was called before. Signals do not
    /// shorten it. A cancellation point.
    void sleep(unsigned int seconds);

    /// Ends every pause in progress and, until `reset`, every later one. Never blocks for long.
    void interrupt();

    /// Ends the interruption: later pauses last their full time.
    void reset();

  private:
    class Lock;

    pthread_mutex_t mutex;
    pthread_cond_t changed;
    /// Guarded by `mutex`.
    bool isInterrupted = false;
};

}  // namespace com_tesk
