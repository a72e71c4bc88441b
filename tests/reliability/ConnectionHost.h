#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <thread>
#include <vector>

namespace com_tesk::test {

/// The address of the hosts of these tests. Other tests rely on a free port of 127.0.0.1 staying free.
constexpr const char* kHostAddress = "127.0.0.2";

/// A port of kHostAddress that refuses connections, until a host listens on its number.
class ReservedPort {
  public:
    ReservedPort();
    ReservedPort(const ReservedPort&) = delete;
    ReservedPort& operator=(const ReservedPort&) = delete;
    ~ReservedPort();

    unsigned int number() const;

  private:
    const int descriptor;
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
        bool send(const std::uint8_t* bytes, std::size_t count) const;

        /// Waits for bytes. Returns how many have arrived, 0 when the client has gone or the host stops.
        std::size_t receive(std::uint8_t* buffer, std::size_t size) const;

        /// Drops what the client sends, until it sends nothing for `milliseconds` (-1: without limit). Returns false
        /// when the client has gone or the host stops.
        bool drop(int milliseconds) const;

        /// Waits until the host stops.
        void hold() const;

        void endSending() const;
        void shrinkSendBuffer() const;
        void resetAtEnd() { hasReset = true; }
        bool isHostRunning() const { return !host.isStopping; }

      private:
        friend class ConnectionHost;
        bool waitFor(short events, int milliseconds) const;

        const ConnectionHost& host;
        const int socket;
        bool hasReset = false;
    };

    /// Receives a connection and its number, from 1 on.
    using Function = std::function<void(Connection& connection, int number)>;

    /// @param receiveBuffer  the connections' receive buffer in bytes; 0 leaves the system's default.
    explicit ConnectionHost(Function forEach, int receiveBuffer = 0);
    ConnectionHost(const ConnectionHost&) = delete;
    ConnectionHost& operator=(const ConnectionHost&) = delete;
    ~ConnectionHost() { stop(); }

    unsigned int port() const { return portNumber; }
    int connections() const { return connectionCount; }

    /// Closes every connection and the port.
    void stop();

  private:
    void run();

    const Function function;
    const int listener;
    const int stopSignal;
    const unsigned int portNumber;
    std::atomic<bool> isStopping{false};
    std::atomic<int> connectionCount{0};
    std::atomic<int> runningFunctions{0};
    std::thread thread;
};

}  // namespace com_tesk::test
