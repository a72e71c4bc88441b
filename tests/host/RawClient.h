#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "tests/host/RawBytes.h"

namespace com_tesk::host_test {

/// How long a test waits for what must come. Generous: it is only used up when the test fails.
constexpr std::chrono::milliseconds kPatience{10000};

/// A frame with the version reply.
constexpr std::size_t kVersionReplySize = 184;

/// A client that is nothing but a socket. Throws std::system_error when it cannot connect.
class RawClient {
  public:
    /// @param receiveBuffer  bytes for SO_RCVBUF, set before connecting; 0 leaves the system's
    /// choice.
    explicit RawClient(std::uint16_t port, const std::string& address = "127.0.0.1", int receiveBuffer = 0);
    ~RawClient();

    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    /// @return false when the host has closed the connection.
    bool send(const Bytes& bytes);

    /// The next frame, header included; what has come of it when the stream ends or patience does.
    Bytes receiveFrame();

    /// Sends, and returns the frame that comes next.
    Bytes ask(const Bytes& request);

    enum class End { CLOSED, RESET, STILL_OPEN };
    /// Reads until the connection ends, throwing away what still comes.
    End waitForEnd(std::chrono::milliseconds limit = kPatience);

    void close();
    /// Closes so that the host's next read fails.
    void reset();

  private:
    Bytes receive(std::size_t count);

    int socket = -1;
};

}  // namespace com_tesk::host_test
