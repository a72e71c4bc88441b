#include "host/ClientConnection.h"

#include <asio/buffer.hpp>
#include <asio/error.hpp>
#include <asio/post.hpp>
#include <asio/write.hpp>
#include <utility>

namespace com_tesk::host {

ClientConnection::ClientConnection(asio::ip::tcp::socket openSocket, ClientNumber clientNumber,
                                   std::size_t maxQueuedBytes, std::chrono::milliseconds maxStall,
                                   ConnectionOwner& connectionOwner)
    : number(clientNumber),
      stallLimit(maxStall),
      owner(connectionOwner),
      socket(std::move(openSocket)),
      stallTimer(socket.get_executor()),
      queue(maxQueuedBytes) {}

void ClientConnection::start() {
    // Updates are small and must not be delayed. An error is ignored: when the client has left, the first read reports
    // it.
    std::error_code ignored;
    socket.set_option(asio::ip::tcp::no_delay(true), ignored);
    read();
}

void ClientConnection::setReading(bool isWanted) {
    reading = isWanted;
    if (!ended && reading && !isReadPending) {
        watchForStall();
        read();
    }
}

void ClientConnection::read() {
    isReadPending = true;
    socket.async_read_some(
        asio::buffer(readBuffer),
        [self = shared_from_this()](const std::error_code& error, std::size_t size) { self->onRead(error, size); });
}

void ClientConnection::onRead(const std::error_code& error, std::size_t size) {
    isReadPending = false;
    if (ended) {
        return;
    }
    if (error) {
        onReadEnd(error);
        return;
    }
    for (const Frame& frame : reader.feed(readBuffer.data(), size)) {
        owner.onFrame(number, frame);
    }
    if (!reader.error().empty()) {
        gone(HostEvent::Kind::DROPPED, "malformed frame: " + reader.error());
        return;
    }
    watchForStall();
    if (reading) {
        read();
    }
}

void ClientConnection::onReadEnd(const std::error_code& error) {
    if (error == asio::error::eof) {
        gone(HostEvent::Kind::LEFT, reader.inMidFrame() ? "in the middle of a frame" : "");
    } else {
        gone(HostEvent::Kind::LOST, error.message());
    }
}

void ClientConnection::watchForStall() {
    if (!reader.inMidFrame() || !reading) {
        stallTimer.cancel();
        return;
    }
    stallTimer.expires_after(stallLimit);
    stallTimer.async_wait([self = shared_from_this()](const std::error_code& error) {
        // Bytes may have restarted the timer after its wait ended and before this handler ran.
        const bool superseded = self->stallTimer.expiry() > asio::steady_timer::clock_type::now();
        if (!error && !superseded && !self->ended && self->reader.inMidFrame()) {
            self->gone(HostEvent::Kind::DROPPED,
                       "stalled in the middle of a frame for " + std::to_string(self->stallLimit.count()) + " ms");
        }
    });
}

void ClientConnection::send(Bytes frame) {
    if (!sending || ended) {
        return;
    }
    const bool idle = queue.empty();
    const std::size_t size = frame.size();
    if (!queue.push(std::move(frame))) {
        sending = false;
        const std::string why = "does not read: " + std::to_string(queue.bytes()) + " bytes wait for it, " +
                                std::to_string(size) + " more do not fit";
        asio::post(socket.get_executor(),
                   [self = shared_from_this(), why] { self->gone(HostEvent::Kind::DROPPED, why); });
    } else if (idle) {
        write();
    }
}

void ClientConnection::write() {
    asio::async_write(
        socket, asio::buffer(queue.front()),
        [self = shared_from_this()](const std::error_code& error, std::size_t) { self->onWritten(error); });
}

void ClientConnection::onWritten(const std::error_code& error) {
    if (ended) {
        return;
    }
    if (error) {
        // The client has left, but requests that it sent before may still be unread, and the host serves them. The read
        // then also finds the end of the stream and reports it.
        sending = false;
        queue.clear();
        return;
    }
    queue.pop();
    if (!queue.empty()) {
        write();
    }
}

void ClientConnection::gone(HostEvent::Kind kind, const std::string& why) {
    if (!std::exchange(ended, true)) {
        owner.onGone(number, kind, why);
    }
}

void ClientConnection::close(CloseMode mode) {
    ended = true;
    stallTimer.cancel();
    std::error_code ignored;
    switch (mode) {
        case CloseMode::RESET:
            socket.set_option(asio::socket_base::linger(true, 0), ignored);
            break;
        case CloseMode::GRACEFUL:
            socket.shutdown(asio::socket_base::shutdown_send, ignored);
            // Closing with unread bytes would send a reset, so they are read first. The number of reads is limited,
            // because a client may never stop sending.
            socket.non_blocking(true, ignored);
            for (int round = 0; round < kMaxDrainRounds; ++round) {
                if (socket.read_some(asio::buffer(readBuffer), ignored) == 0) {
                    break;
                }
            }
            break;
    }
    socket.close(ignored);
}

}  // namespace com_tesk::host
