#pragma once

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>

#include "comms/CSThread.h"
#include "tests/comms/TaskStatus.h"
#include "tests/support/Waiting.h"

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

/// The state that a test and the routine of a thread share. It must outlive the thread.
struct Shared {
    std::atomic<pid_t> task{0};
    std::atomic<int> starts{0};
    std::atomic<bool> mayEnd{false};
    std::atomic<bool> hasEnded{false};
    std::atomic<bool> wasCancelled{false};

    bool waitForStart() const {
        return waitUntil([this] { return task != 0; });
    }
    /// Waits until the thread sleeps in its routine, where a cancellation takes effect.
    bool waitForSleep() const {
        return waitUntil([this] { return task != 0 && isAsleep(task); });
    }
    /// Waits until the routine has ended and the system has removed the thread.
    bool waitForGone() const {
        return waitUntil([this] { return hasEnded && !exists(task); });
    }
};

inline int detachStateOf(pthread_t thread) {
    pthread_attr_t attributes;
    int detachState = -1;
    pthread_getattr_np(thread, &attributes);
    pthread_attr_getdetachstate(&attributes, &detachState);
    pthread_attr_destroy(&attributes);
    return detachState;
}

inline void noteStart(Shared& shared) {
    ++shared.starts;
    shared.task = thisTask();
}

inline void* endAtOnce(void* argument) {
    Shared& shared = *static_cast<Shared*>(argument);
    noteStart(shared);
    shared.hasEnded = true;
    return nullptr;
}

/// Sleeps in steps until it may end. A cancellation takes effect between the steps, because ThreadSanitizer loses sight
/// of a thread that is cancelled inside a call.
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

/// Tells AddressSanitizer that the frames of a cancelled thread are dead. Call it while the thread ends.
inline void dropDeadFrames() {
#ifdef CSCLIENT_TESTS_ADDRESS_SANITIZER
    __asan_handle_no_return();
#endif
}

/// As `waitForLeave`, and records a cancellation.
inline void* waitForCancellation(void* argument) {
    pthread_cleanup_push(
        [](void* cancelled) {
            dropDeadFrames();
            static_cast<Shared*>(cancelled)->wasCancelled = true;
            static_cast<Shared*>(cancelled)->hasEnded = true;
        },
        argument);
    waitForLeave(argument);
    pthread_cleanup_pop(0);
    return nullptr;
}

/// As `waitForLeave`, but cannot be cancelled.
inline void* ignoreCancellation(void* argument) {
    int previous = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous);
    return waitForLeave(argument);
}

}  // namespace com_tesk::test
