#include "session/WakePipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace com_tesk::session {

WakePipe::WakePipe() {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_NONBLOCK | O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "csclient: a session needs two pipes");
    }
    readEnd = ends[0];
    writeEnd = ends[1];
}

WakePipe::~WakePipe() {
    close(readEnd);
    close(writeEnd);
}

void WakePipe::signal() {
    if (!isSignalled.exchange(true)) {
        const char byte = 1;
        // One byte always fits: the pipe holds at most one for each `clear`.
        static_cast<void>(write(writeEnd, &byte, sizeof byte) == 0);
    }
}

void WakePipe::clear() {
    char bytes[16];
    while (read(readEnd, bytes, sizeof bytes) > 0) {
    }
    // Only after the read: a signal that comes between the two writes no byte, and the caller looks for its reason
    // after this.
    isSignalled = false;
}

}  // namespace com_tesk::session
