#pragma once

#include <cstddef>
#include <deque>

#include "host/Bytes.h"

namespace com_tesk::host {

/// The frames that wait to be sent to one client, the one on its way included; bounded. No socket; one thread at a
/// time.
class OutputQueue {
  public:
    explicit OutputQueue(std::size_t byteLimit) : maxBytes(byteLimit) {}

    /// @return false, and nothing is queued, when the queue holds something and the frame would bring it above
    ///         the bound. An empty queue takes a frame of any size.
    bool push(Bytes frame);

    bool empty() const { return frames.empty(); }
    std::size_t bytes() const { return queuedBytes; }

    /// The frame to send next; its bytes stay in place until pop(), whatever is pushed meanwhile. Not when empty.
    const Bytes& front() const { return frames.front(); }
    void pop();
    void clear();

  private:
    const std::size_t maxBytes;
    std::deque<Bytes> frames;
    std::size_t queuedBytes = 0;
};

}  // namespace com_tesk::host
