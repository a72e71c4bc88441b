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

/// How the host closes a connection that the client has not ended.
enum class CloseMode {
    GRACEFUL,  ///< The client reads what was sent, then the end of the stream.
    RESET,     ///< The client's next read or write fails.
};

/// Receives the frames and the end of a connection. Both operations are called on the I/O thread, never inside send().
class ConnectionOwner {
  public:
    virtual void onFrame(ClientNumber client, const Frame& frame) = 0;

    /// Reports that the connection has ended: `kind` is LEFT, LOST or DROPPED. The owner must then call close(). Called
    /// at most once, and never after close().
    virtual void onGone(ClientNumber client, HostEvent::Kind kind, const std::string& why) = 0;

  protected:
    ~ConnectionOwner() = default;
};

/// The socket of one client. Reads frames for the owner and sends the frames that it is given, without blocking. Stays
/// alive while one of its operations is in progress. I/O thread only. The owner must outlive the run of the I/O
/// context.
class ClientConnection : public std::enable_shared_from_this<ClientConnection> {
  public:
    ClientConnection(asio::ip::tcp::socket openSocket, ClientNumber clientNumber, std::size_t maxQueuedBytes,
                     std::chrono::milliseconds maxStall, ConnectionOwner& connectionOwner);

    void start();

    /// Queues a whole frame. When the frame does not fit the queue's bound, the I/O thread drops the client next, and
    /// frames sent in the meantime are discarded.
    void send(Bytes frame);

    /// Stops or resumes reading. Bytes of a read that has begun still arrive.
    void setReading(bool isWanted);

    /// Closes the socket immediately. Queued frames are not sent.
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
    bool reading = true;
    bool isReadPending = false;
    bool sending = true;  // false once no more can be sent; reading may continue
    bool ended = false;   // gone() or close() was called
};

}  // namespace com_tesk::host
