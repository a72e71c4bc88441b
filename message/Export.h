#pragma once

/// Marks a class of the public interface. The library is built with hidden visibility; only what carries this mark
/// can be linked against when it is shared.
#if defined(__GNUC__)
#define CSCLIENT_EXPORT __attribute__((visibility("default")))
#else
#define CSCLIENT_EXPORT
#endif
