#pragma once

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <cstdint>
#include <functional>
#include <string>
#include <system_error>

namespace com_tesk::host {

/// The listening socket. Its descriptors, and those of the clients it lets in, are not inherited by programs that
/// the process starts: such a child would keep a connection open that the host has closed.
class Listener {
  public:
    /// A client's open socket, and its address and port as text.
    using OnClient = std::function<void(asio::ip::tcp::socket, const std::string&)>;
    /// Called when clients cannot be let in, once until it works again; the listener keeps trying.
    using OnTrouble = std::function<void(const std::error_code&)>;

    /// Listens from here on; clients are let in once the context runs.
    /// @throws std::system_error naming address and port, when they cannot be used.
    Listener(asio::io_context& context, const std::string& address, std::uint16_t port, OnClient onClient,
             OnTrouble onTrouble);

    std::uint16_t port() const { return boundPort; }
    /// Address and port as text.
    const std::string& where() const { return boundTo; }

    /// Frees the port. I/O thread only; the functions are not called any more.
    void close();

  private:
    void open(const asio::ip::tcp::endpoint& endpoint);
    void waitForClient();
    void letIn();
    void retrySoon();

    asio::ip::tcp::acceptor acceptor;
    asio::steady_timer retryTimer;
    const OnClient clientHandler;
    const OnTrouble troubleHandler;
    std::uint16_t boundPort = 0;
    std::string boundTo;
    bool troubled = false;
};

}  // namespace com_tesk::host
