#pragma once

#include <cstddef>
#include <vector>

namespace com_tesk {

/// Bytes that a writer has taken out of a socket while it waited for room, in the order in which they arrived. The reader
/// gets them before anything else. One thread at a time.
class ReceiveBacklog {
  public:
    bool isEmpty() const { return begin == end; }

    /// Takes in what has arrived on the socket, up to `limit` bytes in all. Never blocks. A cancellation point.
    /// @return whether there is more in it now. False at the limit, without memory, and at the end of the stream, which is
    ///         left for the reader to find.
    bool takeIn(int descriptor, std::size_t limit);

    /// Moves up to `maxCount` bytes to `target`.
    /// @return how many.
    std::size_t deliver(char* target, std::size_t maxCount);

    /// Drops the bytes and gives back their memory.
    void release();

  private:
    std::size_t size() const { return end - begin; }

    /// `begin` to `end` are in use; both are 0 when it is empty.
    std::vector<char> bytes;
    std::size_t begin = 0;
    std::size_t end = 0;
};

}  // namespace com_tesk
