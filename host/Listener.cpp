#include "host/Listener.h"

#include <sys/socket.h>
#include <unistd.h>

#include <asio/ip/address_v4.hpp>
#include <cerrno>
#include <chrono>
#include <utility>

namespace com_tesk::host {

namespace {

using asio::ip::tcp;

constexpr std::chrono::milliseconds kRetryAfter(100);

std::error_code lastError() {
    return {errno, std::system_category()};
}

std::string textOf(const tcp::endpoint& endpoint) {
    return endpoint.address().to_string() + ":" + std::to_string(endpoint.port());
}

void throwOn(const std::error_code& error, const std::string& where) {
    if (error) {
        // In the standard's category, because Asio's categories do not compare equal to std::errc.
        throw std::system_error(error.value(), std::system_category(), "cannot listen on " + where);
    }
}

/// True for errors of one incoming connection, which do not concern the listener.
bool concernsOneClient(int error) {
    return error == EINTR || error == ECONNABORTED || error == EPROTO;
}

}  // namespace

Listener::Listener(asio::io_context& context, const std::string& address, std::uint16_t port, OnClient onClient,
                   OnTrouble onTrouble)
    : acceptor(context),
      retryTimer(context),
      clientHandler(std::move(onClient)),
      troubleHandler(std::move(onTrouble)),
      boundTo(address + ":" + std::to_string(port)) {
    std::error_code error;
    const auto ip = asio::ip::make_address_v4(address, error);
    throwOn(error, boundTo + " (not an IPv4 address)");
    open({ip, port});
    const tcp::endpoint bound = acceptor.local_endpoint(error);
    throwOn(error, boundTo);
    boundEndpoint = bound;
    boundTo = textOf(bound);
    waitForClient();
}

void Listener::open(const tcp::endpoint& endpoint) {
    const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    throwOn(descriptor < 0 ? lastError() : std::error_code(), boundTo);
    std::error_code error;
    acceptor.assign(tcp::v4(), descriptor, error);
    if (error) {
        ::close(descriptor);
        throwOn(error, boundTo);
    }
    // Connections of a host that has just stopped may still use the port. With this option they are no obstacle, but
    // another listener still is.
    acceptor.set_option(tcp::acceptor::reuse_address(true), error);
    throwOn(error, boundTo);
    acceptor.bind(endpoint, error);
    throwOn(error, boundTo);
    acceptor.listen(asio::socket_base::max_listen_connections, error);
    throwOn(error, boundTo);
    acceptor.non_blocking(true, error);
    throwOn(error, boundTo);
}

void Listener::waitForClient() {
    acceptor.async_wait(tcp::acceptor::wait_read, [this](const std::error_code& error) {
        if (!error && acceptor.is_open()) {
            accept();
        }
    });
}

void Listener::accept() {
    for (;;) {
        // Not with the acceptor, because it cannot set the close-on-exec flag in the same step.
        const int descriptor = ::accept4(acceptor.native_handle(), nullptr, nullptr, SOCK_CLOEXEC);
        if (descriptor >= 0) {
            troubled = false;
            std::error_code error;
            tcp::socket socket(acceptor.get_executor());
            socket.assign(tcp::v4(), descriptor, error);
            if (error) {
                ::close(descriptor);
                continue;
            }
            const tcp::endpoint peer = socket.remote_endpoint(error);
            clientHandler(std::move(socket), error ? error.message() : textOf(peer));
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            waitForClient();
            return;
        } else if (!concernsOneClient(errno)) {
            const std::error_code error = lastError();
            if (!std::exchange(troubled, true)) {
                troubleHandler(error);
            }
            retrySoon();
            return;
        }
    }
}

void Listener::retrySoon() {
    // The process is probably out of descriptors. The socket stays readable then, so waiting for that would be a busy
    // loop.
    retryTimer.expires_after(kRetryAfter);
    retryTimer.async_wait([this](const std::error_code& error) {
        if (!error && acceptor.is_open()) {
            accept();
        }
    });
}

std::error_code Listener::reopen() {
    try {
        open(boundEndpoint);
    } catch (const std::system_error& error) {
        close();
        return error.code();
    }
    waitForClient();
    return {};
}

void Listener::close() {
    std::error_code ignored;
    acceptor.close(ignored);
    retryTimer.cancel();
}

}  // namespace com_tesk::host
