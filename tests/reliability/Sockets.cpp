#include "tests/reliability/Sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace com_tesk::test {

namespace {

void throwOn(bool failed, const char* what) {
    if (failed) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

int boundSocket() {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    throwOn(descriptor < 0, "socket");
    // A host that listens on a reserved port shares it, and both have to allow that.
    const int yes = 1;
    throwOn(setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) != 0, "setsockopt");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr(kHostAddress);
    throwOn(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0, "bind");
    return descriptor;
}

}  // namespace

int listenOnLoopback() {
    const int descriptor = boundSocket();
    throwOn(listen(descriptor, SOMAXCONN) != 0, "listen");
    return descriptor;
}

ReservedPort::ReservedPort() : descriptor(boundSocket()) {}

ReservedPort::~ReservedPort() {
    close(descriptor);
}

unsigned int portOf(int socket) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    throwOn(getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0, "getsockname");
    return ntohs(address.sin_port);
}

void closeWithReset(int socket) {
    const linger atOnce{1, 0};
    setsockopt(socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    close(socket);
}

bool isReadableWithin(int socket, int milliseconds) {
    pollfd waiting{socket, POLLIN, 0};
    return poll(&waiting, 1, milliseconds) > 0;
}

}  // namespace com_tesk::test
