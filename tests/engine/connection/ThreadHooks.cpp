#include "tests/engine/connection/ThreadHooks.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <utility>

namespace com_tesk::test {

namespace {

thread_local bool isRefusing = false;
std::atomic<int> refusalCount{0};

/// What a thread's HeldMutex watches.
thread_local const char* objectBegin = nullptr;
thread_local const char* objectEnd = nullptr;
thread_local const void* firstLocked = nullptr;
thread_local const std::function<void()>* actionBeforeRelease = nullptr;

int notifyLocked(int result, const pthread_mutex_t* mutex) {
    const auto* const address = reinterpret_cast<const char*>(mutex);
    if (actionBeforeRelease != nullptr && result == 0 && firstLocked == nullptr && address >= objectBegin &&
        address < objectEnd) {
        firstLocked = mutex;
    }
    return result;
}

void notifyReleasing(const pthread_mutex_t* mutex) {
    if (actionBeforeRelease != nullptr && mutex == firstLocked) {
        // Mutexes that the action itself uses do not count.
        const std::function<void()>* const action = std::exchange(actionBeforeRelease, nullptr);
        (*action)();
        actionBeforeRelease = action;
    }
}

template <typename Function>
Function systemFunction(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

HeldMutex::HeldMutex(const void* object, std::size_t size, std::function<void()> beforeRelease)
    : action(std::move(beforeRelease)) {
    objectBegin = static_cast<const char*>(object);
    objectEnd = objectBegin + size;
    firstLocked = nullptr;
    actionBeforeRelease = &action;
}

HeldMutex::~HeldMutex() {
    actionBeforeRelease = nullptr;
}

NoMoreThreads::NoMoreThreads() {
    isRefusing = true;
}

NoMoreThreads::~NoMoreThreads() {
    isRefusing = false;
}

int NoMoreThreads::refusals() {
    return refusalCount;
}

}  // namespace com_tesk::test

// The program's definitions replace the system's, also for the library.

#define CSCLIENT_PROGRAM_WIDE extern "C" __attribute__((visibility("default")))

// A sanitizer that is linked into the program has the next definition of pthread_create under this name.
extern "C" int __interceptor_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)
    __attribute__((weak));

CSCLIENT_PROGRAM_WIDE int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                                         void* argument) noexcept {
    using Creator = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    if (com_tesk::test::isRefusing) {
        ++com_tesk::test::refusalCount;
        return EAGAIN;
    }
    static const Creator creator = __interceptor_pthread_create != nullptr
                                       ? __interceptor_pthread_create
                                       : com_tesk::test::systemFunction<Creator>("pthread_create");
    return creator(thread, attributes, routine, argument);
}

CSCLIENT_PROGRAM_WIDE int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    static const auto real = com_tesk::test::systemFunction<decltype(&pthread_mutex_lock)>("pthread_mutex_lock");
    return com_tesk::test::notifyLocked(real(mutex), mutex);
}

CSCLIENT_PROGRAM_WIDE int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
    static const auto real = com_tesk::test::systemFunction<decltype(&pthread_mutex_trylock)>("pthread_mutex_trylock");
    return com_tesk::test::notifyLocked(real(mutex), mutex);
}

CSCLIENT_PROGRAM_WIDE int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    static const auto real = com_tesk::test::systemFunction<decltype(&pthread_mutex_unlock)>("pthread_mutex_unlock");
    com_tesk::test::notifyReleasing(mutex);
    return real(mutex);
}
