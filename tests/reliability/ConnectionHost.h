#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace com_tesk::test {

/// The address of the hosts of these tests. Other tests rely on a free port of 127.0.0.1 staying free.
constexpr const char* kHostAddress = "127.0.0.2";

inline void throwOn(bool failed, const char* what) {
    if (failed) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

/// A port of kHostAddress that refuses connections, until a host listens on its number.
class ReservedPort {
  public:
    ReservedPort() {
        throwOn(descriptor < 0, "socket");
        // A host that listens on a reserved port shares it, and both have to allow that.
        const int yes = 1;
        throwOn(setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) != 0, "setsockopt");
        sockaddr_in address{};
        socklen_t length = sizeof address;
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = inet_addr(kHostAddress);
        throwOn(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
                    getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0,
                "bind");
        port = ntohs(address.sin_port);
    }
    ReservedPort(const ReservedPort&) = delete;
    ReservedPort& operator=(const ReservedPort&) = delete;
    ~ReservedPort() { close(descriptor); }

    unsigned int number() const { return port; }
    int socket() const { return descriptor; }

  private:
    const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    unsigned int port = 0;
};

/// A host on kHostAddress that runs a function for each connection, on a thread of its own. The connection is closed
/// when the function returns.
class ConnectionHost {
  public:
    /// One connection. Every operation ends when the host stops.
    class Connection {
      public:
        Connection(const ConnectionHost& acceptingHost, int connectedSocket)
            : host(acceptingHost), socket(connectedSocket) {}

        /// Returns false when the client has gone or the host stops.
        bool send(const std::vector<std::uint8_t>& bytes) const { return send(bytes.data(), bytes.size()); }
        bool send(const std::uint8_t* bytes, std::size_t count) const {
            while (count > 0 && waitFor(POLLOUT, -1)) {
                const ssize_t sent = ::send(socket, bytes, count, MSG_NOSIGNAL | MSG_DONTWAIT);
                if (sent < 0 && errno != EAGAIN) {
                    return false;
                }
                bytes += sent > 0 ? sent : 0;
                count -= sent > 0 ? static_cast<std::size_t>(sent) : 0;
            }
            return count == 0;
        }

        /// Waits for bytes. Returns how many have arrived, 0 when the client has gone or the host stops.
        std::size_t receive(std::uint8_t* buffer, std::size_t size) const {
            const ssize_t count = waitFor(POLLIN, -1) ? recv(socket, buffer, size, 0) : 0;
            return count > 0 ? static_cast<std::size_t>(count) : 0;
        }

        /// Drops what the client sends, until it sends nothing for `milliseconds` (-1: without limit). Returns false
        /// when the client has gone or the host stops.
        bool drop(int milliseconds) const {
            std::uint8_t dropped[4096];
            while (waitFor(POLLIN, milliseconds)) {
                if (recv(socket, dropped, sizeof dropped, 0) <= 0) {
                    return false;
                }
            }
            return isHostRunning();
        }

        /// Waits until the host stops.
        void hold() const {
            while (isHostRunning()) {
                pollfd waiting{host.stopSignal, POLLIN, 0};
                poll(&waiting, 1, -1);
            }
        }

        void endSending() const { shutdown(socket, SHUT_WR); }
        void shrinkSendBuffer() const {
            const int small = 16'384;
            setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
        }
        void resetAtEnd() { hasReset = true; }
        bool isHostRunning() const { return !host.isStopping; }

      private:
        friend class ConnectionHost;

        bool waitFor(short events, int milliseconds) const {
            pollfd waiting[] = {{host.stopSignal, POLLIN, 0}, {socket, events, 0}};
            return poll(waiting, 2, milliseconds) > 0 && isHostRunning();
        }

        const ConnectionHost& host;
        const int socket;
        bool hasReset = false;
    };

    /// Receives a connection and its number, from 1 on.
    using Function = std::function<void(Connection& connection, int number)>;

    /// @param receiveBuffer  the connections' receive buffer in bytes; 0 leaves the system's default.
    explicit ConnectionHost(Function forEach, int receiveBuffer = 0) : function(std::move(forEach)) {
        if (receiveBuffer != 0) {
            // Connections inherit it only when it is set before they are made.
            setsockopt(listener->socket(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        }
        throwOn(listen(listener->socket(), SOMAXCONN) != 0, "listen");
        thread = std::thread([this] { run(); });
    }
    ConnectionHost(const ConnectionHost&) = delete;
    ConnectionHost& operator=(const ConnectionHost&) = delete;
    ~ConnectionHost() { stop(); }

    unsigned int port() const { return portNumber; }
    int connections() const { return connectionCount; }

    /// Closes every connection and the port.
    void stop() {
        if (!thread.joinable()) {
            return;
        }
        isStopping = true;
        eventfd_write(stopSignal, 1);
        thread.join();
        while (runningFunctions > 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        listener.reset();
        close(stopSignal);
    }

  private:
    void run() {
        while (!isStopping) {
            pollfd waiting[] = {{stopSignal, POLLIN, 0}, {listener->socket(), POLLIN, 0}};
            poll(waiting, 2, -1);
            const int socket = isStopping ? -1 : accept4(listener->socket(), nullptr, nullptr, SOCK_CLOEXEC);
            if (socket < 0) {
                continue;
            }
            ++runningFunctions;
            std::thread([this, socket, number = ++connectionCount] {
                Connection connection(*this, socket);
                function(connection, number);
                if (connection.hasReset) {
                    const linger atOnce{1, 0};
                    setsockopt(socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
                }
                close(socket);
                --runningFunctions;
            }).detach();
        }
    }

    const Function function;
    std::unique_ptr<ReservedPort> listener = std::make_unique<ReservedPort>();
    const int stopSignal = eventfd(0, EFD_CLOEXEC);
    const unsigned int portNumber = listener->number();
    std::atomic<bool> isStopping{false};
    std::atomic<int> connectionCount{0};
    std::atomic<int> runningFunctions{0};
    std::thread thread;
};

using HostConnection = ConnectionHost::Connection;

}  // namespace com_tesk::test
