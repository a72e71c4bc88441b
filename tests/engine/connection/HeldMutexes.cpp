#include "tests/engine/connection/HeldMutexes.h"

#include <dlfcn.h>
#include <pthread.h>

#include <utility>

namespace com_tesk::test {

namespace {

thread_local HeldMutex* current = nullptr;

}  // namespace

HeldMutex::HeldMutex(const void* object, std::size_t size, std::function<void()> beforeRelease)
    : begin(static_cast<const char*>(object)), end(begin + size), action(std::move(beforeRelease)) {
    current = this;
}

HeldMutex::~HeldMutex() {
    current = nullptr;
}

void HeldMutex::locked(const void* mutex) {
    const auto* const address = static_cast<const char*>(mutex);
    if (first == nullptr && address >= begin && address < end) {
        first = mutex;
    }
}

void HeldMutex::releasing(const void* mutex) {
    if (mutex == first) {
        // The action's own mutexes are not meant.
        HeldMutex* const held = std::exchange(current, nullptr);
        action();
        current = held;
    }
}

}  // namespace com_tesk::test

// The program's own functions come before the system's, for the library inside it too.

namespace {

template <typename Function>
Function systemFunction(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

#define CSCLIENT_PROGRAM_WIDE extern "C" __attribute__((visibility("default")))

CSCLIENT_PROGRAM_WIDE int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    static const auto real = systemFunction<decltype(&pthread_mutex_lock)>("pthread_mutex_lock");
    const int result = real(mutex);
    if (com_tesk::test::current != nullptr && result == 0) {
        com_tesk::test::current->locked(mutex);
    }
    return result;
}

CSCLIENT_PROGRAM_WIDE int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
    static const auto real = systemFunction<decltype(&pthread_mutex_trylock)>("pthread_mutex_trylock");
    const int result = real(mutex);
    if (com_tesk::test::current != nullptr && result == 0) {
        com_tesk::test::current->locked(mutex);
    }
    return result;
}

CSCLIENT_PROGRAM_WIDE int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    static const auto real = systemFunction<decltype(&pthread_mutex_unlock)>("pthread_mutex_unlock");
    if (com_tesk::test::current != nullptr) {
        com_tesk::test::current->releasing(mutex);
    }
    return real(mutex);
}
