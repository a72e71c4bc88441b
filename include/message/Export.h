#pragma once

/// Marks a class of the public interface. The library is built with hidden visibility. Programs can link only marked
/// classes of the shared library.
#if defined(__GNUC__)
#define CSCLIENT_EXPORT __attribute__((visibility("default")))
#else
#define CSCLIENT_EXPORT
#endif

/// Marks a member of such a class that only the library itself calls. It is not part of the binary interface.
#if defined(__GNUC__)
#define CSCLIENT_INTERNAL __attribute__((visibility("hidden")))
#else
#define CSCLIENT_INTERNAL
#endif
