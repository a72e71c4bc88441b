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

/// Sends and receives frames through the transport of an engine. Each frame carries one message.
///
/// It does not depend on states and engine locks. Its owner decides when frames may be sent, and is notified of failures.
class FrameChannel {
  public:
    /// The interface through which a channel queries its connection and reports to it.
    class Owner {
      public:
        /// True when the calling thread may send.
        virtual bool maySend() const = 0;

        /// Returns the number of the connection that a frame is sent to now, or `kNoConnection`. Called while the
        /// thread is counted as a sender.
        virtual std::uint32_t connectionToWriteTo() const = 0;

        /// Reports that the calling thread is being cancelled in a write. Half a frame may have been sent.
        virtual void writeAbandoned(std::uint32_t connection) = 0;

        /// Reports that a frame was not sent whole. `error` is `errno` after the write; it means nothing after a
        /// short write.
        virtual void writeFailed(std::uint32_t connection, int error) = 0;

        /// Reports that nothing more can be read from the connection. `line` is the diagnostic.
        virtual void readFailed(std::initializer_list<std::string_view> line) = 0;

        /// Reports that the body of a frame has arrived.
        virtual void bodyReceived(const RawMessage& body) = 0;

      protected:
        ~Owner() = default;
    };

    /// @param channelOwner  outlives this object.
    /// @param first         the first transport. The channel owns it. Not null.
    FrameChannel(Owner& channelOwner, CSCommsInterfaceTCP* first);
    FrameChannel(const FrameChannel&) = delete;
    FrameChannel& operator=(const FrameChannel&) = delete;
    ~FrameChannel() = default;

    /// Returns the transport. Only for the worker, for threads that change the state, and for threads that
    /// `replaceTransport` waits for.
    CSCommsInterfaceTCP& transport() const { return *comms; }

    /// Takes ownership of another transport. Deletes the previous one once no thread sends through it. Passing the
    /// current transport changes nothing. The connection must have ended.
    void replaceTransport(CSCommsInterfaceTCP* next);

    /// @name Sending
    /// Any thread.
    /// @{

    /// Sends a copy of `message` in a frame. See `CSClientProtocol::sendMessage`.
    unsigned int send(const RawMessage& message);

    /// Sends a whole frame, with one write.
    /// @return as `send`.
    unsigned int sendFrame(const RawMessage& wholeFrame);

    /// Returns the message in which frames are built. Its memory is kept from use to use.
    SpareMessage& spare() { return spareFrame; }
    /// @}

    /// @name Receiving
    /// Worker thread.
    /// @{

    /// Reads and checks one frame header. See `CSClientProtocol::readMessageHeader`.
    bool readHeader(RawMessage::Type& type, unsigned int& bodyLength);

    /// Reads at most one frame and passes its body to the owner. See `CSClientProtocol::receiveMessage`.
    void receive();
    /// @}

  private:
    friend class PartAccess;

    class Write;

    enum class BodyRead { WHOLE, CLOSED, FAILED };

    /// Reads the body of a frame, without a time limit.
    BodyRead readBody(unsigned int bodyLength, RawMessage& message);

    Owner& owner;

    /// Never null. Replaced only without a connection, after waiting for `senders`.
    std::unique_ptr<CSCommsInterfaceTCP> comms;

    // Any thread.

    /// The frame that is being built and sent.
    SpareMessage spareFrame;
    /// Threads that are writing a frame to the transport.
    CSUseCount senders;

    // Worker thread.

    ReusableMessage receivedHeader;
    ReusableMessage receivedBody;
};

}  // namespace com_tesk
