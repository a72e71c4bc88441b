#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <string>

#include "session/Dispatcher.h"
#include "session/Link.h"
#include "session/Log.h"
#include "session/Mutex.h"
#include "session/Times.h"

namespace com_tesk::session {

/// The state of the link, and what is reported about it. Threads may wait for it to change.
///
/// It reports every change of the state. Of attempts that fail it reports the first, and those with another reason
/// than the one before.
class LinkMonitor {
  public:
    /// @param eventDispatcher  outlives this object, as does the log.
    LinkMonitor(Dispatcher& eventDispatcher, const Log& sessionLog) : dispatcher(eventDispatcher), log(sessionLog) {}
    LinkMonitor(const LinkMonitor&) = delete;
    LinkMonitor& operator=(const LinkMonitor&) = delete;
    ~LinkMonitor() = default;

    Link current() const { return link; }

    /// Reports a state. Does nothing when it is the current one, unless the reason of a failure is new.
    void report(LinkEvent event) CSCLIENT_EXCLUDES(mutex);

    /// Reports the better state that the arguments imply, while there is a connection.
    /// @param describe  returns the text of the event.
    void evaluate(const std::function<Link()>& state, const std::function<std::string(Link)>& describe)
        CSCLIENT_EXCLUDES(mutex);

    /// Wakes the threads that wait, because something else has changed.
    void notify() CSCLIENT_EXCLUDES(mutex);

    /// Blocks until `condition` is true, for at most `timeout`. It is called under this object's lock.
    /// @return its last result.
    bool waitFor(const std::function<bool()>& condition, std::chrono::milliseconds timeout) CSCLIENT_EXCLUDES(mutex);

    /// The reason of the last failure.
    struct LastFailure {
        Cause cause = Cause::NONE;
        int error = 0;
    };
    LastFailure lastFailure() CSCLIENT_EXCLUDES(mutex);

  private:
    void reportHeld(LinkEvent& event, Session::Level level) CSCLIENT_REQUIRES(mutex);

    Dispatcher& dispatcher;
    const Log& log;

    Mutex mutex;
    std::condition_variable changed;
    std::atomic<Link> link{Link::STOPPED};
    /// The reason that was last reported, until the host answers.
    LastFailure reported CSCLIENT_GUARDED_BY(mutex);
    LastFailure last CSCLIENT_GUARDED_BY(mutex);
};

}  // namespace com_tesk::session
