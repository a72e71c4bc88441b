#pragma once

namespace com_tesk::test {

#if defined(__has_feature)
#define CSCLIENT_TEST_HAS_FEATURE(feature) __has_feature(feature)
#else
#define CSCLIENT_TEST_HAS_FEATURE(feature) 0
#endif

/// True when the program is instrumented with the thread sanitizer.
#if defined(__SANITIZE_THREAD__) || CSCLIENT_TEST_HAS_FEATURE(thread_sanitizer)
constexpr bool kUnderThreadSanitizer = true;
#else
constexpr bool kUnderThreadSanitizer = false;
#endif

/// True when the program is instrumented with the address or the thread sanitizer.
#if defined(__SANITIZE_ADDRESS__) || CSCLIENT_TEST_HAS_FEATURE(address_sanitizer)
constexpr bool kUnderSanitizer = true;
#else
constexpr bool kUnderSanitizer = kUnderThreadSanitizer;
#endif

#undef CSCLIENT_TEST_HAS_FEATURE

}  // namespace com_tesk::test
