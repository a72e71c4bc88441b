#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <vector>

namespace com_tesk::test {

/// A port of 127.0.0.1 that never answers: a listener that accepts no connection and whose queue is full. The system
/// drops further attempts to connect without an answer.
class BlackHole {
  public:
    BlackHole() {
        const int listener = newSocket(0);
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (bind(listener, reinterpret_cast<const sockaddr*>(&address), length) != 0 || listen(listener, 0) != 0 ||
            getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            throw std::system_error(errno, std::generic_category(), "black hole");
        }
        for (int filled = 0; filled < 16; ++filled) {
            const int filler = newSocket(SOCK_NONBLOCK);
            // The poll below finds out whether it has connected.
            static_cast<void>(connect(filler, reinterpret_cast<const sockaddr*>(&address), sizeof address));
            pollfd waiting{filler, POLLOUT, 0};
            if (poll(&waiting, 1, 100) == 0) {
                return;
            }
        }
        throw std::system_error(EISCONN, std::generic_category(), "black hole");
    }
    BlackHole(const BlackHole&) = delete;
    BlackHole& operator=(const BlackHole&) = delete;
    ~BlackHole() {
        for (const int descriptor : sockets) {
            ::close(descriptor);
        }
    }

    /// Returns 127.0.0.1 in network order.
    static unsigned int host() { return htonl(INADDR_LOOPBACK); }
    unsigned int port() const { return ntohs(address.sin_port); }

  private:
    int newSocket(int flags) {
        const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0);
        if (descriptor < 0) {
            throw std::system_error(errno, std::generic_category(), "socket");
        }
        sockets.push_back(descriptor);
        return descriptor;
    }

    sockaddr_in address{};
    std::vector<int> sockets;
};

}  // namespace com_tesk::test
