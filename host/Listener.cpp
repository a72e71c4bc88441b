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
        // In the standard's own category: Asio's compares with no std::errc.
        throw std::system_error(error.value(), std::system_category(), "cannot listen on " + where);
    }
}

/// Troubles of one client on its way in, not of the listener.
bool concernsOneClient(int error) {
    return error == EINTR || error == ECONNABORTED || error == EPROTO;
}

}  // namespace

Listener::Listener(asio::io_context& context, const std::string& address, std::uint16_t port, OnClient onClient,
                   OnTrouble onTrouble)
    : m_acceptor(context),
      m_retry(context),
      m_onClient(std::move(onClient)),
      m_onTrouble(std::move(onTrouble)),
      m_where(address + ":" + std::to_string(port)) {
    std::error_code error;
    const auto ip = asio::ip::make_address_v4(address, error);
    throwOn(error, m_where + " (not an IPv4 address)");
    open({ip, port});
    waitForClient();
}

void Listener::open(const tcp::endpoint& endpoint) {
    const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    throwOn(descriptor < 0 ? lastError() : std::error_code(), m_where);
    std::error_code error;
    m_acceptor.assign(tcp::v4(), descriptor, error);
    if (error) {
        ::close(descriptor);
        throwOn(error, m_where);
    }
    // A host that was just stopped has connections of its port on their way out; they are no
    // obstacle. Another listener is one still.
    m_acceptor.set_option(tcp::acceptor::reuse_address(true), error);
    throwOn(error, m_where);
    m_acceptor.bind(endpoint, error);
    throwOn(error, m_where);
    m_acceptor.listen(asio::socket_base::max_listen_connections, error);
    throwOn(error, m_where);
    m_acceptor.non_blocking(true, error);
    throwOn(error, m_where);
    const tcp::endpoint bound = m_acceptor.local_endpoint(error);
    throwOn(error, m_where);
    m_port = bound.port();
    m_where = textOf(bound);
}

void Listener::waitForClient() {
    m_acceptor.async_wait(tcp::acceptor::wait_read, [this](const std::error_code& error) {
        if (!error && m_acceptor.is_open()) {
            letIn();
        }
    });
}

void Listener::letIn() {
    for (;;) {
        // By hand rather than by the acceptor, which cannot set the close-on-exec flag in the same step.
        const int descriptor = ::accept4(m_acceptor.native_handle(), nullptr, nullptr, SOCK_CLOEXEC);
        if (descriptor >= 0) {
            m_troubled = false;
            std::error_code error;
            tcp::socket socket(m_acceptor.get_executor());
            socket.assign(tcp::v4(), descriptor, error);
            if (error) {
                ::close(descriptor);
                continue;
            }
            const tcp::endpoint peer = socket.remote_endpoint(error);
            m_onClient(std::move(socket), error ? error.message() : textOf(peer));
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            waitForClient();
            return;
        } else if (!concernsOneClient(errno)) {
            const std::error_code error = lastError();
            if (!std::exchange(m_troubled, true)) {
                m_onTrouble(error);
            }
            retrySoon();
            return;
        }
    }
}

void Listener::retrySoon() {
    // Out of descriptors, most likely: the waiting client keeps the socket readable, so waiting for that would turn
    // in circles.
    m_retry.expires_after(kRetryAfter);
    m_retry.async_wait([this](const std::error_code& error) {
        if (!error && m_acceptor.is_open()) {
            letIn();
        }
    });
}

void Listener::close() {
    std::error_code ignored;
    m_acceptor.close(ignored);
    m_retry.cancel();
}

}  // namespace com_tesk::host
