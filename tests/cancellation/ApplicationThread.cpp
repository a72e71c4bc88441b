#include "tests/cancellation/ApplicationThread.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "comms/AtScopeEnd.h"

namespace com_tesk::test {

void endBecauseOf(const char* line) {
    std::fprintf(stderr, "%s\n", line);
    std::_Exit(EXIT_FAILURE);
}

ApplicationThread::ApplicationThread(std::function<void()> whatToRun) : operation(std::move(whatToRun)) {}

void ApplicationThread::start() {
    isStarted = true;
    if (!thread.create(&ApplicationThread::routine, this)) {
        endBecauseOf("no thread");
    }
}

void ApplicationThread::wait() {
    if (!isStarted) {
        return;
    }
    if (!ended.wait(std::chrono::seconds(30))) {
        endBecauseOf("the thread does not end");
    }
    // Without effect on a thread that was killed: that one is detached.
    thread.waitForThread();
}

void* ApplicationThread::routine(void* self) {
    auto& own = *static_cast<ApplicationThread*>(self);
    const AtScopeEnd tell([&own] { own.ended.open(); });
    const ScriptedThread scripted(own.script);
    own.operation();
    own.isReturned = true;
    return nullptr;
}

}  // namespace com_tesk::test
