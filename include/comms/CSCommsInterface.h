#pragma once

#include "message/Export.h"

namespace com_tesk {

class RawMessage;

/// A byte transport: the operations that the frame layer needs. The caller owns the messages; a call uses them only
/// until it returns. Each transport documents which threads may call its operations, and how long they may block.
class CSCLIENT_EXPORT CSCommsInterface {
  public:
    CSCommsInterface() = default;
    CSCommsInterface(const CSCommsInterface&) = delete;
    CSCommsInterface& operator=(const CSCommsInterface&) = delete;
    virtual ~CSCommsInterface();

    /// Appends up to `count` bytes to `message`. Other effects on `message`, above all after a failure, differ by
    /// transport.
    /// @return the number of bytes read; 0 when the peer has closed the stream; -2 when nothing arrived within the
    ///         transport's receive time-out; -1 on any other error, with the reason in `errno`.
    virtual int readMessage(unsigned int count, RawMessage& message) = 0;

    /// Writes all bytes of `message`.
    /// @return the number of bytes written, or -1 with the reason in `errno`.
    virtual int writeMessage(const RawMessage& message) = 0;

    /// Closes the stream.
    /// @return the system's result, or -1 when nothing was open.
    virtual int close() = 0;
};

}  // namespace com_tesk
