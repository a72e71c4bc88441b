#pragma once

#include <pthread.h>

namespace com_tesk {

/// Defers the cancellation of the calling thread for a scope. A cancellation that is requested meanwhile takes effect
/// at the first cancellation point after the scope.
///
/// It protects steps that must not end halfway, and destructors: a cancellation inside a destructor ends the process.
class CancellationDisabled {
  public:
    CancellationDisabled() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous); }
    CancellationDisabled(const CancellationDisabled&) = delete;
    CancellationDisabled& operator=(const CancellationDisabled&) = delete;
    ~CancellationDisabled() { pthread_setcancelstate(previous, nullptr); }

  private:
    int previous = PTHREAD_CANCEL_ENABLE;
};

}  // namespace com_tesk
