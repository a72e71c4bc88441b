#include "host/ClientConnection.h"

#include <asio/buffer.hpp>
#include <asio/error.hpp>
#include <asio/post.hpp>
#include <asio/write.hpp>
#include <utility>

namespace com_tesk::host {

ClientConnection::ClientConnection(asio::ip::tcp::socket socket, ClientNumber number, std::size_t maxQueuedBytes,
                                   std::chrono::milliseconds stallLimit, ConnectionOwner& owner)
    : m_number(number),
      m_stallLimit(stallLimit),
      m_owner(owner),
      m_socket(std::move(socket)),
      m_stallTimer(m_socket.get_executor()),
      m_queue(maxQueuedBytes) {}

void ClientConnection::start() {
    // Updates are small and late ones are useless; a client that is gone already shows on the first read.
    std::error_code ignored;
    m_socket.set_option(asio::ip::tcp::no_delay(true), ignored);
    read();
}

void ClientConnection::read() {
    m_socket.async_read_some(
        asio::buffer(m_readBuffer),
        [self = shared_from_this()](const std::error_code& error, std::size_t size) { self->onRead(error, size); });
}

void ClientConnection::onRead(const std::error_code& error, std::size_t size) {
    if (m_ended) {
        return;
    }
    if (error) {
        onReadEnd(error);
        return;
    }
    for (const Frame& frame : m_reader.feed(m_readBuffer.data(), size)) {
        m_owner.onFrame(m_number, frame);
    }
    if (!m_reader.error().empty()) {
        gone(HostEvent::Kind::Dropped, "malformed frame: " + m_reader.error());
        return;
    }
    watchForStall();
    read();
}

void ClientConnection::onReadEnd(const std::error_code& error) {
    if (error == asio::error::eof) {
        gone(HostEvent::Kind::Left, m_reader.inMidFrame() ? "in the middle of a frame" : "");
    } else {
        gone(HostEvent::Kind::Lost, error.message());
    }
}

void ClientConnection::watchForStall() {
    if (!m_reader.inMidFrame()) {
        m_stallTimer.cancel();
        return;
    }
    m_stallTimer.expires_after(m_stallLimit);
    m_stallTimer.async_wait([self = shared_from_this()](const std::error_code& error) {
        // A wait that ended in time may find the timer set anew by bytes that came just then.
        const bool superseded = self->m_stallTimer.expiry() > asio::steady_timer::clock_type::now();
        if (!error && !superseded && !self->m_ended && self->m_reader.inMidFrame()) {
            self->gone(HostEvent::Kind::Dropped,
                       "stalled in the middle of a frame for " + std::to_string(self->m_stallLimit.count()) + " ms");
        }
    });
}

void ClientConnection::send(Bytes frame) {
    if (!m_sending || m_ended) {
        return;
    }
    const bool idle = m_queue.empty();
    const std::size_t size = frame.size();
    if (!m_queue.push(std::move(frame))) {
        m_sending = false;
        const std::string why = "does not read: " + std::to_string(m_queue.bytes()) + " bytes wait for it, " +
                                std::to_string(size) + " more do not fit";
        asio::post(m_socket.get_executor(),
                   [self = shared_from_this(), why] { self->gone(HostEvent::Kind::Dropped, why); });
    } else if (idle) {
        write();
    }
}

void ClientConnection::write() {
    asio::async_write(
        m_socket, asio::buffer(m_queue.front()),
        [self = shared_from_this()](const std::error_code& error, std::size_t) { self->onWritten(error); });
}

void ClientConnection::onWritten(const std::error_code& error) {
    if (m_ended) {
        return;
    }
    if (error) {
        // The client is gone, but what it sent before that may still be there to be read, and
        // counts. The read then meets the end as well, and reports it.
        m_sending = false;
        m_queue.clear();
        return;
    }
    m_queue.pop();
    if (!m_queue.empty()) {
        write();
    }
}

void ClientConnection::gone(HostEvent::Kind kind, const std::string& why) {
    if (!std::exchange(m_ended, true)) {
        m_owner.onGone(m_number, kind, why);
    }
}

void ClientConnection::close(CloseMode mode) {
    m_ended = true;
    m_stallTimer.cancel();
    std::error_code ignored;
    switch (mode) {
        case CloseMode::Reset:
            m_socket.set_option(asio::socket_base::linger(true, 0), ignored);
            break;
        case CloseMode::Graceful:
            m_socket.shutdown(asio::socket_base::shutdown_send, ignored);
            // Closing with unread bytes would be answered as a reset. A client that never stops sending is not
            // waited for.
            m_socket.non_blocking(true, ignored);
            for (int round = 0; round < kMaxDrainRounds; ++round) {
                if (m_socket.read_some(asio::buffer(m_readBuffer), ignored) == 0) {
                    break;
                }
            }
            break;
    }
    m_socket.close(ignored);
}

}  // namespace com_tesk::host
