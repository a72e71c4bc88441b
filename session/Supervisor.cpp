// The loop of the session's thread, and how it is started and stopped.

#include "session/Supervisor.h"

#include <algorithm>
#include <exception>

#include "comms/SignalsBlocked.h"

namespace com_tesk::session {

namespace {

/// The interval at which a stop checks whether the host has acknowledged everything: the system has no event for it.
constexpr std::chrono::microseconds kAcknowledgementPoll{200};

}  // namespace

Supervisor::Supervisor(const SupervisedParts& parts)
    : options(parts.options),
      log(parts.log),
      wake(*parts.wake),
      dispatcher(parts.dispatcher),
      links(parts.links),
      sender(parts.sender),
      receiver(parts.receiver),
      protocol(parts.protocol),
      transport(parts.transport),
      resolver(parts.options.host, parts.wake) {}

void Supervisor::start() {
    const MutexLock lock(lifeMutex);
    if (thread.joinable()) {
        return;
    }
    stopWanted = false;
    hasEnded = false;
    phase = Phase::PAUSED;
    isClosing = false;
    hasEndedSending = false;
    isTimeOver = false;
    nextAttempt = Clock::now();
    areAgesUnchecked = true;
    // The application's signals are delivered to the application's own threads.
    const SignalsBlocked inherited;
    thread = std::thread([this] { run(); });
}

bool Supervisor::stop(std::chrono::milliseconds drainTime) {
    const Clock::time_point limit = after(Clock::now(), drainTime);
    {
        // A stop on another thread, which may have more time, ends then, too.
        const MutexLock stopLock(stopMutex);
        drainUntil = std::min(drainUntil, limit);
    }
    wake.signal();
    const MutexLock lock(lifeMutex);
    if (!thread.joinable()) {
        return sender.isDrained(true);
    }
    {
        const MutexLock stopLock(stopMutex);
        drainUntil = limit;
        isAllAcknowledged = false;
    }
    stopWanted = true;
    wake.signal();
    thread.join();
    const MutexLock stopLock(stopMutex);
    return isAllAcknowledged;
}

void Supervisor::run() {
    bool isAnnounced = false;
    bool isRunning = true;
    while (isRunning) {
        try {
            if (!isAnnounced) {
                links.report({Link::CONNECTING, Cause::NONE, 0, "connecting to " + place()});
                isAnnounced = true;
            }
            isRunning = runOnce();
        } catch (const std::exception&) {
            recover();
        }
    }
    links.report({Link::STOPPED, Cause::STOPPED_BY_US, 0, "stopped"});
}

bool Supervisor::runOnce() {
    wake.clear();
    next = kNoDeadline;
    const Clock::time_point now = Clock::now();
    if (hasEnded.exchange(false)) {
        afterEnd();
    }
    const bool isClosed = phase != Phase::OPEN;
    if (isStopWanted() && isDoneSending(now)) {
        if (isClosed) {
            return false;
        }
        if (!isClosing) {
            isClosing = true;
            protocol.forceCloseConnection();
        }
    } else if (phase == Phase::PAUSED && now >= nextAttempt) {
        beginAttempt();
    } else if (phase == Phase::RESOLVING) {
        open();
    } else if (phase == Phase::OPEN && sender.connection() != 0) {
        attend(now);
        if (isStopWanted() && !hasEndedSending && sender.isDrained(true)) {
            lookAt(now);  // The last value has just left: check its acknowledgement without waiting.
        }
    }
    if (phase == Phase::PAUSED) {
        lookAt(nextAttempt);
    }
    checkAges(now);
    wait();
    return true;
}

void Supervisor::wait() {
    if (next > Clock::now()) {
        transport.wait(wake.descriptor(), sender.hasRest(), next);
    }
    sender.stage().endIdle();
}

bool Supervisor::isDoneSending(Clock::time_point now) {
    Clock::time_point limit;
    {
        const MutexLock lock(stopMutex);
        limit = drainUntil;
    }
    const bool isSent = hasEndedSending || sender.isDrained(true);
    const bool isUp = sender.connection() != 0;
    if (isSent && (!isUp || transport.isAcknowledged())) {
        const MutexLock lock(stopMutex);
        // The end of a connection can lose what was in transit, but not what was acknowledged before.
        isAllAcknowledged =
            isAllAcknowledged || isUp || (!isTimeOver && (!hasEndedSending || transport.isAcknowledged()));
        return true;
    }
    if (now >= limit) {
        isTimeOver = true;
        return true;
    }
    lookAt(limit);
    if (isSent && isUp) {
        if (!hasEndedSending) {
            hasEndedSending = true;
            sender.endSending();
        }
        lookAt(now + kAcknowledgementPoll);
    }
    return false;
}

bool Supervisor::flush(std::chrono::milliseconds timeout) {
    ++flushWaiters;
    sender.trySend();
    wake.signal();
    const bool isFlushed = links.waitFor([this] { return sender.isDrained(true); }, timeout);
    --flushWaiters;
    return isFlushed;
}

void Supervisor::recheckAges() {
    areAgesUnchecked = true;
    wake.signal();
}

void Supervisor::checkAges(Clock::time_point now) {
    if (areAgesUnchecked.exchange(false) || now >= nextAgeCheck) {
        nextAgeCheck = sender.findStale(now, [this](InputSlot& slot) { dispatcher.addQualityChange(slot); });
    }
    lookAt(nextAgeCheck);
}

void Supervisor::updateLink() {
    links.evaluate(
        [this] {
            if (sender.connection() == 0) {
                return Link::CONNECTING;
            }
            if (!receiver.isAnswered()) {
                return Link::CONNECTED;
            }
            return sender.unconfirmed() == 0 ? Link::READY : Link::ANSWERED;
        },
        [this](Link link) {
            switch (link) {
                case Link::CONNECTED:
                    return "connected to " + place();
                case Link::ANSWERED:
                    return place() + " has answered (" + receiver.host().version +
                           "); unconfirmed parameters: " + std::to_string(sender.unconfirmed());
                default:
                    return place() + " has confirmed everything";
            }
        });
    links.notify();
    if (isStopWanted()) {
        wake.signal();  // The values that the stop waits for may have left.
    }
}

std::string Supervisor::place() const {
    return options.host + ':' + std::to_string(options.port);
}

}  // namespace com_tesk::session
