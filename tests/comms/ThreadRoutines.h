#pragma once

#include <pthread.h>
#include <unistd.h>

#include <atomic>

#include "comms/CSThread.h"
#include "tests/comms/TaskStatus.h"

#if defined(__SANITIZE_ADDRESS__)
#define CSCLIENT_TESTS_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define CSCLIENT_TESTS_ADDRESS_SANITIZER
#endif
#endif
#ifdef CSCLIENT_TESTS_ADDRESS_SANITIZER
extern "C" void __asan_handle_no_return();
#endif

namespace com_tesk::test {

/// What a test and the routine of a thread tell each other. It must outlive the thread.
struct Shared {
    std::atomic<pid_t> task{0};
    std::atomic<int> starts{0};
    std::atomic<bool> mayEnd{false};
    std::atomic<bool> hasEnded{false};
    std::atomic<bool> wasCancelled{false};

    bool waitForStart() const {
        return eventually([this] { return task != 0; });
    }

    /// Whether the thread sleeps in its routine: there a cancellation finds it.
    bool waitForSleep() const {
        return waitForStart() && eventually([this] { return isAsleep(task); });
    }

    /// Whether the routine has ended and the system has taken the thread back.
    bool waitForGone() const {
        return eventually([this] { return hasEnded && !exists(task); });
    }
};

inline void noteStart(Shared& shared) {
    ++shared.starts;
    shared.task = thisTask();
}

/// Ends at once.
inline void* endAtOnce(void* argument) {
    Shared& shared = *static_cast<Shared*>(argument);
    noteStart(shared);
    shared.hasEnded = true;
    return nullptr;
}

/// Sleeps in steps until it may end. Cancellation takes effect between the steps: a thread that is cancelled inside a
/// call has left ThreadSanitizer's sight for the rest of its life.
inline void* waitForLeave(void* argument) {
    Shared& shared = *static_cast<Shared*>(argument);
    noteStart(shared);
    while (!shared.mayEnd) {
        int previous = 0;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous);
        usleep(1000);
        pthread_setcancelstate(previous, nullptr);
        pthread_testcancel();
    }
    shared.hasEnded = true;
    return nullptr;
}

/// To be called while a cancelled thread ends: nothing else tells AddressSanitizer that its frames are dead.
inline void forgetDeadFrames() {
#ifdef CSCLIENT_TESTS_ADDRESS_SANITIZER
    __asan_handle_no_return();
#endif
}

/// As `waitForLeave`, and notes when it is cancelled.
inline void* waitForCancellation(void* argument) {
    pthread_cleanup_push(
        [](void* cancelled) {
            forgetDeadFrames();
            static_cast<Shared*>(cancelled)->wasCancelled = true;
            static_cast<Shared*>(cancelled)->hasEnded = true;
        },
        argument);
    waitForLeave(argument);
    pthread_cleanup_pop(0);
    return nullptr;
}

/// As `waitForLeave`, deaf to cancellation.
inline void* ignoreCancellation(void* argument) {
    int previous = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous);
    return waitForLeave(argument);
}

}  // namespace com_tesk::test
