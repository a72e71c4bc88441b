#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <vector>

#include "session/InputSlot.h"
#include "session/Link.h"
#include "session/Mutex.h"
#include "session/WakePipe.h"

namespace com_tesk::session {

/// The callbacks that wait, and the functions to call. The session's threads add; the application's thread runs.
///
/// No lock is held while a callback runs. Each function is kept alive by the call that runs it, so a callback may
/// replace itself. The size is bounded: an input waits at most once, or with `Delivery::EVERY` once for each reading in a
/// queue of bounded size, and link events have a limit.
class Dispatcher {
  public:
    using LinkCallback = std::function<void(const LinkEvent&)>;
    using UpdateCallback = std::function<void(std::size_t)>;

    /// Link events that wait at most.
    static constexpr std::size_t kMaxEvents = 64;

    Dispatcher() = default;
    Dispatcher(const Dispatcher&) = delete;
    Dispatcher& operator=(const Dispatcher&) = delete;
    ~Dispatcher() = default;

    /// @name The functions
    /// @{
    void setLinkCallback(LinkCallback callback) CSCLIENT_EXCLUDES(mutex);
    void setUpdateCallback(UpdateCallback callback) CSCLIENT_EXCLUDES(mutex);
    void setInputCallback(InputSlot& slot, InputSlot::Callback callback) CSCLIENT_EXCLUDES(mutex);
    /// @}

    /// @name Adding
    /// @{
    void addEvent(LinkEvent event) CSCLIENT_EXCLUDES(mutex);
    void countDroppedEvent() { ++dropped; }
    /// Adds inputs that have new values, with their readings, and the number of all values of an update.
    struct Changed {
        InputSlot* slot;
        SampleReading reading;
    };
    void addUpdate(const std::vector<Changed>& changed, std::size_t values) CSCLIENT_EXCLUDES(mutex);
    /// Adds an input whose quality may have changed. Does nothing before its first value.
    void addQualityChange(InputSlot& slot) CSCLIENT_EXCLUDES(mutex);
    /// @}

    /// Runs what waits. See `Session::dispatch`.
    std::size_t run() CSCLIENT_EXCLUDES(mutex);
    /// Makes `run` return after the callback that is running, and do nothing from then on. Any thread.
    void end() {
        hasEnded = true;
        pipe.signal();
    }
    bool isEnded() const { return hasEnded; }
    /// True when the calling thread is inside `run`.
    bool isRunningOnThisThread() const;
    /// True when any thread is inside `run`.
    bool isRunning() const { return running; }

    int descriptor() const { return pipe.descriptor(); }
    /// Events that were dropped.
    std::uint64_t droppedEvents() const { return dropped; }
    /// True when updates are counted for a callback.
    bool wantsUpdates() const { return isUpdateWanted; }

  private:
    class Run;

    void queue(InputSlot& slot) CSCLIENT_REQUIRES(mutex);
    std::size_t runEvents() CSCLIENT_EXCLUDES(mutex);
    std::size_t runInputs() CSCLIENT_EXCLUDES(mutex);
    std::size_t runUpdate() CSCLIENT_EXCLUDES(mutex);
    std::size_t runInput(InputSlot& slot) CSCLIENT_EXCLUDES(mutex);
    /// Takes the oldest reading of a queue, and the function to call with it.
    bool takeReading(InputSlot& slot, std::shared_ptr<const InputSlot::Callback>& callback, SampleReading& reading)
        CSCLIENT_EXCLUDES(mutex);
    static bool isNews(InputSlot& slot, const SampleReading& reading);

    // Any thread.

    WakePipe pipe;
    std::atomic<bool> running{false};
    std::atomic<bool> hasEnded{false};
    std::atomic<bool> isUpdateWanted{false};
    std::atomic<std::uint64_t> dropped{0};

    Mutex mutex;
    std::shared_ptr<const LinkCallback> linkCallback CSCLIENT_GUARDED_BY(mutex);
    std::shared_ptr<const UpdateCallback> updateCallback CSCLIENT_GUARDED_BY(mutex);
    std::deque<LinkEvent> events CSCLIENT_GUARDED_BY(mutex);
    /// Inputs that wait, in the order in which their values have arrived. With `Delivery::EVERY` once for each reading.
    std::deque<InputSlot*> inputs CSCLIENT_GUARDED_BY(mutex);
    /// Values that have arrived since the last call for updates.
    std::size_t updatedValues CSCLIENT_GUARDED_BY(mutex) = 0;
};

}  // namespace com_tesk::session
