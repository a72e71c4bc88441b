// How the session's thread connects, attends to a connection, and acts on its end.

#include <netdb.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <system_error>

#include "session/Supervisor.h"

namespace com_tesk::session {

namespace {

/// Version requests that may be unanswered.
constexpr unsigned int kMaxUnanswered = 3;

/// The pause after the session's thread found no memory.
constexpr std::chrono::milliseconds kRecoveryPause{100};

/// Counts a failure when it goes out of scope: after its cause was reported, so that no thread reads a failure without
/// a cause, and also when there was no memory for the report.
class CountedAtEnd {
  public:
    explicit CountedAtEnd(std::atomic<std::uint64_t>& countedNumber) : number(countedNumber) {}
    CountedAtEnd(const CountedAtEnd&) = delete;
    CountedAtEnd& operator=(const CountedAtEnd&) = delete;
    ~CountedAtEnd() { ++number; }

  private:
    std::atomic<std::uint64_t>& number;
};

const char* textOf(Cause cause) {
    switch (cause) {
        case Cause::REFUSED:
            return "no program listens there";
        case Cause::UNREACHABLE:
            return "not reachable";
        case Cause::NAME_NOT_FOUND:
            return "the name has no address";
        case Cause::CLOSED:
            return "closed by the host";
        case Cause::RESET:
            return "reset by the host";
        case Cause::SILENT:
            return "the host has stopped in the middle of a frame";
        case Cause::NOT_A_HOST:
            return "what answers there is no simulation host";
        case Cause::NO_ANSWER:
            return "the host does not answer";
        case Cause::GONE:
            return "the host's system is gone";
        case Cause::FAILED:
            return "this system has refused a socket, a thread or memory";
        case Cause::NONE:
        case Cause::STOPPED_BY_US:
            break;
    }
    return "ended";
}

}  // namespace

void Supervisor::beginAttempt() {
    attemptBegan = Clock::now();
    transport.forgetFailure();
    phase = Phase::RESOLVING;
    resolver.begin();
    open();
}

void Supervisor::open() {
    const NameResolver::Result found = resolver.result();
    if (!found.isComplete) {
        return;
    }
    if (found.error != 0) {
        phase = Phase::PAUSED;
        nextAttempt = after(attemptBegan, options.retry);
        const CountedAtEnd counted(failed);
        reportFailure(Cause::NAME_NOT_FOUND, found.error, "no connection");
        return;
    }
    wasUp = false;
    isClosing = false;
    phase = Phase::OPEN;
    if (protocol.openConnection(found.address, options.port, nullptr) != CSClient::RESULT_OK) {
        // There is no thread for the worker. Its routine ends the attempt on this one.
        transport.noteFailure(Cause::FAILED, 0);
        CSClientProtocol::mainThread(static_cast<CSClientProtocol*>(&protocol));
    }
}

void Supervisor::connectionBegan() {
    const Clock::time_point now = Clock::now();
    beganAt = now.time_since_epoch().count();
    ++connections;
    receiver.begin();
    auto number = static_cast<std::uint32_t>(connections);
    sender.begin(number != 0 ? number : 1);
    sender.forEachInput([this](InputSlot& slot) { dispatcher.addQualityChange(slot); });
    updateLink();
    wake.signal();
}

void Supervisor::connectionEnded() noexcept {
    hasEnded = true;
    wake.signal();
}

void Supervisor::attend(Clock::time_point now) {
    if (!wasUp) {
        wasUp = true;
        isNoAnswerReported = false;
        nextHeartbeat = options.heartbeat.count() > 0 ? after(now, options.heartbeat) : kNoDeadline;
        gatherUntil = kNoDeadline;
    }
    checkAnswers(now);
    checkProgress(now);
    sendStaged(now);
}

void Supervisor::sendStaged(Clock::time_point now) {
    if (sender.hasRest() || sender.isSendWanted() || isStopWanted() || flushWaiters != 0) {
        sender.send();
    } else if (gatherUntil != kNoDeadline && now >= gatherUntil) {
        gatherUntil = kNoDeadline;
        sender.send();
    }
    if (sender.hasRest()) {
        return;  // The wait ends when there is space.
    }
    if (flushWaiters != 0) {
        links.notify();
    }
    if (gatherUntil == kNoDeadline && !sender.stage().beginIdle()) {
        gatherUntil = after(now, options.gather);
    }
    lookAt(gatherUntil);
}

void Supervisor::checkAnswers(Clock::time_point now) {
    if (now >= nextHeartbeat) {
        if (sender.unansweredVersionRequests() >= kMaxUnanswered) {
            giveUp(Cause::NO_ANSWER);
            return;
        }
        if (!sender.hasRest()) {
            sender.requestVersion();
        } else if (now - sender.lastProgress() >= kMaxUnanswered * options.heartbeat) {
            giveUp(Cause::NO_ANSWER);
            return;
        }
        nextHeartbeat = after(now, options.heartbeat);
    }
    lookAt(nextHeartbeat);
    if (!isNoAnswerReported && !receiver.isAnswered()) {
        const auto limit = after(Clock::time_point(Clock::duration(beganAt)), options.answerTimeout);
        if (now < limit) {
            lookAt(limit);
            return;
        }
        isNoAnswerReported = true;
        links.report({Link::CONNECTED, Cause::NO_ANSWER, 0,
                      place() + ": connected, and no answer to the version request for " +
                          std::to_string(options.answerTimeout.count()) + " ms"});
    }
}

void Supervisor::checkProgress(Clock::time_point now) {
    if (!sender.hasRest()) {
        return;
    }
    const Clock::time_point limit = after(sender.lastProgress(), options.bounds.writeTimeout);
    if (now >= limit) {
        giveUp(Cause::SILENT);
    } else {
        lookAt(limit);
    }
}

void Supervisor::giveUp(Cause cause) {
    if (!isClosing) {
        isClosing = true;
        transport.noteFailure(cause, 0);
        protocol.forceCloseConnection();
    }
}

void Supervisor::afterEnd() {
    protocol.waitForWorker();
    const bool wasConnected = sender.connection() != 0;
    const bool wasAnswered = receiver.isAnswered();
    sender.end();
    receiver.forgetAnswer();
    sender.forEachInput([this](InputSlot& slot) { dispatcher.addQualityChange(slot); });
    phase = Phase::PAUSED;
    nextAttempt = std::max(Clock::now(), after(attemptBegan, options.retry));
    if (isStopWanted()) {
        return;
    }
    const SessionTransport::Failure failure = transport.failure();
    const bool isKnown = failure.cause != Cause::NONE && failure.cause != Cause::STOPPED_BY_US;
    const CountedAtEnd counted(wasConnected ? lost : failed);
    const Cause cause = isKnown ? failure.cause : Cause::CLOSED;
    // A tunnel or a proxy accepts at once, and closes when it cannot reach the host.
    const bool isUnanswered = !wasAnswered && (cause == Cause::CLOSED || cause == Cause::RESET);
    reportFailure(cause, failure.error,
                  !wasConnected  ? "no connection"
                  : isUnanswered ? "connected, and no answer"
                                 : "connection lost");
}

void Supervisor::reportFailure(Cause cause, int error, const std::string& what) {
    std::string text = place() + ": " + what + ": " + textOf(cause);
    if (cause == Cause::NAME_NOT_FOUND) {
        text += std::string(" (") + gai_strerror(error) + ')';
    } else if (error != 0) {
        text += " (" + std::generic_category().message(error) + ')';
    }
    text += "; tried again every " + std::to_string(options.retry.count()) + " ms";
    links.report({Link::CONNECTING, cause, error, std::move(text)});
}

void Supervisor::recover() {
    // Memory, or another resource, ran out. The steps that were not done are done again.
    if (phase == Phase::OPEN) {
        giveUp(Cause::FAILED);
    } else if (phase == Phase::RESOLVING) {
        phase = Phase::PAUSED;
        ++failed;
    }
    nextAttempt = Clock::now() + std::max<Clock::duration>(options.retry, kRecoveryPause);
    if (phase == Phase::PAUSED) {
        wake.signal();
    }
}

}  // namespace com_tesk::session
