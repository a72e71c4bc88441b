#pragma once

#include <array>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <system_error>

#include "host/Bytes.h"
#include "host/FrameReader.h"
#include "host/HostEvent.h"
#include "host/HostState.h"
#include "host/OutputQueue.h"

namespace com_tesk::host {

/// How a connection is taken from a client that did nothing to end it.
enum class CloseMode {
    GRACEFUL,  ///< the client reads what was sent, then the end of the stream
    RESET,     ///< the client's next read or write fails
};

/// Who a connection works for. Both operations are called on the I/O thread and never from inside send().
class ConnectionOwner {
  public:
    virtual void onFrame(ClientNumber client, const Frame& frame) = 0;

    /// The connection is of no more use: `kind` is LEFT, LOST or DROPPED. Called once at most, and
    /// not after close(), which the owner still has to call.
    virtual void onGone(ClientNumber client, HostEvent::Kind kind, const std::string& why) = 0;

  protected:
    ~ConnectionOwner() = default;
};

/// One client's socket: reads frames for the owner and sends what it is given, never blocking. Keeps itself alive
/// while an operation of its own is under way. I/O thread only; the owner must outlive the I/O context's run.
class ClientConnection : public std::enable_shared_from_this<ClientConnection> {
  public:
    ClientConnection(asio::ip::tcp::socket openSocket, ClientNumber clientNumber, std::size_t maxQueuedBytes,
                     std::chrono::milliseconds maxStall, ConnectionOwner& connectionOwner);

    void start();

    /// Queues a whole frame. When that goes beyond the queue's bound, the client is dropped soon
    /// after, and what is sent to it meanwhile is thrown away.
    void send(Bytes frame);

    /// Closes the socket at once; frames still queued are not sent.
    void close(CloseMode mode);

  private:
    void read();
    void onRead(const std::error_code& error, std::size_t size);
    void onReadEnd(const std::error_code& error);
    void watchForStall();
    void write();
    void onWritten(const std::error_code& error);
    void gone(HostEvent::Kind kind, const std::string& why);

    static constexpr std::size_t kReadSize = std::size_t{16} * 1024;
    static constexpr int kMaxDrainRounds = 64;

    const ClientNumber number;
    const std::chrono::milliseconds stallLimit;
    ConnectionOwner& owner;
    asio::ip::tcp::socket socket;
    asio::steady_timer stallTimer;
    std::array<std::uint8_t, kReadSize> readBuffer{};
    FrameReader reader;
    OutputQueue queue;
    bool sending = true;  // false once nothing more can be sent; reading may go on
    bool ended = false;   // gone() was called, or close()
};

}  // namespace com_tesk::host
