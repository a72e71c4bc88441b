#include "tests/session/FullSocket.h"

#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

#include "tests/support/SystemFunctions.h"
#include "tests/support/Waiting.h"

namespace com_tesk::session_test {

namespace {

enum class Sends { EVERYTHING, ONE_BYTE, NOTHING };

// Not members, because a thread of a session may use them while the object is destroyed.
std::atomic<Sends> nextSend{Sends::EVERYTHING};
std::atomic<bool> hasRefused{false};

}  // namespace

FullSocket::FullSocket() {
    hasRefused = false;
    nextSend = Sends::ONE_BYTE;
}

FullSocket::~FullSocket() {
    release();
}

void FullSocket::release() {
    nextSend = Sends::EVERYTHING;
}

bool FullSocket::waitUntilRefused() {
    return test::waitUntil([] { return hasRefused.load(); });
}

CSCLIENT_TEST_REPLACES ssize_t send(int descriptor, const void* buffer, size_t count, int flags) {
    static const auto real = test::systemFunction<decltype(send)>("send");
    if ((flags & MSG_DONTWAIT) != 0) {
        Sends taken = Sends::ONE_BYTE;
        if (nextSend.compare_exchange_strong(taken, Sends::NOTHING)) {
            count = std::min<size_t>(count, 1);
        } else if (taken == Sends::NOTHING) {
            hasRefused = true;
            errno = EAGAIN;
            return -1;
        }
    }
    return real(descriptor, buffer, count, flags);
}

}  // namespace com_tesk::session_test
