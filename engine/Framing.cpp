// Frames: one message out, one message in.

#include <cerrno>
#include <exception>
#include <iterator>
#include <new>

#include "comms/CSCommsInterfaceTCP.h"
#include "comms/Diagnostics.h"
#include "engine/CSClientProtocol.h"
#include "message/FrameLayout.h"

namespace com_tesk {

using diagnostics::Decimal;

namespace {

constexpr unsigned int kSent = 0;
constexpr unsigned int kNotConnected = 1;
constexpr unsigned int kWriteFailed = 2;
constexpr unsigned int kInvalidMessage = 3;

constexpr int kStreamClosed = 0;
constexpr int kReceiveTimeout = -2;

/// More than a header: with room to spare a transport appends faster.
constexpr std::size_t kHeaderRoom = std::size_t{2} * frame::kHeaderLength;

bool isConnected(CSClient::State state) {
    return state == CSClient::STATE_CONNECTED || state == CSClient::STATE_READY;
}

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

}  // namespace

/// The write of one frame. When a cancellation ends it, half a frame may have left, so the connection is left to the worker
/// to close, and nothing more is sent on it.
class CSClientProtocol::FrameWrite {
  public:
    FrameWrite(CSClientProtocol& writingEngine, std::uint32_t writtenConnection)
        : engine(writingEngine), connection(writtenConnection) {}
    FrameWrite(const FrameWrite&) = delete;
    FrameWrite& operator=(const FrameWrite&) = delete;
    ~FrameWrite() {
        if (!hasReturned) {
            engine.abandon(connection);
        }
    }

    int run(const RawMessage& wholeFrame) {
        try {
            const int written = engine.transport().writeMessage(wholeFrame);
            hasReturned = true;
            return written;
        } catch (const std::exception&) {
            hasReturned = true;
            throw;
        }
    }

  private:
    CSClientProtocol& engine;
    const std::uint32_t connection;
    bool hasReturned = false;
};

bool CSClientProtocol::maySend() const {
    // Until a deferred close is carried out, the connection counts as closed already.
    return isConnected(state) && !hasDeferredClose();
}

unsigned int CSClientProtocol::sendMessage(const RawMessage& message) {
    if (!maySend()) {
        return kNotConnected;
    }
    const SpareMessage::Loan wholeFrame(spareFrame, message.getType());
    wholeFrame->reserve(frame::kHeaderLength + message.size());
    wholeFrame->assign(std::begin(frame::kDataHeader), std::end(frame::kDataHeader));
    wholeFrame->insert(wholeFrame->end(), message.begin(), message.end());
    switch (message.getType()) {
        case RawMessage::DATA:
            // The strict guard of writeAt leaves a body of eight bytes or less as it was built.
            wholeFrame->writeAt(frame::kBodyLengthOffset, static_cast<unsigned int>(message.size()));
            break;
        case RawMessage::CONTROL:
            wholeFrame->writeAt(frame::kKindOffset, frame::kKindControl);
            wholeFrame->writeAt(frame::kSubKindOffset, frame::kSubKindControl);
            wholeFrame->writeAt(frame::kEndMarkOffset, frame::kEndMarkControl);
            break;
        case RawMessage::INVALID:
            return kInvalidMessage;
    }
    wholeFrame->writeAt(frame::kFrameLengthOffset, static_cast<unsigned int>(wholeFrame->size()));
    return sendFrame(*wholeFrame);
}

unsigned int CSClientProtocol::sendFrame(const RawMessage& wholeFrame) {
    if (!maySend()) {
        return kNotConnected;
    }
    int written = -1;
    std::uint32_t writtenTo = kNoConnection;
    {
        // Counted before the state is read, so that replacing the transport waits for this write.
        const CSUseCount::Use sending(senders);
        writtenTo = connectionNumber;
        if (!isConnected(state) || abandonedConnection == writtenTo) {
            return kNotConnected;
        }
        written = FrameWrite(*this, writtenTo).run(wholeFrame);
    }
    if (written >= 0 && static_cast<std::size_t>(written) == wholeFrame.size()) {
        return kSent;
    }
    const int error = errno;
    if (!isSilent()) {
        diagnostics::error({"Error writing to server (", Decimal(error), ") "});
    }
    closeAfterFailedWrite(writtenTo);
    return kWriteFailed;
}

bool CSClientProtocol::readMessageHeader(RawMessage::Type& type, unsigned int& bodyLength) {
    ReusableMessage& header = receivedHeader;
    header.begin(RawMessage::DATA);
    header.reserve(kHeaderRoom);
    const int received = transport().readMessage(frame::kHeaderLength, header);
    if (received == kReceiveTimeout) {
        return false;
    }
    if (received == kStreamClosed) {
        failRead({"Connection closed by server."});
        return false;
    }
    if (received < 0) {
        // Deliberately goes on: the header as the transport left it is refused below, with its own line and close.
        failRead({"Read error (", Decimal(errno), "). Closing connection."});
    } else if (static_cast<unsigned int>(received) < frame::kHeaderLength) {
        failRead({"Read error (bytes read ", Decimal(received), "). Closing connection."});
        return false;
    }

    if (header.wordAt(frame::kHeaderLengthOffset) != frame::kHeaderLength) {
        failRead({"Invalid header data received. Closing connection."});
        return false;
    }
    bodyLength = header.wordAt(frame::kFrameLengthOffset);
    // An empty body is refused too, deliberately.
    if (bodyLength <= frame::kHeaderLength) {
        failRead({"Invalid message data received (", Decimal(bodyLength), "). Closing connection."});
        return false;
    }
    bodyLength -= frame::kHeaderLength;
    type = typeOfKind(header.wordAt(frame::kKindOffset));
    return true;
}

// One function, because code that runs right after a system call finds cold caches.
[[gnu::flatten]] void CSClientProtocol::receiveMessage() {
    try {
        RawMessage::Type type = RawMessage::INVALID;
        unsigned int bodyLength = 0;
        if (!readMessageHeader(type, bodyLength)) {
            return;
        }
        receivedBody.begin(type);
        const BodyRead body = readBody(bodyLength, receivedBody);
        if (body == BodyRead::WHOLE) {
            handleReceivedMessage(receivedBody);
        }
        // Before the connection is closed, which can take its time: half a large body needs as much memory as a whole one.
        receivedBody.end();
        if (body == BodyRead::CLOSED) {
            failRead({"EXIT: Connection closed by server."});
        } else if (body == BodyRead::FAILED) {
            failRead({"EXIT: Read error."});
        }
    } catch (const std::bad_alloc&) {
        // The frame is lost, so the connection ends: what the frame would have confirmed is registered again on the next.
        receivedBody.end();
        failRead({"EXIT: Read error."});
    }
}

CSClientProtocol::BodyRead CSClientProtocol::readBody(unsigned int bodyLength, RawMessage& message) {
    unsigned int receivedBytes = 0;
    while (receivedBytes < bodyLength) {
        const int received = transport().readMessage(bodyLength - receivedBytes, message);
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

void CSClientProtocol::failRead(std::initializer_list<std::string_view> line) {
    if (!isSilent()) {
        diagnostics::error(line);
    }
    closeConnection();
}

}  // namespace com_tesk
