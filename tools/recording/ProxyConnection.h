#pragma once

#include <netinet/in.h>
#include <poll.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "tools/recording/Recorder.h"

namespace com_tesk::recording {

/// A client's connection and the one to the host that belongs to it. The end of one side becomes the same end of the other
/// side: a half-close remains a half-close, a reset a reset.
class ProxyConnection {
  public:
    /// Begins to connect to the host.
    /// @param clientSocket  becomes owned; it must not block.
    /// @param ownRecorder   outlives this object.
    ProxyConnection(std::uint32_t ownNumber, int clientSocket, const sockaddr_in& hostAddress, Recorder& ownRecorder);
    /// Closes both sides in order.
    ~ProxyConnection();
    ProxyConnection(const ProxyConnection&) = delete;
    ProxyConnection& operator=(const ProxyConnection&) = delete;

    /// Appends what to wait for: the client's socket, then the host's.
    void appendTo(std::vector<pollfd>& waiting) const;

    /// Passes on what can be passed on.
    /// @param events  two elements, as `appendTo` has appended them, with the results of the wait.
    /// @return false when the connection has ended, and this object has nothing left to do.
    bool process(const pollfd* events);

  private:
    /// One direction. Its buffer bounds the memory: while it is full, nothing is read from the source.
    struct Flow {
        std::vector<char> buffer;
        std::size_t begin = 0;  // of the bytes that were read and not yet sent
        std::size_t end = 0;
        bool hasEnded = false;  // the source sends no more
        bool isEndSent = false;
    };

    int& socketOf(Side side) { return side == Side::CLIENT ? client : host; }
    Flow& flowFrom(Side side) { return side == Side::CLIENT ? fromClient : fromHost; }
    short eventsOf(Side side) const;
    /// @{
    /// Each returns false when the connection has ended.
    bool passOn(const pollfd* events);
    bool finishConnecting();
    bool receive(Side source);
    bool send(Side source);
    /// Ends both sides with a reset, because of this side.
    bool reset(Side side, int error);
    /// @}

    const std::uint32_t number;
    Recorder& recorder;
    int client = -1;
    int host = -1;
    bool isConnecting = true;
    std::optional<Side> firstEnd;
    std::optional<Lost> lost;  // recorded after the last bytes
    Flow fromClient;
    Flow fromHost;
};

}  // namespace com_tesk::recording
