#pragma once

#include <cstddef>
#include <deque>

#include "host/Bytes.h"

namespace com_tesk::host {

/// The bounded queue of frames for one client, including the frame that is being sent. No socket; one thread at a time.
class OutputQueue {
  public:
    explicit OutputQueue(std::size_t byteLimit) : maxBytes(byteLimit) {}

    /// @return false, without queuing the frame, when the queue is not empty and the frame would bring it above the
    ///         bound. An empty queue accepts a frame of any size.
    bool push(Bytes frame);

    bool empty() const { return frames.empty(); }
    std::size_t bytes() const { return queuedBytes; }

    /// Returns the frame to send next. Its bytes stay in place until pop(), also during push(). The queue must not be
    /// empty.
    const Bytes& front() const { return frames.front(); }
    void pop();
    void clear();

  private:
    const std::size_t maxBytes;
    std::deque<Bytes> frames;
    std::size_t queuedBytes = 0;
};

}  // namespace com_tesk::host
