#include "tests/reliability/CancellationPoints.h"

#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <tuple>
#include <utility>

#include "comms/CancellationDisabled.h"
#include "tests/support/SystemFunctions.h"

namespace com_tesk::test {

namespace {

thread_local ThreadScript* current = nullptr;

/// Replaces whole seconds.
constexpr long kShortNanoseconds = 5'000'000;

/// The function that a function of this program replaces. On a scripted thread it is that of the C library: the function of
/// the thread sanitizer does not survive a cancellation.
template <typename Function>
class SystemFunction {
  public:
    explicit SystemFunction(const char* name) : next(systemFunction<Function>(name)) {
        void* const cLibrary = dlopen("libc.so.6", RTLD_LAZY | RTLD_NOLOAD);
        void* const found = cLibrary != nullptr ? dlsym(cLibrary, name) : nullptr;
        last = found != nullptr ? reinterpret_cast<Function*>(found) : next;
    }

    operator Function*() const { return current != nullptr ? last : next; }

  private:
    Function* next;
    Function* last;
};

timespec shortTime() {
    return {0, kShortNanoseconds};
}

/// Returns the earlier of a time of the monotonic clock and the end of a short pause that begins now.
timespec shortened(const timespec& deadline) {
    timespec early{};
    clock_gettime(CLOCK_MONOTONIC, &early);
    early.tv_nsec += kShortNanoseconds;
    if (early.tv_nsec >= 1'000'000'000) {
        early.tv_nsec -= 1'000'000'000;
        ++early.tv_sec;
    }
    return std::tie(deadline.tv_sec, deadline.tv_nsec) < std::tie(early.tv_sec, early.tv_nsec) ? deadline : early;
}

bool areWrites(ThreadScript::Writes writes) {
    return current != nullptr && current->writes == writes;
}

/// Returns true when the pause that begins now must not be shortened.
bool beginPause() {
    if (current == nullptr || !current->hasLongPauses) {
        return false;
    }
    current->isInPause = true;
    return true;
}

}  // namespace

ScriptedThread::ScriptedThread(ThreadScript& script) {
    current = &script;
}

ScriptedThread::~ScriptedThread() {
    current = nullptr;
}

void passCancellationPoint(const char* name) {
    ThreadScript* const script = current;
    if (script == nullptr) {
        return;
    }
    ++script->points;
    script->lastPoint = name;
    if (script->points == script->cancelAt) {
        pthread_cancel(pthread_self());
    }
    // Takes effect here, because some functions of the sanitizers do not survive a cancellation.
    pthread_testcancel();
}

/// A function that only passes a cancellation point.
#define CSCLIENT_TEST_CANCELLATION_POINT(result, name, parameters, arguments) \
    CSCLIENT_TEST_REPLACES result name parameters {                           \
        static const SystemFunction<result parameters> real(#name);           \
        passCancellationPoint(#name);                                         \
        return real arguments;                                                \
    }

CSCLIENT_TEST_CANCELLATION_POINT(int, nanosleep, (const timespec* duration, timespec* left), (duration, left))
CSCLIENT_TEST_CANCELLATION_POINT(ssize_t, read, (int descriptor, void* buffer, size_t count),
                                 (descriptor, buffer, count))
CSCLIENT_TEST_CANCELLATION_POINT(ssize_t, recv, (int descriptor, void* buffer, size_t count, int flags),
                                 (descriptor, buffer, count, flags))
CSCLIENT_TEST_CANCELLATION_POINT(int, connect, (int descriptor, const sockaddr* address, socklen_t length),
                                 (descriptor, address, length))
CSCLIENT_TEST_CANCELLATION_POINT(int, close, (int descriptor), (descriptor))

CSCLIENT_TEST_REPLACES int clock_nanosleep(clockid_t clock, int flags, const timespec* duration, timespec* left) {
    static const SystemFunction<int(clockid_t, int, const timespec*, timespec*)> real("clock_nanosleep");
    const bool isLong = beginPause();
    passCancellationPoint("clock_nanosleep");
    if (isLong) {
        return real(clock, flags, duration, left);
    }
    const timespec pause = shortTime();
    real(CLOCK_MONOTONIC, 0, &pause, nullptr);
    return 0;
}

CSCLIENT_TEST_REPLACES int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                                  const timespec* deadline) {
    static const auto real = systemTimedWait();
    const bool isLong = beginPause();
    passCancellationPoint("pthread_cond_timedwait");
    if (isLong && kUnderThreadSanitizer) {
        // Not cancelled inside the sanitizer's function, as above.
        for (;;) {
            {
                const CancellationDisabled whileUnlocked;
                pthread_mutex_unlock(mutex);
                const timespec pause = shortTime();
                clock_nanosleep(CLOCK_MONOTONIC, 0, &pause, nullptr);
                pthread_mutex_lock(mutex);
            }
            pthread_testcancel();
        }
    }
    const timespec early = shortened(*deadline);
    return real(condition, mutex, isLong ? deadline : &early);
}

CSCLIENT_TEST_REPLACES ssize_t write(int descriptor, const void* buffer, size_t count) {
    static const SystemFunction<ssize_t(int, const void*, size_t)> real("write");
    if (current != nullptr) {
        ++current->writeCalls;
    }
    passCancellationPoint("write");
    if (areWrites(ThreadScript::Writes::FAILING)) {
        errno = EPIPE;
        return -1;
    }
    if (areWrites(ThreadScript::Writes::HALVED) && count > 1) {
        const ssize_t first = real(descriptor, buffer, count / 2);
        if (first < 0) {
            return first;
        }
        // The system waits for space here, inside the one call.
        passCancellationPoint("write");
        const ssize_t rest =
            real(descriptor, static_cast<const char*>(buffer) + first, count - static_cast<size_t>(first));
        return rest < 0 ? first : first + rest;
    }
    return real(descriptor, buffer, count);
}

CSCLIENT_TEST_REPLACES ssize_t send(int descriptor, const void* buffer, size_t count, int flags) {
    static const SystemFunction<ssize_t(int, const void*, size_t, int)> real("send");
    const int call = current == nullptr ? 0 : current->writeCalls++;
    passCancellationPoint("send");
    if (areWrites(ThreadScript::Writes::FAILING)) {
        errno = EPIPE;
        return -1;
    }
    if (areWrites(ThreadScript::Writes::HALVED)) {
        if (call % 3 == 0 && count > 1) {
            return real(descriptor, buffer, count / 2, flags);
        }
        if (call % 3 == 1) {
            errno = EAGAIN;
            return -1;
        }
    }
    return real(descriptor, buffer, count, flags);
}

CSCLIENT_TEST_REPLACES int poll(pollfd* descriptors, nfds_t count, int timeout) {
    static const SystemFunction<int(pollfd*, nfds_t, int)> real("poll");
    passCancellationPoint("poll");
    if (current != nullptr && current->duringPoll) {
        // The function of the test is not part of the operation.
        ThreadScript* const script = std::exchange(current, nullptr);
        std::exchange(script->duringPoll, nullptr)();
        current = script;
        // Its effect is found before the send buffer has space.
        descriptors->events = static_cast<short>(descriptors->events & ~POLLOUT);
    }
    return real(descriptors, count, timeout);
}

CSCLIENT_TEST_REPLACES int setsockopt(int descriptor, int level, int option, const void* value,
                                      socklen_t length) noexcept {
    static const SystemFunction<int(int, int, int, const void*, socklen_t)> real("setsockopt");
    if (level == SOL_SOCKET && option == SO_RCVTIMEO) {
        const timeval early{0, kShortNanoseconds / 1'000};
        return real(descriptor, level, option, &early, sizeof early);
    }
    return real(descriptor, level, option, value, length);
}

}  // namespace com_tesk::test
