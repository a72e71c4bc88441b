#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

#include "bench/Measure.h"

namespace com_tesk::bench {

/// A connection without the library, with the socket options that both transports set.
class RawSocket {
  public:
    explicit RawSocket(unsigned int port, int receiveBufferSize = 0) : descriptor(socket(AF_INET, SOCK_STREAM, 0)) {
        constexpr int kOn = 1;
        setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &kOn, sizeof kOn);
        if (receiveBufferSize != 0) {
            setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &receiveBufferSize, sizeof receiveBufferSize);
        }
        sockaddr_in name{};
        name.sin_family = AF_INET;
        name.sin_port = htons(static_cast<std::uint16_t>(port));
        name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        check(connect(descriptor, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0, "raw connect");
    }
    RawSocket(const RawSocket&) = delete;
    RawSocket& operator=(const RawSocket&) = delete;
    ~RawSocket() { ::close(descriptor); }

    void writeAll(const std::uint8_t* source, std::size_t size) const {
        while (size > 0) {
            const ssize_t written = write(descriptor, source, size);
            check(written > 0, "raw write");
            source += written;
            size -= static_cast<std::size_t>(written);
        }
    }

    void readAll(std::uint8_t* target, std::size_t size) const {
        while (size > 0) {
            const ssize_t received = read(descriptor, target, size);
            check(received > 0, "raw read");
            target += received;
            size -= static_cast<std::size_t>(received);
        }
    }

  private:
    const int descriptor;
};

}  // namespace com_tesk::bench
