#include "session/LinkMonitor.h"

#include <new>
#include <utility>

namespace com_tesk::session {

void LinkMonitor::report(LinkEvent event) {
    const MutexLock lock(mutex);
    Session::Level level = Session::Level::INFO;
    if (event.cause != Cause::NONE && event.cause != Cause::STOPPED_BY_US) {
        last = {event.cause, event.error};
        const bool isReported = reported.cause == event.cause && reported.error == event.error;
        reported = last;
        if (isReported && link == event.link) {
            return;
        }
        // The state is reported whenever it changes, but the log has each reason once.
        level = isReported ? Session::Level::INFO : Session::Level::WARNING;
    } else if (link == event.link) {
        return;
    }
    reportHeld(event, level);
}

void LinkMonitor::evaluate(const std::function<Link()>& state, const std::function<std::string(Link)>& describe) {
    const MutexLock lock(mutex);
    const Link now = state();
    if (now < Link::CONNECTED || now == link) {
        return;
    }
    if (now >= Link::ANSWERED) {
        reported = LastFailure();
    }
    LinkEvent event{now, Cause::NONE, 0, describe(now)};
    reportHeld(event, Session::Level::INFO);
}

void LinkMonitor::reportHeld(LinkEvent& event, Session::Level level) {
    link = event.link;
    changed.notify_all();
    log.write(level, event.text);
    try {
        dispatcher.addEvent(std::move(event));
    } catch (const std::bad_alloc&) {
        dispatcher.countDroppedEvent();
    }
}

void LinkMonitor::notify() {
    const MutexLock lock(mutex);
    changed.notify_all();
}

bool LinkMonitor::waitFor(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
    const Clock::time_point deadline = after(Clock::now(), timeout);
    MutexLock lock(mutex);
    while (!condition()) {
        if (!lock.waitUntil(changed, deadline)) {
            return condition();
        }
    }
    return true;
}

LinkMonitor::LastFailure LinkMonitor::lastFailure() {
    const MutexLock lock(mutex);
    return last;
}

}  // namespace com_tesk::session
