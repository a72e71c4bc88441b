#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string_view>

#include "comms/CSCommsInterfaceTCP.h"
#include "comms/CSUseCount.h"
#include "message/RawMessage.h"
#include "message/SpareMessage.h"

namespace com_tesk {

/// The transport of an engine, and the frames that go through it: one message out, one message in.
///
/// It knows nothing of states and locks: its owner says when frames may leave, and is notified of failures.
class FrameChannel {
  public:
    /// What a channel needs to know of its connection, and reports to it.
    class Owner {
      public:
        /// Whether the calling thread may send.
        virtual bool maySend() const = 0;

        /// The number of the connection that a frame goes to now, or `kNoConnection`. Called while the thread is counted
        /// as a sender.
        virtual std::uint32_t connectionToWriteTo() const = 0;

        /// The calling thread is being cancelled in a write: half a frame may have left.
        virtual void writeAbandoned(std::uint32_t connection) = 0;

        /// A frame did not leave whole. `error` is what the system says.
        virtual void writeFailed(std::uint32_t connection, int error) = 0;

        /// Nothing more can be read from the connection. `line` says why.
        virtual void readFailed(std::initializer_list<std::string_view> line) = 0;

        /// The body of a frame has arrived.
        virtual void bodyReceived(const RawMessage& body) = 0;

      protected:
        ~Owner() = default;
    };

    /// @param channelOwner  outlives this object.
    /// @param first         the transport; the channel owns it. Not null.
    FrameChannel(Owner& channelOwner, CSCommsInterfaceTCP* first);
    FrameChannel(const FrameChannel&) = delete;
    FrameChannel& operator=(const FrameChannel&) = delete;
    ~FrameChannel() = default;

    /// The transport. Only for the worker, for threads that change the state, and for threads that `replaceTransport`
    /// waits for.
    CSCommsInterfaceTCP& transport() const { return *comms; }

    /// Takes over another transport and deletes the one before, after the threads that still send through it. Taking over
    /// the transport that it has changes nothing. The connection must have ended.
    void replaceTransport(CSCommsInterfaceTCP* next);

    /// @name Sending
    /// Any thread.
    /// @{

    /// Sends a copy of `message` in a frame. See `CSClientProtocol::sendMessage`.
    unsigned int send(const RawMessage& message);

    /// Sends a whole frame, with one write.
    /// @return as `send`.
    unsigned int sendFrame(const RawMessage& wholeFrame);

    /// Where a frame is built: its memory is kept from use to use.
    SpareMessage& spare() { return spareFrame; }
    /// @}

    /// @name Receiving
    /// Worker thread.
    /// @{

    /// Reads and checks one frame header. See `CSClientProtocol::readMessageHeader`.
    bool readHeader(RawMessage::Type& type, unsigned int& bodyLength);

    /// Reads at most one frame and hands its body to the owner. See `CSClientProtocol::receiveMessage`.
    void receive();
    /// @}

  private:
    friend class PartAccess;

    class Write;

    enum class BodyRead { WHOLE, CLOSED, FAILED };

    /// Reads the body of a frame, without a limit of time.
    BodyRead readBody(unsigned int bodyLength, RawMessage& message);

    Owner& owner;

    /// Never null. Replaced without a connection, after `senders`.
    std::unique_ptr<CSCommsInterfaceTCP> comms;

    // Any thread.

    /// For the frame that is being built and sent.
    SpareMessage spareFrame;
    /// Threads that are handing a frame to the transport.
    CSUseCount senders;

    // Worker thread.

    ReusableMessage receivedHeader;
    ReusableMessage receivedBody;
};

}  // namespace com_tesk
