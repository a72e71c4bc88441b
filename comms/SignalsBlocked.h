#pragma once

#include <pthread.h>

#include <csignal>

namespace com_tesk {

/// Blocks every signal on the calling thread for a scope. A thread that is created in the scope inherits that mask.
class SignalsBlocked {
  public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &previous);
    }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &previous, nullptr); }

  private:
    sigset_t previous;
};

}  // namespace com_tesk
