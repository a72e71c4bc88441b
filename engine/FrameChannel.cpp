#include "engine/FrameChannel.h"

#include <cerrno>
#include <exception>
#include <iterator>
#include <new>

#include "client/CSClient.h"
#include "comms/Diagnostics.h"
#include "engine/DeferringMutex.h"
#include "message/FrameLayout.h"

namespace com_tesk {

using diagnostics::Decimal;

namespace {

constexpr int kStreamClosed = 0;
constexpr int kReceiveTimeout = -2;

RawMessage::Type typeOfKind(unsigned int kind) {
    switch (kind) {
        case frame::kKindData:
            return RawMessage::DATA;
        case frame::kKindControl:
            return RawMessage::CONTROL;
        default:
            return RawMessage::INVALID;
    }
}

/// Builds the frame of `message`.
/// @return false when messages of its type are not sent.
bool buildFrame(const RawMessage& message, RawMessage& wholeFrame) {
    wholeFrame.reserve(frame::kHeaderLength + message.size());
    wholeFrame.assign(std::begin(frame::kDataHeader), std::end(frame::kDataHeader));
    wholeFrame.insert(wholeFrame.end(), message.begin(), message.end());
    switch (message.getType()) {
        case RawMessage::DATA:
            // Intended: writeAt does not change a body of eight bytes or less. Short frames rely on it.
            wholeFrame.writeAt(frame::kBodyLengthOffset, static_cast<unsigned int>(message.size()));
            break;
        case RawMessage::CONTROL:
            wholeFrame.writeAt(frame::kKindOffset, frame::kKindControl);
            wholeFrame.writeAt(frame::kSubKindOffset, frame::kSubKindControl);
            wholeFrame.writeAt(frame::kEndMarkOffset, frame::kEndMarkControl);
            break;
        case RawMessage::INVALID:
            return false;
    }
    wholeFrame.writeAt(frame::kFrameLengthOffset, static_cast<unsigned int>(wholeFrame.size()));
    return true;
}

}  // namespace

/// The write of one frame. It notifies the owner when a cancellation ends the write.
class FrameChannel::Write {
  public:
    Write(FrameChannel& writingChannel, std::uint32_t writtenConnection)
        : channel(writingChannel), connection(writtenConnection) {}
    Write(const Write&) = delete;
    Write& operator=(const Write&) = delete;
    ~Write() {
        if (!hasReturned) {
            channel.owner.writeAbandoned(connection);
        }
    }

    int run(const RawMessage& wholeFrame) {
        try {
            const int written = channel.comms->writeMessage(wholeFrame);
            hasReturned = true;
            return written;
        } catch (const std::exception&) {
            hasReturned = true;
            throw;
        }
    }

  private:
    FrameChannel& channel;
    const std::uint32_t connection;
    bool hasReturned = false;
};

FrameChannel::FrameChannel(Owner& channelOwner, CSCommsInterfaceTCP* first) : owner(channelOwner), comms(first) {}

void FrameChannel::replaceTransport(CSCommsInterfaceTCP* next) {
    if (next != comms.get()) {
        // A sender that saw the last connection may still use its transport. That transport is closed, so the sender
        // will return.
        senders.waitForUsers();
        comms.reset(next);
    }
}

unsigned int FrameChannel::send(const RawMessage& message) {
    if (!owner.maySend()) {
        return CSClient::RESULT_NOT_CONNECTED;
    }
    const SpareMessage::Lease wholeFrame(spareFrame, message.getType());
    if (!buildFrame(message, *wholeFrame)) {
        return CSClient::RESULT_REFUSED;
    }
    return sendFrame(*wholeFrame);
}

unsigned int FrameChannel::sendFrame(const RawMessage& wholeFrame) {
    if (!owner.maySend()) {
        return CSClient::RESULT_NOT_CONNECTED;
    }
    int written = -1;
    std::uint32_t writtenTo = kNoConnection;
    {
        // Register as a sender before reading the connection, so that replacing the transport waits for this write.
        const CSUseCount::Use sending(senders);
        writtenTo = owner.connectionToWriteTo();
        if (writtenTo == kNoConnection) {
            return CSClient::RESULT_NOT_CONNECTED;
        }
        written = Write(*this, writtenTo).run(wholeFrame);
    }
    if (written >= 0 && static_cast<std::size_t>(written) == wholeFrame.size()) {
        return CSClient::RESULT_OK;
    }
    owner.writeFailed(writtenTo, errno);
    return CSClient::RESULT_FAILED;
}

bool FrameChannel::readHeader(RawMessage::Type& type, unsigned int& bodyLength) {
    ReusableMessage& header = receivedHeader;
    header.begin(RawMessage::DATA);
    const int received = comms->readMessage(frame::kHeaderLength, header);
    if (received == kReceiveTimeout) {
        return false;
    }
    if (received == kStreamClosed) {
        owner.readFailed({"Connection closed by server."});
        return false;
    }
    if (received < 0) {
        // Intended: continue. The header, as the transport left it, is refused below, with its own line and close.
        // Users of the diagnostics rely on both lines.
        owner.readFailed({"Read error (", Decimal(errno), "). Closing connection."});
    } else if (static_cast<unsigned int>(received) < frame::kHeaderLength) {
        owner.readFailed({"Read error (bytes read ", Decimal(received), "). Closing connection."});
        return false;
    }

    if (header.getDoubleWord(frame::kHeaderLengthOffset) != frame::kHeaderLength) {
        owner.readFailed({"Invalid header data received. Closing connection."});
        return false;
    }
    bodyLength = header.getDoubleWord(frame::kFrameLengthOffset);
    // An empty body is refused, too: no message of the host is empty.
    if (bodyLength <= frame::kHeaderLength) {
        owner.readFailed({"Invalid message data received (", Decimal(bodyLength), "). Closing connection."});
        return false;
    }
    bodyLength -= frame::kHeaderLength;
    type = typeOfKind(header.getDoubleWord(frame::kKindOffset));
    return true;
}

void FrameChannel::receive() {
    try {
        RawMessage::Type type = RawMessage::INVALID;
        unsigned int bodyLength = 0;
        if (!readHeader(type, bodyLength)) {
            return;
        }
        receivedBody.begin(type);
        const BodyRead body = readBody(bodyLength, receivedBody);
        if (body == BodyRead::WHOLE) {
            owner.bodyReceived(receivedBody);
        }
        // Free the body before the close, which can take long: half a large body needs as much memory as a whole one.
        receivedBody.end();
        if (body == BodyRead::CLOSED) {
            owner.readFailed({"EXIT: Connection closed by server."});
        } else if (body == BodyRead::FAILED) {
            owner.readFailed({"EXIT: Read error."});
        }
    } catch (const std::bad_alloc&) {
        // The frame is lost, so the connection ends. Parameters that it would have confirmed are registered again on
        // the next.
        receivedBody.end();
        owner.readFailed({"EXIT: Read error."});
    }
}

FrameChannel::BodyRead FrameChannel::readBody(unsigned int bodyLength, RawMessage& message) {
    unsigned int receivedBytes = 0;
    while (receivedBytes < bodyLength) {
        const int received = comms->readMessage(bodyLength - receivedBytes, message);
        if (received > 0) {
            receivedBytes += static_cast<unsigned int>(received);
        } else if (received == kStreamClosed) {
            return BodyRead::CLOSED;
        } else if (errno != EAGAIN) {
            return BodyRead::FAILED;
        }
        // Timed out: read again, without limit.
    }
    return BodyRead::WHOLE;
}

}  // namespace com_tesk
