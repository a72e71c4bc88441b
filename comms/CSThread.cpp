#include "comms/CSThread.h"

#include <csignal>

namespace com_tesk {

namespace {

/// Blocks every signal on the calling thread for a scope, so that a thread created in it starts with that mask.
class AllSignalsBlocked {
  public:
    AllSignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &previous);
    }
    AllSignalsBlocked(const AllSignalsBlocked&) = delete;
    AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;
    ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &previous, nullptr); }

  private:
    sigset_t previous;
};

}  // namespace

CSThread::CSThread() = default;

CSThread::~CSThread() {
    kill();
}

bool CSThread::create(void* (*routine)(void*), void* argument) {
    if (threadId != 0) {
        return false;
    }
    const AllSignalsBlocked inherited;
    joined = false;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_JOINABLE);
    const int result = pthread_create(&threadId, &attributes, routine, argument);
    pthread_attr_destroy(&attributes);
    if (result != 0) {
        threadId = 0;
        return false;
    }
    return true;
}

pthread_t CSThread::getId() const {
    return threadId;
}

bool CSThread::isActive() const {
    return threadId != 0;
}

void CSThread::kill() {
    if (threadId == 0) {
        return;
    }
    if (!joined) {
        pthread_cancel(threadId);
        pthread_detach(threadId);
    }
    threadId = 0;
}

bool CSThread::waitForThread() const {
    if (threadId == 0 || joined) {
        return false;
    }
    joined = pthread_join(threadId, nullptr) == 0;
    return joined;
}

}  // namespace com_tesk
