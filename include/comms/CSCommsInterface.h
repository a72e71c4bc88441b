#pragma once

#include "message/Export.h"

namespace com_tesk {

class RawMessage;

/// A byte transport: all that the frame layer relies on. Messages belong to the caller and are used during the call
/// only. Which threads may call what, and how long a call may block, is each transport's to say.
class CSCLIENT_EXPORT CSCommsInterface {
  public:
    CSCommsInterface() = default;
    CSCommsInterface(const CSCommsInterface&) = delete;
    CSCommsInterface& operator=(const CSCommsInterface&) = delete;
    virtual ~CSCommsInterface();

    /// Appends up to `count` bytes to `message`. What else becomes of it, above all after a failure, differs by
    /// transport.
    /// @return the number of bytes read; 0 when the peer has closed the stream; -2 when nothing arrived within the
    ///         transport's receive time-out; -1 on any other error, with `errno` saying which.
    virtual int readMessage(unsigned int count, RawMessage& message) = 0;

    /// Writes all bytes of `message`.
    /// @return the number of bytes written, or -1 with `errno` saying why.
    virtual int writeMessage(const RawMessage& message) = 0;

    /// Closes the stream.
    /// @return the system's result, or -1 when nothing was open.
    virtual int close() = 0;
};

}  // namespace com_tesk
