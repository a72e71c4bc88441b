#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <system_error>

#include "tests/support/Hex.h"

namespace com_tesk::test {

/// A host that the test controls byte by byte, over a real socket on 127.0.0.1. It knows no protocol: the test accepts,
/// receives, sends and closes. Only the test's thread may use it. All operations are bounded in time.
class ScriptedHost {
  public:
    static constexpr std::chrono::milliseconds kBound{10'000};

    /// One accepted connection; closed on destruction.
    class Peer {
      public:
        explicit Peer(int connectedSocket) : descriptor(connectedSocket) {}
        Peer(const Peer&) = delete;
        Peer& operator=(const Peer&) = delete;
        ~Peer() { close(); }

        /// Returns `count` bytes; fewer when the client closes the connection or the bound passes first.
        Bytes receive(std::size_t count, std::chrono::milliseconds bound = kBound) {
            const auto deadline = Clock::now() + bound;
            Bytes bytes(count);
            std::size_t received = 0;
            while (received < count && waitReadable(descriptor, deadline)) {
                const ssize_t arrived = recv(descriptor, bytes.data() + received, count - received, 0);
                if (arrived <= 0) {
                    break;
                }
                received += static_cast<std::size_t>(arrived);
            }
            bytes.resize(received);
            return bytes;
        }

        /// Returns the hex text of the next whole frame, whose first word gives its length. Returns only the part that
        /// has arrived when the client closes the connection or the bound passes first.
        std::string receiveFrame(std::chrono::milliseconds bound = kBound) {
            constexpr std::size_t kHeader = 32;
            Bytes frame = receive(kHeader, bound);
            if (frame.size() == kHeader) {
                const std::size_t length =
                    static_cast<std::size_t>(frame[0]) << 24U | static_cast<std::size_t>(frame[1]) << 16U |
                    static_cast<std::size_t>(frame[2]) << 8U | static_cast<std::size_t>(frame[3]);
                if (length > kHeader) {
                    const Bytes body = receive(length - kHeader, bound);
                    frame.insert(frame.end(), body.begin(), body.end());
                }
            }
            return hexText(frame);
        }

        /// Returns the hex text of the next frame's body: the bytes after its header of 32 bytes.
        std::string receiveBody(std::chrono::milliseconds bound = kBound) {
            constexpr std::size_t kHeaderText = 32 * 3;
            const std::string frame = receiveFrame(bound);
            return frame.size() > kHeaderText ? frame.substr(kHeaderText) : "no body in: " + frame;
        }

        /// True when nothing arrives for `duration` and the connection stays open.
        bool isQuietFor(std::chrono::milliseconds duration) {
            return !waitReadable(descriptor, Clock::now() + duration);
        }

        /// True when the client closes or resets the connection before the bound. Bytes that arrive earlier are
        /// dropped.
        bool waitForEnd(std::chrono::milliseconds bound = kBound) {
            const auto deadline = Clock::now() + bound;
            char dropped[4096];
            while (waitReadable(descriptor, deadline)) {
                if (recv(descriptor, dropped, sizeof dropped, 0) <= 0) {
                    return true;
                }
            }
            return false;
        }

        void send(const std::string& hexBytes) { send(hex(hexBytes)); }
        void send(const Bytes& bytes) {
            std::size_t sent = 0;
            while (sent < bytes.size()) {
                const ssize_t count = ::send(descriptor, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
                if (count < 0) {
                    fail("send");
                }
                sent += static_cast<std::size_t>(count);
            }
        }

        /// Closes the connection in order.
        void close() {
            if (descriptor >= 0) {
                ::close(descriptor);
                descriptor = -1;
            }
        }

        /// Closes this direction of the connection in order; receiving stays possible.
        void endSending() { shutdown(descriptor, SHUT_WR); }

        /// Ends the connection with a reset.
        void reset() {
            const linger atOnce{1, 0};
            setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
            close();
        }

        /// Shrinks the receive buffer. When the host does not read, the client's writes then block soon.
        void shrinkReceiveBuffer() {
            const int smallest = 1;
            setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &smallest, sizeof smallest);
        }

        /// Shrinks the send buffer to some ten kilobytes. When the client does not read, the host's writes then block
        /// soon.
        void shrinkSendBuffer() {
            const int small = 16'384;
            setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
        }

      private:
        int descriptor;
    };

    /// Listens on a port that the system picks.
    ScriptedHost() : listener(listenOn(0)), portNumber(portOf(listener)) {}
    ScriptedHost(const ScriptedHost&) = delete;
    ScriptedHost& operator=(const ScriptedHost&) = delete;
    ~ScriptedHost() { stopListening(); }

    /// Returns 127.0.0.1 in network order.
    static unsigned int address() { return htonl(INADDR_LOOPBACK); }
    unsigned int port() const { return portNumber; }

    /// Returns the next connection; null when none arrives before the bound.
    std::unique_ptr<Peer> accept(std::chrono::milliseconds bound = kBound) {
        if (!waitReadable(listener, Clock::now() + bound)) {
            return nullptr;
        }
        const int descriptor = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (descriptor < 0) {
            fail("accept");
        }
        const int yes = 1;
        setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        return std::make_unique<Peer>(descriptor);
    }

    /// Makes the system refuse connections from now on.
    void stopListening() {
        if (listener >= 0) {
            ::close(listener);
            listener = -1;
        }
    }

    /// Listens on the same port again.
    void listenAgain() { listener = listenOn(portNumber); }

  private:
    using Clock = std::chrono::steady_clock;

    [[noreturn]] static void fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

    /// Waits until the descriptor has something to read. Returns false when the deadline passes first.
    static bool waitReadable(int descriptor, Clock::time_point deadline) {
        for (;;) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
            pollfd waiting{descriptor, POLLIN, 0};
            const int ready = poll(&waiting, 1, left > 0 ? static_cast<int>(left) : 0);
            if (ready >= 0) {
                return ready > 0;
            }
            if (errno != EINTR) {
                fail("poll");
            }
        }
    }

    static int listenOn(unsigned int port) {
        const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (descriptor < 0) {
            fail("socket");
        }
        const int yes = 1;
        setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        sockaddr_in own{};
        own.sin_family = AF_INET;
        own.sin_port = htons(static_cast<std::uint16_t>(port));
        own.sin_addr.s_addr = address();
        if (bind(descriptor, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0 ||
            listen(descriptor, SOMAXCONN) != 0) {
            fail("listen");
        }
        return descriptor;
    }

    static unsigned int portOf(int descriptor) {
        sockaddr_in own{};
        socklen_t length = sizeof own;
        if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&own), &length) != 0) {
            fail("getsockname");
        }
        return ntohs(own.sin_port);
    }

    int listener = -1;
    unsigned int portNumber = 0;
};

/// Returns a port of 127.0.0.1 without a listener.
inline unsigned int refusingPort() {
    return ScriptedHost().port();
}

}  // namespace com_tesk::test
