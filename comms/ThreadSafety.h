#pragma once

// Names for Clang's thread-safety attributes. With them the compiler checks which thread holds which lock. They are
// empty on other compilers and change no code.

#if defined(__clang__)
#define CSCLIENT_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define CSCLIENT_THREAD_ATTRIBUTE(x)
#endif

#define CSCLIENT_CAPABILITY(name) CSCLIENT_THREAD_ATTRIBUTE(capability(name))
#define CSCLIENT_SCOPED_CAPABILITY CSCLIENT_THREAD_ATTRIBUTE(scoped_lockable)
#define CSCLIENT_GUARDED_BY(lock) CSCLIENT_THREAD_ATTRIBUTE(guarded_by(lock))
#define CSCLIENT_ACQUIRE(...) CSCLIENT_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define CSCLIENT_TRY_ACQUIRE(...) CSCLIENT_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define CSCLIENT_RELEASE(...) CSCLIENT_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define CSCLIENT_REQUIRES(...) CSCLIENT_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define CSCLIENT_EXCLUDES(...) CSCLIENT_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define CSCLIENT_RETURN_CAPABILITY(lock) CSCLIENT_THREAD_ATTRIBUTE(lock_returned(lock))
#define CSCLIENT_ASSERT_CAPABILITY(lock) CSCLIENT_THREAD_ATTRIBUTE(assert_capability(lock))
#define CSCLIENT_NO_THREAD_SAFETY_ANALYSIS CSCLIENT_THREAD_ATTRIBUTE(no_thread_safety_analysis)
