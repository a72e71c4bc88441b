#pragma once

#include <sys/types.h>

#include <string>

namespace com_tesk::test {

/// Returns the system's number of the calling thread.
pid_t thisTask();

/// True when a thread of this process sleeps inside a system call.
bool isAsleep(pid_t task);

/// True when a thread of this process exists.
bool exists(pid_t task);

/// Returns a number of /proc/self/status, such as "Threads" or "VmSize" (in kibibytes).
long statusNumber(const std::string& name);

}  // namespace com_tesk::test
