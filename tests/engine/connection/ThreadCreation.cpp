#include "tests/engine/connection/ThreadCreation.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>

namespace {

thread_local bool isRefusing = false;
std::atomic<int> refusalCount{0};

using Creator = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

}  // namespace

extern "C" {

// A sanitizer that is linked into the program has the next definition of pthread_create under this name.
int __interceptor_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*) __attribute__((weak));

// Takes the place of the system's: the program's own definition comes first.
__attribute__((visibility("default"))) int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                                          void* (*routine)(void*), void* argument) noexcept {
    if (isRefusing) {
        ++refusalCount;
        return EAGAIN;
    }
    static const Creator creator = __interceptor_pthread_create != nullptr
                                       ? __interceptor_pthread_create
                                       : reinterpret_cast<Creator>(dlsym(RTLD_NEXT, "pthread_create"));
    return creator(thread, attributes, routine, argument);
}

}  // extern "C"

namespace com_tesk::test {

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
