#include "tests/reliability/RudeHost.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "tests/reliability/Sockets.h"

namespace com_tesk::test {

namespace {

/// How long anything here waits before it looks whether the host is leaving.
constexpr int kLookMilliseconds = 20;

}  // namespace

bool RudeHost::Guest::send(const void* bytes, std::size_t count) const {
    const char* next = static_cast<const char*>(bytes);
    while (count > 0 && isWanted()) {
        const ssize_t sent = ::send(socket, next, count, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            next += sent;
            count -= static_cast<std::size_t>(sent);
        } else if (errno == EAGAIN) {
            pollfd waiting{socket, POLLOUT, 0};
            poll(&waiting, 1, kLookMilliseconds);
        } else {
            return false;
        }
    }
    return count == 0;
}

bool RudeHost::Guest::drop(int milliseconds) const {
    char dropped[4096];
    for (int waited = 0; waited <= milliseconds && isWanted(); waited += kLookMilliseconds) {
        while (isReadableWithin(socket, milliseconds < kLookMilliseconds ? milliseconds : kLookMilliseconds)) {
            waited = 0;
            if (recv(socket, dropped, sizeof dropped, 0) <= 0) {
                return false;
            }
        }
    }
    return isWanted();
}

void RudeHost::Guest::hold() const {
    while (isWanted()) {
        poll(nullptr, 0, kLookMilliseconds);
    }
}

RudeHost::RudeHost(std::function<void(Guest& guest, int number)> treatment, int receiveBuffer)
    : treat(std::move(treatment)), listener(listenOnLoopback()), portNumber(portOf(listener)) {
    if (receiveBuffer != 0) {
        // Inherited by the connections: it has to be set before they are made.
        setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    }
    fcntl(listener, F_SETFL, O_NONBLOCK);
    thread = std::thread([this] { run(); });
}

void RudeHost::leave() {
    if (!thread.joinable()) {
        return;
    }
    leaving = true;
    thread.join();
    for (Treated& each : treated) {
        each.thread.join();
    }
    treated.clear();
    close(listener);
}

void RudeHost::run() {
    while (!leaving) {
        treated.remove_if([](Treated& each) {
            if (each.isOver) {
                each.thread.join();
                return true;
            }
            return false;
        });
        if (!isReadableWithin(listener, kLookMilliseconds)) {
            continue;
        }
        const int socket = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) {
            continue;
        }
        const int number = ++guestCount;
        Treated& newest = treated.emplace_back();
        newest.thread = std::thread([this, &newest, socket, number] {
            Guest guest(*this, socket);
            treat(guest, number);
            if (guest.reset) {
                closeWithReset(socket);
            } else {
                close(socket);
            }
            newest.isOver = true;
        });
    }
}

}  // namespace com_tesk::test
