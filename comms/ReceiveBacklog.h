#pragma once

#include <cstddef>
#include <vector>

namespace com_tesk {

/// Bytes that a writer has received while it waited for send buffer space, in the order in which they arrived. The
/// reader gets them before any other bytes. One thread at a time.
class ReceiveBacklog {
  public:
    bool isEmpty() const { return begin == end; }

    /// Receives the bytes that are in the socket, up to `limit` bytes in all. Never blocks. A cancellation point.
    /// @return true when bytes were added. False at the limit, without memory, and at the end of the stream, which is
    ///         left for the reader to find.
    bool takeIn(int descriptor, std::size_t limit);

    /// Moves up to `maxCount` bytes to `target`.
    /// @return the number of bytes moved.
    std::size_t deliver(char* target, std::size_t maxCount);

    /// Drops the bytes and frees their memory.
    void release();

  private:
    std::size_t size() const { return end - begin; }

    /// The bytes from `begin` to `end` are in use. Both are 0 when it is empty.
    std::vector<char> bytes;
    std::size_t begin = 0;
    std::size_t end = 0;
};

}  // namespace com_tesk
