#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "tests/support/Hex.h"

namespace com_tesk::test {

/// A host that the test controls byte by byte, over a real socket on 127.0.0.1. It knows no protocol: the test accepts,
/// receives, sends and closes. Only the test's thread may use it. All operations are bounded in time.
class ScriptedHost {
  public:
    static constexpr std::chrono::milliseconds kBound{10'000};

    /// One accepted connection; closed on destruction.
    class Peer {
      public:
        explicit Peer(int connectedSocket) : descriptor(connectedSocket) {}
        Peer(const Peer&) = delete;
        Peer& operator=(const Peer&) = delete;
        ~Peer() { close(); }

        /// Returns `count` bytes; fewer when the client closes the connection or the bound passes first.
        Bytes receive(std::size_t count, std::chrono::milliseconds bound = kBound);

        /// Returns the hex text of the next whole frame, whose first word gives its length. Returns only the part that
        /// has arrived when the client closes the connection or the bound passes first.
        std::string receiveFrame(std::chrono::milliseconds bound = kBound);

        /// Returns the hex text of the next frame's body: the bytes after its header of 32 bytes.
        std::string receiveBody(std::chrono::milliseconds bound = kBound);

        /// True when nothing arrives for `duration` and the connection stays open.
        bool isQuietFor(std::chrono::milliseconds duration);

        /// True when the client closes or resets the connection before the bound. Bytes that arrive earlier are
        /// dropped.
        bool waitForEnd(std::chrono::milliseconds bound = kBound);

        void send(const std::string& hexBytes);
        void send(const Bytes& bytes);

        /// Closes the connection in order.
        void close();

        /// Closes this direction of the connection in order; receiving stays possible.
        void endSending();

        /// Ends the connection with a reset.
        void reset();

        /// Shrinks the receive buffer. When the host does not read, the client's writes then block soon.
        void shrinkReceiveBuffer();

        /// Shrinks the send buffer to some ten kilobytes. When the client does not read, the host's writes then block
        /// soon.
        void shrinkSendBuffer();

      private:
        int descriptor;
    };

    /// Listens on a port that the system picks.
    ScriptedHost();
    ScriptedHost(const ScriptedHost&) = delete;
    ScriptedHost& operator=(const ScriptedHost&) = delete;
    ~ScriptedHost();

    /// Returns 127.0.0.1 in network order.
    static unsigned int address();
    unsigned int port() const { return portNumber; }

    /// Returns the next connection; null when none arrives before the bound.
    std::unique_ptr<Peer> accept(std::chrono::milliseconds bound = kBound);

    /// Makes the system refuse connections from now on.
    void stopListening();

    /// Listens on the same port again.
    void listenAgain();

  private:
    int listener = -1;
    unsigned int portNumber = 0;
};

/// Returns a port of 127.0.0.1 without a listener.
unsigned int refusingPort();

}  // namespace com_tesk::test
