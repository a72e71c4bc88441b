#include "tests/session/FailingReceive.h"

#include <sys/socket.h>

#include <atomic>
#include <cerrno>

#include "tests/support/SystemFunctions.h"

namespace com_tesk::session_test {

namespace {

std::atomic<int> receiveError{0};
thread_local bool isReceiveExempt = false;

}  // namespace

FailingReceive::FailingReceive(int error) {
    isReceiveExempt = true;
    receiveError = error;
}

FailingReceive::~FailingReceive() {
    receiveError = 0;
    isReceiveExempt = false;
}

CSCLIENT_TEST_REPLACES ssize_t recv(int descriptor, void* buffer, size_t count, int flags) {
    const int error = isReceiveExempt ? 0 : receiveError.load();
    if (error != 0) {
        errno = error;
        return -1;
    }
    static const auto real = test::systemFunction<decltype(recv)>("recv");
    return real(descriptor, buffer, count, flags);
}

}  // namespace com_tesk::session_test
