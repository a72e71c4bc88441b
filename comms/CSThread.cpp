#include "comms/CSThread.h"

namespace com_tesk {

CSThread::CSThread() = default;

CSThread::~CSThread() {
    kill();
}

bool CSThread::create(void* (*routine)(void*), void* argument) {
    if (threadId != 0) {
        return false;
    }
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
