#pragma once

#include <functional>

namespace com_tesk::bench {

/// Counts `calls` calls of `call`, and prints the figures of the case. Each call handles `values` values.
void count(const char* name, unsigned int calls, unsigned int values, const std::function<void(unsigned int)>& call);

/// @name The cases of the session
/// @{
void sessionSet(const char* name);
void sessionUpdateMany(const char* name);
void sessionHealth(const char* name);
void sessionParameters(const char* name);
/// @}

}  // namespace com_tesk::bench
