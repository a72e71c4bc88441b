#pragma once

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <cstdint>
#include <functional>
#include <string>
#include <system_error>

namespace com_tesk::host {

/// The listening socket. Programs that the process starts do not inherit its descriptor and those of accepted clients.
/// A child would otherwise keep a connection open that the host has closed.
class Listener {
  public:
    /// Receives a client's open socket, and its address and port as text.
    using OnClient = std::function<void(asio::ip::tcp::socket, const std::string&)>;
    /// Called when accepting fails, once until it succeeds again. The listener keeps trying.
    using OnTrouble = std::function<void(const std::error_code&)>;

    /// Starts listening. Clients are accepted once the context runs.
    /// @throws std::system_error that names address and port when they cannot be used.
    Listener(asio::io_context& context, const std::string& address, std::uint16_t port, OnClient onClient,
             OnTrouble onTrouble);

    /// Any thread may call these two.
    std::uint16_t port() const { return boundEndpoint.port(); }
    /// Returns address and port as text.
    const std::string& where() const { return boundTo; }

    /// Frees the port. The functions are not called afterwards. I/O thread only.
    void close();

    /// Listens again on the same port, after a close. I/O thread only.
    /// @return the error; none when it listens.
    std::error_code reopen();

  private:
    void open(const asio::ip::tcp::endpoint& endpoint);
    void waitForClient();
    void accept();
    void retrySoon();

    asio::ip::tcp::acceptor acceptor;
    asio::steady_timer retryTimer;
    const OnClient clientHandler;
    const OnTrouble troubleHandler;
    asio::ip::tcp::endpoint boundEndpoint;  // as boundTo, not changed after the constructor
    std::string boundTo;
    bool troubled = false;
};

}  // namespace com_tesk::host
