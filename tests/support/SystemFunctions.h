#pragma once

#include <dlfcn.h>
#include <pthread.h>

#include "tests/support/Sanitizers.h"

namespace com_tesk::test {

/// Returns the function of the system that a function of this program replaces.
template <typename Function>
Function* systemFunction(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

using TimedWait = int(pthread_cond_t*, pthread_mutex_t*, const timespec*);

/// Returns the system's `pthread_cond_timedwait`. Without a version the older function may be found, which takes another
/// type of condition. The thread sanitizer's function has no version, and has to see that the mutex is released.
inline TimedWait* systemTimedWait() {
    void* const newer = kUnderThreadSanitizer ? nullptr : dlvsym(RTLD_NEXT, "pthread_cond_timedwait", "GLIBC_2.3.2");
    return newer != nullptr ? reinterpret_cast<TimedWait*>(newer) : systemFunction<TimedWait>("pthread_cond_timedwait");
}

}  // namespace com_tesk::test

/// Begins the definition of a function that replaces one of the system in every module of the process.
#define CSCLIENT_TEST_REPLACES extern "C" __attribute__((visibility("default")))
