#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "tests/support/Hex.h"

namespace com_tesk {
namespace test {

/// A host that does what the test says, byte by byte, over a real socket on 127.0.0.1. It speaks no protocol: the test
/// accepts, receives, sends and closes. All operations belong to the test's thread and are bounded in time.
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

        /// Exactly `count` bytes; fewer when the client closes or the bound passes first.
        Bytes receive(std::size_t count, std::chrono::milliseconds bound = kBound);

        /// The hex text of the next whole frame, found by its own length word; what there was of it when the client
        /// closes or the bound passes first.
        std::string receiveFrame(std::chrono::milliseconds bound = kBound);

        /// The hex text of the next frame's body: what follows its 32 bytes of header.
        std::string receiveBody(std::chrono::milliseconds bound = kBound);

        /// Whether nothing arrives, and the connection stays, for that long.
        bool isQuietFor(std::chrono::milliseconds duration);

        /// Whether the client's side ends the stream, or resets it, before the bound. What arrives before is dropped.
        bool waitForEnd(std::chrono::milliseconds bound = kBound);

        void send(const std::string& hexBytes);
        void send(const Bytes& bytes);

        /// Ends the stream in order.
        void close();

        /// Ends the stream in order in this direction; receiving goes on.
        void endSending();

        /// Ends the connection with a reset.
        void reset();

        /// Shrinks the receive buffer, for a host that does not read: the client's writes block soon.
        void shrinkReceiveBuffer();

        /// Shrinks the send buffer to some ten kilobytes, for a host whose own writes block soon.
        void shrinkSendBuffer();

      private:
        int descriptor;
    };

    /// Listens on a port that the system picks.
    ScriptedHost();
    ScriptedHost(const ScriptedHost&) = delete;
    ScriptedHost& operator=(const ScriptedHost&) = delete;
    ~ScriptedHost();

    /// 127.0.0.1 in network order.
    static unsigned int address();
    unsigned int port() const { return portNumber; }

    /// The next connection, or null when none comes before the bound.
    std::unique_ptr<Peer> accept(std::chrono::milliseconds bound = kBound);

    /// From now on connections are refused.
    void stopListening();

    /// Listens on the same port again.
    void listenAgain();

  private:
    int listener = -1;
    unsigned int portNumber = 0;
};

/// A port of 127.0.0.1 on which nobody listens.
unsigned int refusingPort();

}  // namespace test
}  // namespace com_tesk
